#!/usr/bin/env bash
# Measures the memory and processor packages beside bare loops, memtester and stressapptest (both of
# Debian): builds the release and runs both comparisons, about three minutes on a quiet machine.
#
# Usage: bench/compute.sh [rounds]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

rounds=${1-5}
status=0
cmake --preset release >/dev/null
cmake --build --preset release --target memory_comparison processor_share >/dev/null
echo "## Memory"
build/release/bench/memory/memory_comparison 1024 "$rounds" || status=1
echo
echo "## Processor"
build/release/bench/processor/processor_share 1 "$rounds" || status=1
exit "$status"
