#!/bin/bash
# Hardware says of itself that it is not well, while it is under test: core 0 has corrected an error, a
# link of PCI Express has corrected one, and the NVMe disk raises a critical warning. Beside that somebody
# writes into the kernel's log what only the kernel may say. What must be told: each of the three once, in
# the test of its own device and with its place; that the disk has failed, and the others are unusual; and
# not a word of what somebody wrote.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

# forge TEXT...: lines in the kernel's log, with and without a priority that claims to be the kernel's.
forge() {
  local text
  for text in "$@"; do
    echo "$text" >/dev/kmsg
    echo "<2>$text" >/dev/kmsg
  done
}

# The function behind a folder of /sys, such as 0000:03:00.0.
function_of() {
  basename "$(realpath "$1")"
}

# link_error FUNCTION: lets it report a receiver error, which is corrected. Bus, device, function; the
# registers of uncorrected and corrected errors; four words of a packet's header; the domain.
link_error() {
  local bus device number
  IFS=:. read -r _ bus device number <<<"$1"
  printf "\\x$bus\\x$device\\x$number\0\0\0\0\0\x01\0\0\0%b" '\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0' \
    >"$WORK/error" && cat "$WORK/error" >/dev/aer_inject
}

log_tells() {
  grep -qs -- "$1" "$WORK/warned.jsonl"
}

module aer_inject
module nvme
given "an NVMe disk" within 30 has_disk LAB-NVME
interfaces
nvme=$(disk_of LAB-NVME)
adapter=$(function_of /sys/class/net/eth1/device)
port=$(function_of /sys/class/net/eth1/device/..)

# Long enough for all that is done to it meanwhile.
seconds=$((10 * ${GUEST_LAB_TIME_SCALE%.*}))
WATCH=all configure CUSTOMER
setting processor TestID1 DurationSeconds=$seconds
setting network TestID1 WatchMilliseconds=${seconds}000
setting storage TestID5 Reads=40000
begin_run warned -p processor -p network -p storage -d 'Core 0*' -d '*eth1*' -d "*$nvme*" \
  -t 'Integer arithmetic' -t Link -t 'Random read'
given "a test of the disk that runs" within 60 has_started warned 5 "host/$nvme"
given "a disk that warns" host qom-set /machine/peripheral/nvme0 smart_critical_warning 4
given "a test of core 0 that runs" within 60 has_started warned 1 host/cpu0
given "a corrected machine check" machine_check 0 0x9c00000005010091 5
given "a test of the link that runs" within 60 has_started warned 1 host/eth1
given "an error of the link that is corrected" link_error "$adapter"
given "lines that anybody could write" forge \
  'mce: [Hardware Error]: CPU 1: Machine Check: 0 Bank 9: bc00000004010091' \
  "EXT4-fs error (device $nvme): forged" "critical medium error, dev $nvme, sector 77"
given "a log that has the lines" eval 'dmesg | grep -q "sector 77"'
end_run warned
given "a disk that warns no more" host qom-set /machine/peripheral/nvme0 smart_critical_warning 0

must the_core_and_its_bank_are_told_once once warned machine-check-corrected UNKNOWN \
  'Integer arithmetic on Core 0 ' 'Processor 0, bank 5 .*count: 1'
must both_ends_of_the_link_are_told_once once warned pcie-correctable UNKNOWN \
  'Link on eth1' "$adapter - $port .*count: 1"
must the_warning_of_the_disk_is_told_once once warned nvme-warning FAIL \
  "Random read on .*\\($nvme\\)" 'NVMe disk nvme0 .* Random read'
must nothing_else_is_told [ "$(diagnoses warned)" = 3 ]
must what_anybody_wrote_is_not_told not log_tells 'bank 9\|is damaged\|medium of disk'
must the_run_says_that_hardware_is_at_fault exited_with 1

finish
