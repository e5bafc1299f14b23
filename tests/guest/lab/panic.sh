#!/bin/bash
# Runs in the guest: holds it against the inventory that is the argument, starts again as after a loss of
# power, and panics the second time.
set -uo pipefail
echo "boot $GUEST_LAB_BOOT"
if ((GUEST_LAB_BOOT == 1)); then
  echo kept >"$GUEST_LAB_RESULTS/before"
  bash tests/guest/scripts/inventory_of_a_changed_machine.sh "$1"
  host system_reset
  sleep 1000
fi
cat "$GUEST_LAB_RESULTS/before"
echo c >/proc/sysrq-trigger
sleep 1000
