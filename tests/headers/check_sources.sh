#!/usr/bin/env bash
# Proves that every source is built: its name stands in the CMakeLists.txt of its folder or of one
# above, or elsewhere behind the path of its folder. A test in a file that stands in no list would
# never run, and nobody would miss it.
# Usage: check_sources.sh ROOT [FINDING]: looks at the folders below ROOT whose lists are kept by hand;
# there must be no such file, or this finding and no other: "FILE is built by nobody".
set -euo pipefail

cd "$1"
wanted=${2:-}
folders=(packages examples tests bench)

# Each list once for each name of a source in it, and what stands behind a path in lists and scripts.
declare -A listed=() elsewhere=()
while IFS=: read -r list name; do
  if [[ $name == /* ]]; then
    elsewhere[${name#/}]=1
  else
    listed[${list%/*}/$name]=1
  fi
done < <(grep -rsoE --include=CMakeLists.txt --include='*.sh' '/?[A-Za-z0-9_]+\.cpp' "${folders[@]}")

is_built() {
  local name=${1##*/} folder=${1%/*}
  [[ -z ${elsewhere[$name]:-} ]] || return 0
  while [[ -z ${listed[$folder/$name]:-} ]]; do
    [[ $folder == */* ]] || return 1
    folder=${folder%/*}
  done
}

findings=()
while read -r file; do
  is_built "$file" || findings+=("$file is built by nobody")
done < <(find "${folders[@]}" -name '*.cpp' 2>/dev/null | sort)

if [[ ${findings[*]:-} != "$wanted" ]]; then
  printf 'FAILED: %s\n' "${findings[@]:-nothing found instead of \"$wanted\"}" >&2
  exit 1
fi
