#!/usr/bin/env bash
# Proves that the compiler's check of locks finds what it is there for.
# Usage: check_locks.sh BREACH [MESSAGE]: compiles GuardedFields.cpp with the breach of that number;
# the compiler must refuse it with the message, or accept breach 0. CXX is a clang.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
breach=$1
wanted=${2:-}

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

compile() {
  "$CXX" -std=c++20 -fsyntax-only -Wthread-safety -Werror=thread-safety -I"$here/../../.." \
    "-DBREACH=$1" "$here/GuardedFields.cpp" 2>&1
}

if [[ $breach == 0 ]]; then
  compile 0 || fail "correct code is refused"
elif output=$(compile "$breach"); then
  fail "breach $breach is accepted"
elif [[ $output != *"error: $wanted"*-Wthread-safety* ]]; then
  fail "breach $breach is refused for another reason: $output"
elif (($(grep -c ' error: ' <<<"$output") != 1)); then
  fail "breach $breach is not the only one: $output"
fi
