#!/usr/bin/env bash
# Proves that an installed diagctl finds what was installed with it.
# Usage: check_installed.sh PREFIX [INSTRUMENTATION]
set -euo pipefail

prefix=$1
diagctl=$prefix/bin/diagctl
# Whoever builds and tests may well not be root, and the folders above may be anybody's.
options=(--allow-insecure)
unset XDG_CONFIG_HOME HOME

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# expect PATTERN COMMAND...: the command succeeds and prints the pattern.
expect() {
  local wanted=$1 got
  shift
  got=$("$@") || fail "$* exited with $?: $got"
  grep -qE -- "$wanted" <<<"$got" || fail "$* printed no '$wanted': $got"
}

not() {
  ! "$@"
}

# Away from the build, so that nothing is found by where the caller stands.
cd /

expect '^diagctl [0-9.]+$' "$diagctl" --version
for package in ERRORS MEMORY NETWORK PLATFORM PROCESSOR STORAGE; do
  expect "^ +[0-9]+ +$package " "$diagctl" "${options[@]}" list
done
expect '^PASSED +Network: Loopback datagrams on lo' \
  "$diagctl" "${options[@]}" run -q --watch off --quick -p network -t 'Loopback datagrams'
case ${2-} in
  # No limit of memory can be set under these, so the flood of memory is not tried.
  asan | tsan) expect '^39 of 40 contained' not "$diagctl" "${options[@]}" selftest ;;
  *) expect '^40 of 40 contained' "$diagctl" "${options[@]}" selftest ;;
esac

# Copied elsewhere, it still finds its own.
moved=$(mktemp -d)
trap 'rm -rf "$moved"' EXIT
cp -a "$prefix/." "$moved"
expect '^ +[0-9]+ +NETWORK ' "$moved/bin/diagctl" "${options[@]}" list

for page in man1/diagctl.1 man5/tarvexdiags-control.5 man5/tarvexdiags-package.5; do
  [[ -s $prefix/share/man/$page ]] || fail "no manual page $page"
done
# shellcheck source=/dev/null
source "$prefix/share/bash-completion/completions/diagctl"
complete -p diagctl >/dev/null || fail "bash completes nothing"
grep -q '^#compdef diagctl$' "$prefix/share/zsh/site-functions/_diagctl" || fail "no completion for zsh"
