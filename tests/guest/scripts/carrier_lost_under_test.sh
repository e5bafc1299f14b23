#!/bin/bash
# The cable of one of two interfaces is pulled while their links are under test. What must be told:
# that link has failed, since its carrier went away, and the other one passes.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

TEST=1 # Link

interfaces
WATCH=all configure CUSTOMER
setting network TestID$TEST WatchMilliseconds=20000
begin_run carrier -p network -d '*eth*' -t $TEST
given "a test of the link that runs" within 60 has_started carrier $TEST host/eth0
given "a test of the other link that runs" within 60 has_started carrier $TEST host/eth1
given "a link that the test has found up" \
  within 20 grep -qs 'eth0: state up' "$WORK/carrier.jsonl"
given "a host that pulls the cable" host set_link net0 off
given "a carrier that is gone" within 30 carrier_is eth0 0
end_run carrier
host set_link net0 on

must the_link_has_failed all_are FAILED carrier "Link on eth0"
must the_loss_of_the_carrier_is_told tells carrier "Link on eth0" '[Ll]ink.*(lost|went|down|came)'
must the_watch_tells_it_of_this_link_alone [ "$(count carrier '' 'The link of eth0 was lost')" = 1 ]
must the_other_link_passes all_are PASSED carrier "Link on eth1"
must the_run_says_that_hardware_is_at_fault exited_with 1

finish
