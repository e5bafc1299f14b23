#!/bin/bash
# The guests of this folder, and what the lab must say of those that end badly. On the host.
# Usage: run.sh STEP FOLDER BUILD [SCRIPT...], where STEP is one of
#   boot       one guest for all scripts: leaves its results in FOLDER
#   verdict    what the script told, of those results
#   panic      a guest built otherwise, which the argument is the inventory of the first one for, and the
#              proof that a panic is told; changed: what its script told
#   untouched, hang, no-boot, no-qemu, no-kernel    proofs of the lab itself
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../../.." && pwd)
lab=$root/tools/guest-lab
step=$1
folder=$2
build=$3
shift 3

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# run_lab WANTED ARGUMENT...: the lab exits with that status; what it says is in $said.
run_lab() {
  local wanted=$1 status=0
  shift
  rm -rf "${folder:?}/$step"
  mkdir -p "$folder"
  said=$("$lab" --build "$build" --results "$folder/$step" "$@" 2>&1) || status=$?
  echo "$said"
  [[ ! -e $folder/$step/lab.log ]] || cat "$folder/$step/lab.log"
  ((status == wanted)) || fail "the lab exited with $status instead of $wanted"
}

says() {
  [[ $said == *"$1"* ]] || fail "the lab does not say '$1'"
}

ended_as() {
  grep -q "\"end\": \"$1\"" "$folder/$step/outcome" || fail "$(cat "$folder/$step/outcome")"
}

# What both machines have, so that they differ in what they are meant to.
MACHINE=(--nvme --sata --scsi --nic e1000e --nic e1000e)

# judge FILE: what a script of the guest told.
judge() {
  python3 "$here/../judge.py" "$folder/$1" "$here/../expected-failures"
}

boot_all() {
  mkdir -p "$root/build/guest"
  echo untouched >"$root/build/guest/victim"
  # The scripts' own end is a status that no accident has.
  run_lab 3 "${MACHINE[@]}" --numa 2 --timeout 240 \
    "$here/../all.sh" "$@"
  ended_as exit
}

check_untouched() {
  [[ $(cat "$root/build/guest/victim") == untouched ]] || fail "the guest has changed a file"
  [[ ! -e $root/build/guest/victim.new && ! -e $root/build/guest/victim.device ]] ||
    fail "the guest has made a file"
  [[ -f $folder/boot/files/link && ! -L $folder/boot/files/link ]] ||
    fail "the guest's link is one on the host"
}

check_panic() {
  run_lab 125 "${MACHINE[@]}" --nvme-serial LAB-OTHER "$here/panic.sh" "$1"
  says "boot 2"
  says kept
  says "the guest's kernel panicked: Kernel panic - not syncing: sysrq triggered crash"
  ended_as panic
}

check_hang() {
  run_lab 124 --cpus 1 --memory 512 --timeout 3 "$here/hang.sh"
  says "waiting for nothing"
  says "the script did not end within"
  ended_as hang
}

check_no_boot() {
  run_lab 126 --cpus 1 --memory 512 --append rdinit=/none "$here/hang.sh"
  says "the guest did not come up: Kernel panic"
  ended_as "no boot"
}

# path_without NAME: a folder with links to all programs but this one.
path_without() {
  local bin=$folder/path-without-$1
  rm -rf "$bin"
  mkdir -p "$bin"
  find /usr/sbin /usr/bin /sbin /bin -maxdepth 1 ! -name "$1" -exec ln -sft "$bin" {} +
  echo "$bin"
}

check_no_qemu() {
  PATH=$(path_without qemu-system-x86_64)
  run_lab 126 "$here/hang.sh"
  says "qemu-system-x86_64 is not installed"
}

check_no_kernel() {
  PATH=$(path_without apt-get)
  GUEST_LAB_CACHE=$folder/no-cache run_lab 126 "$here/hang.sh"
  says "no kernel: apt-get is not installed"
}

case $step in
  boot) boot_all "$@" ;;
  verdict) judge "boot/files/$1.checks" ;;
  untouched) check_untouched ;;
  panic) check_panic "$@" ;;
  changed) judge panic/files/inventory_of_a_changed_machine.checks ;;
  hang) check_hang ;;
  no-boot) check_no_boot ;;
  no-qemu) check_no_qemu ;;
  no-kernel) check_no_kernel ;;
  *) fail "unknown step $step" ;;
esac
