#!/bin/bash
# A page of the memory under test is poisoned, as an uncorrectable error does it. What must be told:
# the memory is at fault, with the address of the page, and not a word that blames the test.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

TEST=9 # Bandwidth stress, which touches each page again and again
POISON=/sys/kernel/debug/hwpoison/corrupt-pfn

# The worker's largest mapping is the memory under test: sets ADDRESS, a page well inside it, and PFN.
find_page() {
  local worker first last size largest=0 entry
  WORKER=""
  for worker in $(pgrep -f tarvex-package-worker); do
    while IFS='- ' read -r first last _; do
      size=$((16#$last - 16#$first))
      if ((size > largest)); then
        largest=$size
        ADDRESS=$(((16#$first + size * 5 / 8) & ~4095))
        WORKER=$worker
      fi
    done < <(awk '$2 ~ /^rw/ && $6 == ""' "/proc/$worker/maps")
  done
  [[ -n $WORKER ]] || return
  entry=$(dd if="/proc/$WORKER/pagemap" bs=8 skip=$((ADDRESS / 4096)) count=1 status=none |
    od -An -t u8)
  PFN=$((entry & ((1 << 55) - 1)))
  ((largest >= 32 << 20 && entry < 0 && PFN > 0)) # the uppermost bit: the page is there
}

poisoned_memory() {
  awk '/HardwareCorrupted/ { print $2 }' /proc/meminfo
}

module hwpoison-inject
WATCH=all configure CUSTOMER
setting memory Package MaximumMegabytes=48 MarginMegabytes=64
setting memory TestID$TEST DurationSeconds=20
begin_run poison -p memory -d '*node 0*' -t $TEST
given "a test of memory that runs" within 60 has_started poison $TEST host/node0
given "a page of the memory under test" within 30 find_page
given "a kernel that takes the page away" eval "echo $PFN >$POISON"
given "memory that counts as broken" [ "$(poisoned_memory)" -gt 0 ]
end_run poison
# For the scripts behind this one.
echo "$PFN" >/sys/kernel/debug/hwpoison/unpoison-pfn

must the_kernel_ended_the_test eval 'dmesg | grep -q "Memory failure: 0x"'
must the_memory_has_failed all_are FAILED poison "Bandwidth stress on Memory of node 0"
must the_run_says_that_hardware_is_at_fault exited_with 1
must the_address_of_the_page_is_told tells poison "Bandwidth stress" "$(printf '0x0*%x' $((PFN * 4096)))"
must the_kernel_is_a_witness_of_it tells poison "" 'kernel took memory out of use'
must no_word_blames_the_test not tells poison "Bandwidth stress" 'SIGBUS|signal|worker|crash'

finish
