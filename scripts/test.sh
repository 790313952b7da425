#!/usr/bin/env bash
# Builds everything and runs every test: the formatting check, the native
# build, the manual pages' lint, the Debian package (built, installed, run and
# removed), the same tests under AddressSanitizer and UndefinedBehaviorSanitizer,
# the fuzz targets, the Windows cross-build of the tool and its zip, and the end-to-end
# tests again with that vkagnss.exe run by wine.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

echo "== formatting"
scripts/check-format.sh

jobs=$(nproc)
echo "== native build and tests"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest -j8 --output-on-failure --timeout 300)

echo "== speed (short; printed, never failing)"
bench/run.sh --short build || echo "bench/run.sh: a bench did not run (not counted as a failure)"

echo "== manual pages (mandoc lint)"
mandoc -T lint -W warning man/*.1

echo "== Debian package: build, file list, install, run, remove"
deb=$(scripts/package.sh)
contents=$(dpkg-deb -c "$deb")
for f in usr/bin/vkagnss usr/bin/vkagnss-sim usr/bin/vkagnss-rtcmgen usr/bin/vkagnss-epogen \
  usr/bin/vkagnss-hdbgen usr/bin/vkagnss-pstmgen usr/share/man/man1/vkagnss.1.gz \
  usr/share/man/man1/vkagnss-sim.1.gz usr/share/man/man1/vkagnss-line.1.gz usr/bin/vkagnss-line \
  usr/share/doc/vkagnss/copyright \
  usr/share/doc/vkagnss/changelog.gz usr/share/doc/vkagnss/README.md usr/share/doc/vkagnss/LICENSE; do
  grep -Eq " \./$f( |\$)" <<<"$contents" || { echo "$deb lacks $f" >&2; exit 1; }
done
dpkg-deb -f "$deb" Package Version Architecture Depends
sudo=""
[ "$(id -u)" = 0 ] || sudo=sudo
$sudo dpkg -i "$deb" >/dev/null
trap '$sudo dpkg -r vkagnss >/dev/null 2>&1 || true' EXIT
/usr/bin/vkagnss --version
man -w vkagnss
$sudo dpkg -r vkagnss >/dev/null
trap - EXIT

echo "== sanitizer build and tests"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVK_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest -j8 --output-on-failure --timeout 300)

echo "== fuzzing the file parsers, reply checks, option grammar, frame parser and the HD8XXX, STA8100 and TQ934N file readers, and the EPO and DW2207B transfer loops over an in-memory port (clang libFuzzer)"
cmake -S . -B build-fuzz -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVK_FUZZ=ON -DVK_SANITIZE=ON -DVK_BUILD_TESTS=OFF >/dev/null
fuzzers=(fuzz_reply_checks fuzz_options fuzz_epo_file fuzz_frame fuzz_hd8xxx_files fuzz_rtcm_platforms
  fuzz_epo_transfer fuzz_dw2207b_stream)
cmake --build build-fuzz -j"$jobs" --target "${fuzzers[@]}"
for f in "${fuzzers[@]}"; do
  (cd build-fuzz && ./"$f" -max_total_time="${VK_FUZZ_SECONDS:-15}" -print_final_stats=1 2>"$f.log" ) \
    || { tail -40 "build-fuzz/$f.log"; echo "$f found a failure" >&2; exit 1; }
  grep -E "^Done|stat::number_of_executed_units" "build-fuzz/$f.log" | sed "s/^/$f: /"
done

echo "== Windows cross-build"
cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake >/dev/null
cmake --build build-win -j"$jobs" --target vkagnss vkagnss_win32_checks
ls -l build-win/vkagnss.exe

echo "== Windows zip"
cmake --build build-win -j"$jobs" --target vkagnss_installables
rm -f build-win/vkagnss-*.zip
(cd build-win && cpack -G ZIP >cpack.log 2>&1) || { cat build-win/cpack.log >&2; exit 1; }
zip=$(ls build-win/vkagnss-*-win64.zip)
unzip -l "$zip"
# The listing is taken whole first: grep -q stops reading at its match, and
# with pipefail the lister's broken pipe would count as a failure.
listing=$(unzip -Z1 "$zip")
for f in vkagnss.exe README.md LICENSE; do
  grep -q "^vkagnss-[^/]*/$f\$" <<<"$listing" || { echo "$zip lacks $f" >&2; exit 1; }
done

echo "== end-to-end tests against vkagnss.exe under wine"
# A prefix of the build tree's own. Its server stays up for the whole step and
# is started apart from the tests' pipes: otherwise wine's background services
# inherit a run's standard output and hold it open for seconds after the end.
# No .NET or HTML engine: the tool uses neither, and the prefix is made faster.
export WINEPREFIX="$PWD/build-win/wine" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
mkdir -p "$WINEPREFIX"
trap 'wineserver -k 2>/dev/null || true' EXIT
setsid wineserver -p </dev/null >/dev/null 2>&1
wine build-win/vkagnss.exe -S x </dev/null >/dev/null 2>&1  # warm-up: the prefix and the services
rm -f "$WINEPREFIX"/dosdevices/com[1-9][0-9]*               # links a killed run left behind
wine build-win/vkagnss_win32_checks.exe
# A test that fails under wine is run once more, its first output kept in the
# log: one run in several, under the load of this script, has seen a single
# test fail there that passes alone and in the next full run (not seen
# natively); the failure stays visible while it is tracked down.
(cd build && VK_TEST_WINE="$PWD/../build-win/vkagnss.exe" ctest -j8 -L e2e --output-on-failure \
  --timeout 300 --repeat until-pass:2)
wineserver -k
trap - EXIT
unset WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
echo "== all green"
