#!/bin/bash
# Core 1 is taken out of service while it is under test. What must be told: there is no verdict on it,
# since it was taken away; what was computed elsewhere is no pass of that core. Core 0 passes.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

TEST=1 # Integer arithmetic
ONLINE=/sys/devices/system/cpu/cpu1/online

configure CUSTOMER
setting processor TestID$TEST DurationSeconds=10
begin_run core -p processor -t $TEST
given "a test of core 1 that runs" within 60 has_started core $TEST host/cpu1
given "a kernel that takes core 1 away" eval "echo 0 >$ONLINE"
end_run core
given "a kernel that puts core 1 back" eval "echo 1 >$ONLINE"

must there_is_no_pass_of_the_core not all_are PASSED core "on Core 1 "
must the_core_is_not_blamed not all_are FAILED core "on Core 1 "
must it_is_told_that_the_core_was_taken_away tells core "on Core 1 " 'taken away'
must the_other_core_passes all_are PASSED core "on Core 0 "
must the_run_has_no_verdict exited_with 2

finish
