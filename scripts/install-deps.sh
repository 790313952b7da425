#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
#   scripts/install-deps.sh          all that scripts/test.sh uses
#   scripts/install-deps.sh demo     only the build tools, all that scripts/demo.sh uses
#   scripts/install-deps.sh package  the build tools and dpkg-dev, for scripts/package.sh
set -euo pipefail

build_tools=(cmake ninja-build g++)
case "${1:-all}" in
  demo) packages=("${build_tools[@]}") ;;
  package) packages=("${build_tools[@]}" dpkg-dev) ;;
  all)
    # dpkg-dev builds the .deb, man-db and mandoc check the manual pages,
    # unzip lists the Windows zip.
    packages=("${build_tools[@]}" libgtest-dev clang libclang-rt-14-dev clang-format lrzsz socat
      dpkg-dev man-db mandoc unzip)
    if [ "${VK_WITH_WINDOWS:-1}" = 1 ]; then
      # The -posix compilers of cmake/mingw-w64.cmake, and wine to run the
      # end-to-end tests against vkagnss.exe.
      packages+=(g++-mingw-w64-x86-64 g++-mingw-w64-x86-64-posix wine wine64)
    fi
    ;;
  *) echo "usage: $0 [all|demo|package]" >&2; exit 2 ;;
esac

missing=()
for p in "${packages[@]}"; do
  [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "missing Debian packages: ${missing[*]}" >&2
    echo "install them as root (apt-get install ${missing[*]}), or run this again as root or with sudo" >&2
    exit 1
  fi
  sudo=sudo
fi
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
# A console program under wine needs none of wine's recommendations (fonts,
# media and desktop libraries, hundreds of megabytes): wine goes in alone.
plain=() lean=()
for p in "${missing[@]}"; do
  case "$p" in wine | wine64) lean+=("$p") ;; *) plain+=("$p") ;; esac
done
if [ ${#plain[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${plain[@]}" >/dev/null
fi
if [ ${#lean[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${lean[@]}" >/dev/null
fi
