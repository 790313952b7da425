#!/usr/bin/env bash
# Builds everything and runs every test: the formatting check, the native
# build, the same tests under AddressSanitizer and UndefinedBehaviorSanitizer,
# the fuzz targets, and the Windows cross-build of the tool.
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

echo "== sanitizer build and tests"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVK_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest -j8 --output-on-failure --timeout 300)

echo "== fuzzing the file parsers, reply checks, option grammar, frame parser and the HD8XXX, STA8100 and TQ934N file readers (clang libFuzzer)"
cmake -S . -B build-fuzz -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVK_FUZZ=ON -DVK_SANITIZE=ON -DVK_BUILD_TESTS=OFF >/dev/null
fuzzers=(fuzz_reply_checks fuzz_options fuzz_epo_file fuzz_frame fuzz_hd8xxx_files fuzz_rtcm_platforms)
cmake --build build-fuzz -j"$jobs" --target "${fuzzers[@]}"
for f in "${fuzzers[@]}"; do
  (cd build-fuzz && ./"$f" -max_total_time="${VK_FUZZ_SECONDS:-15}" -print_final_stats=1 2>"$f.log" ) \
    || { tail -40 "build-fuzz/$f.log"; echo "$f found a failure" >&2; exit 1; }
  grep -E "^Done|stat::number_of_executed_units" "build-fuzz/$f.log" | sed "s/^/$f: /"
done

echo "== Windows cross-build"
cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake >/dev/null
cmake --build build-win -j"$jobs" --target vkagnss
ls -l build-win/vkagnss.exe
echo "== all green"
