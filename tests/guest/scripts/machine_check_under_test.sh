#!/bin/bash
# The processor reports an uncorrected error of core 1, bank 4, while that core is under test. What
# must be told: core 1 is at fault, by a machine check, with its bank; core 0 passes.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

TEST=1 # Integer arithmetic

kernel_told() {
  dmesg | grep -qE 'Machine Check.*Bank 4'
}

WATCH=all configure CUSTOMER
setting processor TestID$TEST DurationSeconds=8
begin_run check -p processor -t $TEST
given "a test of core 1 that runs" within 60 has_started check $TEST host/cpu1
given "a machine check" machine_check 1 0xbc00000004010091 4
given "a kernel that has told it" within 30 kernel_told
end_run check

must the_core_has_failed all_are FAILED check "on Core 1 "
must the_machine_check_is_told tells check "" '[Mm]achine check'
must the_bank_is_told tells check "" '[Bb]ank 4'
must it_is_all_that_is_told [ "$(diagnoses check)" = 1 ]
must the_other_core_passes all_are PASSED check "on Core 0 "
must the_run_says_that_hardware_is_at_fault exited_with 1

finish
