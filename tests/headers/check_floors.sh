#!/usr/bin/env bash
# Proves that the folders lie on floors: a file includes what lies on its own floor or below.
# Usage: check_floors.sh ROOT [FINDING]: looks at the folders below ROOT; there must be no include
# that points upwards, or this one and no other: "FILE includes HEADER".
set -euo pipefail
shopt -s extglob

cd "$1"
wanted=${2:-}

framework='@(System|DeviceEnum|Diag)/*'
ground="$framework|DiagCtrl/internal/ground/*"
# What the library stands on itself: locks, exceptions, constants and the tracer.
foundation="$ground|DiagCtrl/internal/foundation/*|DiagCtrl/ClientsAtRest.h"
foundation+="|DiagCtrl/DiagCtrl@(Lock|BaseException|MutexException|Constants).h|DiagCtrl/DiagTracer.h"

# A folder, without the folders below it, and what it may include.
floors=(
  'System' 'System/*'
  'System/internal' 'System/internal/*'
  'DeviceEnum' '@(System|DeviceEnum)/*'
  'Diag' "$framework"
  'DiagCtrl/internal/ground' "$ground"
  'DiagCtrl/internal/foundation' "$foundation"
  'DiagCtrl/internal/controller' "$framework|DiagCtrl/*"
  'DiagCtrl' "$framework|DiagCtrl/*"
  # What clients of the kit read as well.
  'packagekit/contract' "$framework|packagekit/contract/*|packagekit/KitEvents.h"
  'packagekit' "$framework|packagekit/*"
  'packagekit/internal' "$framework|packagekit/*"
)

# The includes of the project's own headers, in whatever brackets: FILE:HEADER.
own_includes() {
  { grep -HsoE '^ *# *include *("[^"]*"|<[A-Za-z]+/[^>]*\.h>)' "$1"/*.{h,cpp} || true; } |
    sed -E 's/: *# *include *["<](.*)[">]$/:\1/' | grep -vE ':(sys|linux|net|netinet|asm)/' || true
}

findings=()
for ((i = 0; i < ${#floors[@]}; i += 2)); do
  [[ -d ${floors[i]} ]] || continue
  while IFS=: read -r file header; do
    # shellcheck disable=SC2053  # a pattern
    [[ $header == @(${floors[i + 1]}) ]] || findings+=("$file includes $header")
  done < <(own_includes "${floors[i]}")
done

if [[ ${findings[*]:-} != "$wanted" ]]; then
  printf 'FAILED: %s\n' "${findings[@]:-nothing found instead of \"$wanted\"}" >&2
  exit 1
fi
