#!/bin/bash
# The program on a machine with the sensors of sensors.umockdev, which its /sys shows, with links between
# folders as the kernel has them: a processor becomes too hot and a fan stops while it watches.
# Usage: check_sensors.sh DIAGCTL
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
seconds=60

fail() {
  echo "FAILED: $*" >&2
  cat "$work/told" >&2
  exit 1
}

# tells TEXT: waits until the program does.
tells() {
  local end=$((SECONDS + seconds))
  until grep -qF -- "$1" "$work/told"; do
    ((SECONDS < end)) || fail "it does not tell: $1"
    sleep 0.1
  done
}

# on_that_machine DIAGCTL: where /sys is that of the file. Its files can be written below UMOCKDEV_DIR.
on_that_machine() {
  local chips=$UMOCKDEV_DIR/sys/class/hwmon status=0
  "$1" --allow-insecure --config "$work/control.cfg" watch --watch hwmon --format jsonl \
    --for "${seconds}s" >"$work/told" 2>&1 &
  trap 'kill "$!" 2>/dev/null || true' EXIT
  tells k10temp/0000:00:18.3/Tctl
  tells '"value":45.5'
  tells 'nct6798/nct6775.656/CPU fan'
  tells '"value":1205.0'
  tells '"value":1.104'
  echo 101000 >"$chips/hwmon0/temp1_input"
  echo 1 >"$chips/hwmon1/fan2_alarm"
  tells 'The sensor k10temp/0000:00:18.3/Tctl reached its critical temperature'
  tells 'The fan nct6798/nct6775.656/CPU fan failed'
  kill "$!"
  wait "$!" || status=$?
  ((status == 1)) || fail "it ends with $status"
  # An alarm that was there before is nobody's.
  ! grep -q 'The fan nct6798/nct6775.656/fan3' "$work/told" || fail "it tells of a fan that was still before"
}

if [[ -n ${UMOCKDEV_DIR-} ]]; then
  work=$2
  on_that_machine "$1"
  exit
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
: >"$work/told"
printf '[Watch]\nInterval=50ms\n' >"$work/control.cfg"
umockdev-run --device "$here/sensors.umockdev" -- "${BASH_SOURCE[0]}" "$1" "$work"
