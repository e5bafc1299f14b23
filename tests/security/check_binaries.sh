#!/usr/bin/env bash
# Proves that what is installed gives nobody else a say in what it loads, and shows no more of itself than
# it means to; and the former of the build tree as well, in which it is run, too.
# Usage: check_binaries.sh PREFIX BUILD
set -euo pipefail

prefix=$1
build=$2
findings=()

# The shared objects and programs.
mapfile -t files < <(find "$prefix" "$build"/lib*.so.* "$build"/{packages,selftest,diagctl} -type f \
  ! -name '*.o' -exec sh -c 'head -c 4 "$1" | grep -q "^.ELF" && echo "$1"' sh {} \; | sort)
((${#files[@]} >= 18)) || findings+=("only ${#files[@]} files")

# check_run_path FILE: every element begins where the file lies.
check_run_path() {
  local path element
  path=$(readelf -dW "$1" | sed -nE 's/.*\((RUNPATH|RPATH)\).*\[(.*)\]$/\2/p')
  while IFS= read -r -d : element; do
    # shellcheck disable=SC2016  # the loader's word, not the shell's
    [[ $element == '$ORIGIN' || $element == '$ORIGIN/'* ]] ||
      findings+=("$1: '$element' in the run path $path")
  done <<<"${path:+$path:}"
}

# check_interface LIBRARY: it shows the project's own names alone.
check_interface() {
  local others own
  others=$(nm -DC --defined-only "$1" | cut -d' ' -f3- |
    grep -vE '^(typeinfo (name )?for |vtable for |VTT for |construction vtable for |(non-)?virtual thunk to )?TarvexDiags::' || true)
  own=$(nm -DC --defined-only "$1" | grep -c ' TarvexDiags::' || true)
  [[ -z $others ]] || findings+=("$1: shows ${others//$'\n'/, }")
  ((own > 20)) || findings+=("$1: shows only $own names")
}

for file in "${files[@]}"; do
  check_run_path "$file"
done
for library in diagframework diagctrl; do
  check_interface "$prefix/lib/lib$library.so.1"
done
if ((${#findings[@]})); then
  printf '%s\n' "${findings[@]}" >&2
  exit 1
fi
echo "${#files[@]} files are as they must be"
