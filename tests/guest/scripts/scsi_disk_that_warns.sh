#!/bin/bash
# A SCSI disk that is told to play that it is about to fail, and a prediction that is none. What must be
# told: before, its health and its logs pass; then that a failure is played, and no fault of the disk.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

module sd_mod
module scsi_debug dev_size_mb=8
given "a SCSI disk" within 30 has_disk scsi_debug
disk=$(disk_of scsi_debug)

configure CUSTOMER
run sound --quick -p storage -d "*$disk*" -t Health -t 'Error log'
must its_health_passes all_are PASSED sound "Health on .*\\($disk\\)"
must its_error_log_passes all_are PASSED sound "Error log on .*\\($disk\\)"
must its_temperature_is_told grep -q 'degrees Celsius: 38' "$WORK/sound.jsonl"

# The page of informational exceptions, with the bit TEST, and exceptions told where they are asked for.
given "a disk that plays a failure" \
  tests/guest/scsi_command.py "/dev/$disk" 151000001000 000000001c0a04060000000000000001
run warned --quick -p storage -d "*$disk*" -t Health
must it_is_told_that_the_failure_is_played tells warned "Health on .*\\($disk\\)" 'that is none, as a test'
must the_disk_has_not_failed not all_are FAILED warned "Health on .*\\($disk\\)"
must the_run_blames_no_hardware not exited_with 1

modprobe --remove --wait 20000 scsi_debug

finish
