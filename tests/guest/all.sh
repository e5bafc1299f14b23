#!/bin/bash
# Runs in the guest: the scripts named as arguments, one after the other, each whatever came of those
# before it. Ends with a status that no accident has, by which the lab is seen to hand it back.
set -uo pipefail
for name in "$@"; do
  echo "== $name (up for $(cut -d' ' -f1 /proc/uptime) s)"
  timeout "$((200 * ${GUEST_LAB_TIME_SCALE%.*}))" bash "tests/guest/$name.sh"
done
exit 3
