#!/bin/bash
# Nothing changes. What must be told: two inventories are the same to the byte, and the machine is what
# the first of them says. It stays with the results, for the machine that is built otherwise.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

all_modules LAB-NVME
configure CUSTOMER
given "an inventory" diagctl inventory -o "$WORK/one.json"
given "another one" diagctl inventory -o "$WORK/two.json"
must two_inventories_are_the_same_to_the_byte cmp "$WORK/one.json" "$WORK/two.json"
for disk in NVME SATA SCSI; do
  must "the_${disk}_disk_is_in_it" grep -q "\"LAB-$disk\"" "$WORK/one.json"
done
must it_is_this_machine diagctl inventory check --against "$WORK/one.json"
cp "$WORK/one.json" "$GUEST_LAB_RESULTS/inventory.json"

finish
