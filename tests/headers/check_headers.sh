#!/usr/bin/env bash
# Every header compiles by itself, and a second inclusion is harmless.
# Usage: check_headers.sh ROOT FOLDER...   (CXX: the compiler, CXXFLAGS: further options)
set -euo pipefail

root=$1
shift
CXX=${CXX:-g++}

check_one() {
  local options
  read -ra options <<<"${CXXFLAGS:-}"
  printf '#include "%s"\n#include "%s"\n' "$1" "$1" |
    "$CXX" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror \
      -I "$root" "${options[@]}" -x c++ - || {
    echo "FAILED: $1 does not compile by itself" >&2
    return 1
  }
}
export -f check_one
export root CXX CXXFLAGS

cd "$root"
mapfile -t headers < <(find "$@" -name '*.h' | sort)
((${#headers[@]} > 0)) || {
  echo "FAILED: no header found in $*" >&2
  exit 1
}
printf '%s\n' "${headers[@]}" | xargs -P 2 -I{} bash -c 'check_one {}'
echo "${#headers[@]} headers compile by themselves"
