#!/usr/bin/env bash
# Builds the Debian package, vkagnss_<version>_<arch>.deb, in build-pkg/: the
# tool, the virtual receiver and the sample-data generators, the manual pages,
# the README and the licence (Depends worked out by dpkg-shlibdeps). The
# package's path is the one line on standard output; the build's progress
# goes to standard error.
#   scripts/package.sh            build and pack
#   BUILD_DIR=dir scripts/package.sh   another build directory
# The build is RelWithDebInfo, as everywhere else; cpack strips the programs.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh package >&2
dir=${BUILD_DIR:-build-pkg}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVK_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target vkagnss_installables >&2
rm -f "$dir"/vkagnss_*.deb
(cd "$dir" && cpack -G DEB >cpack.log 2>&1) || { cat "$dir/cpack.log" >&2; exit 1; }
ls "$(cd "$dir" && pwd)"/vkagnss_*.deb
