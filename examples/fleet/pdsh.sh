#!/bin/bash
# pdsh: a quick run on many machines, and one report of it. Tried with pdsh 2.34.
#   pdsh.sh 'node[1-100]' [OPTION of pdsh...]
#
# dshbak sorts the lines by node into files; a node that does not answer has an empty one or none, and
# the report tells it: so name the nodes by what pdsh itself makes of them.
set -uo pipefail
nodes=$1
shift
logs=${LOGS:-$(mktemp -d)}
echo "the logs lie in $logs" >&2
pdsh -S "$@" -w "$nodes" diagctl run --quiet --profile quick --format jsonl | dshbak -d "$logs" -f
mapfile -t files < <(pdsh -Q "$@" -w "$nodes" | tail -n 1 | tr ',' '\n' | sed "s|^|$logs/|")
diagctl report "${files[@]}"
