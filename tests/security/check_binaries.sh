#!/usr/bin/env bash
# Proves that what is installed gives nobody else a say in what it loads, and shows no more of itself than
# it means to; and the former of the build tree as well, in which it is run, too.
# A release is hardened as well.
# Usage: check_binaries.sh HARDENED INSTALLED [BUILD], where HARDENED is ON or OFF
set -euo pipefail

hardened=$1
installed=$2
build=${3:-}
findings=()

# The shared objects and programs.
places=("$installed")
least=9
if [[ -n $build ]]; then
  places+=("$build"/lib*.so.* "$build"/{packages,selftest,diagctl})
  least=18
fi
mapfile -t files < <(find "${places[@]}" -type f ! -name '*.o' \
  -exec sh -c 'head -c 4 "$1" | grep -q "^.ELF" && echo "$1"' sh {} \; | sort)
((${#files[@]} >= least)) || findings+=("only ${#files[@]} files")

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

# check_hardening FILE
check_hardening() {
  local headers dynamic names marks
  headers=$(readelf -lW "$1")
  dynamic=$(readelf -dW "$1")
  names=$(nm -D --undefined-only "$1")
  [[ $headers == *GNU_RELRO* ]] || findings+=("$1: no RELRO")
  [[ $dynamic =~ BIND_NOW|"Flags: NOW" ]] || findings+=("$1: bound when it is used")
  [[ $headers =~ GNU_STACK[^$'\n']*' RW ' ]] || findings+=("$1: an executable stack")
  [[ $headers =~ 'Elf file type is DYN' ]] || findings+=("$1: at an address that is known")
  [[ $names == *__stack_chk_fail* ]] || findings+=("$1: no guarded stack")
  # The files' own property is lost where the system's start files do not bear it; those bring up to
  # three marks of their own.
  if [[ $(readelf -hW "$1") == *X86-64* ]]; then
    marks=$(objdump -d --no-show-raw-insn "$1" | grep -c endbr64 || true)
    ((marks > 3)) || findings+=("$1: no marked targets of jumps")
  fi
}

# check_compiled FILE: each of its sources, as the compiler notes it for the debugger. Of the kernels of
# the processor's tests some are spared.
check_compiled() {
  local notes note option
  mapfile -t notes < <(readelf -p .debug_str "$1" 2>/dev/null | sed -n 's/.*\(GNU C++.*\)/\1/p')
  noted=$((noted + ${#notes[@]}))
  for note in "${notes[@]}"; do
    [[ $1 != */libprocessor.so || $note != *-fno-stack-protector* ]] || continue
    for option in "${options[@]}"; do
      [[ " $note " == *" $option "* && $note != *-fno-stack-* && $note != *-fcf-protection=none* ]] ||
        findings+=("$1: a source without $option: $note")
    done
  done
}

noted=0
options=(-fstack-protector-strong -fstack-clash-protection)
[[ $(uname -m) != x86_64 ]] || options+=(-fcf-protection=full)
for file in "${files[@]}"; do
  check_run_path "$file"
  if [[ $hardened == ON ]]; then
    check_hardening "$file"
    check_compiled "$file"
  fi
done
[[ $hardened != ON || -z $build ]] || ((noted > 0)) || findings+=("no note of how a source was compiled")
if [[ $hardened == ON ]]; then
  names=$(nm -D --undefined-only "${files[@]}")
  [[ $names =~ __(v?s?n?printf|fprintf|mem(cpy|move|set)|read|pread64)_chk ]] ||
    findings+=("no call is fortified")
  [[ $names == *__glibcxx_assert_fail* ]] || findings+=("the standard library's assertions are off")
fi
for library in diagframework diagctrl; do
  check_interface "$(find "$installed" -name "lib$library.so.1")"
done
if ((${#findings[@]})); then
  printf '%s\n' "${findings[@]}" >&2
  exit 1
fi
echo "${#files[@]} files are as they must be"
