#!/bin/bash
# The machine is built otherwise than the one whose inventory is the argument: its NVMe disk is another
# one of the kind, and its memory is one node; then one of its interfaces is pulled. What must be told:
# these, each by its name, and nothing else. That a disk is another one is a note, and no fault.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

# check NAME: what `diagctl inventory check` finds lies in NAME.jsonl.
check() {
  diagctl inventory check --against "$BASE" --format jsonl >"$WORK/$1.jsonl"
  STATUS=$?
  cp "$WORK/$1.jsonl" "$GUEST_LAB_RESULTS/$SCRIPT.$1.jsonl"
  grep -oE '"message":".*' "$WORK/$1.jsonl" | cut -c 1-200
}

# holds NAME COUNT TEXT...: whether it has so many lines, each with all the texts.
holds() {
  local lines text
  lines=$(<"$WORK/$1.jsonl")
  for text in "${@:3}"; do
    lines=$(grep -F -- "$text" <<<"$lines")
  done
  [[ $(grep -c . <<<"$lines") == "$2" ]]
}

BASE=$1
given "an inventory of the machine as it was" [ -s "$BASE" ]
all_modules LAB-OTHER
adapter=$(basename "$(realpath /sys/class/net/eth1/device)")
configure CUSTOMER

check built
must it_is_told_that_a_node_is_missing holds built 1 part-missing 'memory node 1 is missing'
must it_is_told_that_the_other_has_its_memory holds built 1 part-degraded 'memory node 0: bytes: '
must it_is_told_that_the_disk_is_another_one \
  holds built 1 '"INFO"' 'serial number: \"LAB-OTHER\" instead of \"LAB-NVME\"'
must nothing_else_is_at_fault holds built 2 '"diagnosis"'
must a_machine_that_lacks_a_part_has_failed exited_with 1

given "a host that pulls an interface" host device_del net1
given "an interface that is gone" within 60 not test -e "/sys/bus/pci/devices/$adapter"
check pulled
must the_interface_is_told holds pulled 1 part-missing '(0x8086:0x10d3, e1000e' \
  'is missing, and with it interface 0000:00/'
must no_further_part_is_at_fault holds pulled 3 '"diagnosis"'

finish
