#!/bin/bash
# A SCSI disk with blocks that cannot be read, from 4660 on, beside a healthy one. What must be told:
# each test that reads the blocks fails on that disk alone and tells the place once; what the kernel says of
# the disk is told once in the test that met it; the other disk passes, and the run says that hardware is
# at fault.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

module nvme
module sd_mod
module scsi_debug dev_size_mb=8 opts=2
given "a disk to break" within 30 has_disk scsi_debug
given "a healthy disk" within 30 has_disk LAB-NVME
bad=$(disk_of scsi_debug) good=$(disk_of LAB-NVME)
given "a block that cannot be read" \
  not dd if="/dev/$bad" of=/dev/null bs=512 skip=4660 count=1 iflag=direct status=none

WATCH=all configure CUSTOMER
run all --quick -p storage -d "*$bad*" -d "*$good*" -t 'Sequential read scan' -t 'Read stability'
for test in 'Sequential read scan' 'Read stability'; do
  must "${test// /_}_fails_on_the_bad_disk" all_are FAILED all "$test on .*\\($bad\\)"
  must "${test// /_}_tells_the_place_once" [ "$(count all "$test on .*\\($bad\\)" 'block 4660 ')" = 1 ]
  must "${test// /_}_tells_the_kernels_word_once" \
    once all disk-medium FAIL "$test on .*\\($bad\\)" "medium of disk $bad "
done
must the_healthy_disk_passes all_are PASSED all "\\($good\\)"
must the_run_says_that_hardware_is_at_fault exited_with 1

modprobe --remove --wait 20000 scsi_debug

finish
