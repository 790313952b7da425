#!/usr/bin/env bash
# Fails when a C or C++ source of the tree is not formatted as .clang-format
# says; with --fix, formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h' 2>/dev/null || find . -name '*.[ch]' -o -name '*.cpp')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files as .clang-format says"
