#!/bin/bash
# clush: a quick run on many machines, and one report of it. Tried with ClusterShell 1.9.
#   clush.sh 'node[1-100]' [OPTION of clush...]
#
# clush ends with 0 whatever becomes of the nodes, unless -S is given; and with -S one that does not
# answer looks as one whose run has failed. So the report judges: it misses the log of each such node.
set -uo pipefail
nodes=$1
shift
logs=${LOGS:-$(mktemp -d)}
echo "the logs lie in $logs" >&2
clush -S -q "$@" -w "$nodes" --outdir="$logs" \
  'diagctl run --quiet --profile quick --format jsonl' >/dev/null
mapfile -t files < <(nodeset -e -S '\n' "$nodes" | sed "s|^|$logs/|")
diagctl report "${files[@]}"
