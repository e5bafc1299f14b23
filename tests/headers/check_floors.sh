#!/usr/bin/env bash
# Proves that the folders lie on floors: a file includes what lies on its own floor or below, and no
# header comes back to itself by way of others.
# Usage: check_floors.sh ROOT [FINDING]: looks at the folders below ROOT; there must be no include
# that points upwards, no circle and no room of the front end beside the floors, or this finding and
# no other: "FILE includes HEADER", "circle of HEADER HEADER", "FOLDER is on no floor".
set -euo pipefail
shopt -s extglob

cd "$1"
wanted=${2:-}

framework='@(System|DeviceEnum|Diag)/*'
ground="$framework|DiagCtrl/internal/ground/*"
# What the library stands on itself: locks, exceptions, constants and the tracer.
foundation="$ground|DiagCtrl/internal/foundation/*|DiagCtrl/ClientsAtRest.h"
foundation+="|DiagCtrl/DiagCtrl@(Lock|BaseException|MutexException|Constants).h|DiagCtrl/DiagTracer.h"

# The rooms of the front end on five floors; check, run and health stand beside each other and know
# nothing of one another. What is told of a run knows nothing of the controller, and only who carries one out
# watches the machine meanwhile.
terminal='System/*|diagctl/terminal/*'
report="$terminal|diagctl/report/*|packagekit/contract/*|report/svg/*"
session="$report|$framework|DiagCtrl/!(internal/*)|diagctl/session/*"

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
  'diagctl/terminal' "$terminal"
  'diagctl/report' "$report"
  'diagctl/session' "$session"
  'diagctl/check' "$session|diagctl/check/*"
  'diagctl/run' "$session|watch/*|diagctl/run/*"
  'diagctl/health' "$session|diagctl/health/*"
  'diagctl/command' "$session|@(watch|inventory)/*|diagctl/@(check|run|health|command)/*"
  'diagctl' 'diagctl/*'
  # Plots, which know nothing of runs.
  'report/svg' 'report/svg/*'
  # Readers of the kernel's files, for packages and front end alike.
  'watch' 'watch/*|packagekit/UniqueDescriptor.h'
  'inventory' '@(watch|inventory)/*|System/internal/Utf8.h'
  'packages/common' "$framework|packagekit/*|watch/*|packages/common/*"
)
# Packages know nothing of one another.
for package in packages/!(common)/; do
  floors+=("${package%/}" "$framework|packagekit/*|@(watch|inventory)/*|packages/common/*|$package*")
done

# The includes of the project's own headers, in whatever brackets: FILE:HEADER.
own_includes() {
  local own='System|DeviceEnum|Diag|DiagCtrl|packagekit|watch|inventory|report|packages|diagctl|examples|tests|bench'
  { grep -HsoE "^ *# *include *(\"[^\"]*\"|<($own)/[^>]*>)" "$1"/*.{h,cpp} || true; } |
    sed -E 's/: *# *include *["<](.*)[">]$/:\1/'
}

findings=()
edges=()  # of the headers' graph
for ((i = 0; i < ${#floors[@]}; i += 2)); do
  [[ -d ${floors[i]} ]] || continue
  while IFS=: read -r file header; do
    # shellcheck disable=SC2053  # a pattern
    [[ $header == @(${floors[i + 1]}) ]] || findings+=("$file includes $header")
    [[ $file != *.h ]] || edges+=("$file $header")
  done < <(own_includes "${floors[i]}")
done

for room in diagctl/*/; do
  [[ ! -d $room || " ${floors[*]} " == *" ${room%/} "* ]] || findings+=("${room%/} is on no floor")
done

if ! circle=$(printf '%s\n' "${edges[@]}" | tsort 2>&1 >/dev/null); then
  findings+=("circle of $(sed -nE 's/^tsort: ([^ ]*\.h)$/\1/p' <<<"$circle" | paste -sd ' ')")
fi

if [[ ${findings[*]:-} != "$wanted" ]]; then
  printf 'FAILED: %s\n' "${findings[@]:-nothing found instead of \"$wanted\"}" >&2
  exit 1
fi
