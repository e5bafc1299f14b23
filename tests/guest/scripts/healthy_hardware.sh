#!/bin/bash
# Healthy hardware: an NVMe disk, a SATA disk, a SCSI disk, two memory nodes and two interfaces with a
# wire between them. What must be told: each of them is found, tested and passes; a virtual disk is
# asked for its health only where the setting says so; nothing is a warning.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

small_amounts() {
  setting storage TestID5 QuickReads=500
  setting storage TestID7 QuickReads=200 LimitMilliseconds=60000
  setting memory Package QuickMaximumMegabytes=4 MarginMegabytes=64
}

all_modules LAB-NVME
nvme=$(disk_of LAB-NVME) sata=$(disk_of LAB-SATA) scsi=$(disk_of LAB-SCSI)

configure CUSTOMER
small_amounts
run reticent --quick -p storage -t Health
must a_virtual_disk_is_not_asked_for_its_health all_are SKIPPED reticent "Health on .*\\($sata\\)"

setting storage Package VirtualDiskHealth=TRUE
run disks --quick -p storage --exclude-test 'Write and verify'
must the_nvme_disk_passes all_are PASSED disks "\\($nvme\\)"
must the_sata_disk_passes all_are PASSED disks "(scan|read|stability|outliers) on .*\\($sata\\)"
must the_sata_disk_tells_its_health all_are PASSED disks "Health on .*\\($sata\\)"
must the_sata_disk_tells_its_error_log all_are PASSED disks "Error log on .*\\($sata\\)"
must the_sata_disk_tells_its_serial_number grep -q "$sata: .*LAB-SATA" "$WORK/disks.jsonl"
must the_scsi_disk_passes all_are PASSED disks "(scan|read|stability|outliers) on .*\\($scsi\\)"
must healthy_disks_give_no_warning not grep -qE '^(UNUSUAL|FAILED|ERROR)' "$WORK/disks.steps"

run memory --quick -p memory -t 'Address lines' -t 'Random patterns'
must memory_of_node_0_passes all_are PASSED memory "Memory of node 0"
must memory_of_node_1_passes all_are PASSED memory "Memory of node 1"

# Not "Between two interfaces": the emulated adapters count each frame that is short as an error.
run network --quick -p network -d '*eth*' -t Link
must both_links_pass [ "$(steps network 'Link on eth[01]' | grep -c ^PASSED)" = 2 ]

finish
