#!/bin/bash
# The NVMe disk is pulled while it is read. What must be told: it vanished, in one line, and there is
# no verdict; no block of it is called unreadable. The SATA disk, read beside it, passes.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

TEST=5 # Random read

module nvme
module ahci
module sd_mod
given "a disk to pull" within 30 has_disk LAB-NVME
given "another disk" within 30 has_disk LAB-SATA
nvme=$(disk_of LAB-NVME) sata=$(disk_of LAB-SATA)

configure CUSTOMER
setting storage TestID$TEST Reads=2000000 QuickReads=500
begin_run pulled -p storage -d "*$nvme*" -t $TEST
given "a test of the disk that runs" within 60 has_started pulled $TEST "host/$nvme"
given "a host that pulls the disk" host device_del nvme0
given "a disk that is gone" within 60 not has_disk LAB-NVME
end_run pulled
must no_block_is_called_unreadable not tells pulled "Random read on .*\\($nvme\\)" 'cannot be read'
must the_disk_is_not_blamed not all_are FAILED pulled "Random read on .*\\($nvme\\)"
must it_is_told_that_the_disk_vanished tells pulled "Random read on .*\\($nvme\\)" 'vanished'
must the_run_has_no_verdict exited_with 2

run other --quick -p storage -d "*$sata*" -t $TEST
must the_other_disk_still_passes all_are PASSED other "Random read on .*\\($sata\\)"

finish
