# For the scripts that run in the guest: what they do to the machine, what they have diagctl do, and
# what they hold against what it tells. Sourced as the first thing.
# shellcheck shell=bash
set -uo pipefail

SCRIPT=$(basename "$0" .sh)
CHECKS=$GUEST_LAB_RESULTS/$SCRIPT.checks
WORK=$(mktemp -d)
: >"$CHECKS"

# finish: the script's last command. One that was cut short has not told everything.
finish() {
  echo end >>"$CHECKS"
}

# must NAME COMMAND...: what must be true. NAME is a sentence, and unique in the script.
must() {
  local name=$1 word=ok
  shift
  "$@" || word="not ok"
  echo "$word $name" | tee -a "$CHECKS"
}

# given SENTENCE COMMAND...: what the script relies upon, such as a fault that the kernel has taken.
# Without it nothing is proved, so the script has failed whatever is expected of it.
given() {
  local sentence=$1
  shift
  "$@" && return
  echo "not given: $sentence" | tee -a "$CHECKS"
  exit 1
}

# within SECONDS COMMAND...: whether the command succeeds before the time is up.
within() {
  local end=$((SECONDS + $1 * ${GUEST_LAB_TIME_SCALE%.*}))
  shift
  until "$@"; do
    ((SECONDS < end)) || return 1
    sleep 0.2
  done
}

not() {
  ! "$@"
}

# configure MODE: a control file and a copy of the bundled packages, whose settings may be changed.
configure() {
  local built=$GUEST_LAB_BUILD/packages language
  PACKAGES=$WORK/packages
  mkdir -p "$PACKAGES" "$WORK/logs"
  ln -s "$built"/*.so "$built/tarvex-package-worker" "$PACKAGES"
  for language in "$built"/*/; do
    ln -s "${language%/}" "$PACKAGES"
  done
  cp "$built"/*.cfg "$PACKAGES"
  cat >"$WORK/control.cfg" <<TEXT
[GlobalSettings]
PackDirPath=$PACKAGES
LogDirPath=$WORK/logs
RunMode=PARALLEL
HaltOnError=FALSE
DiagnosticMode=$1

[Watch]
Sources=${WATCH:-off}
TEXT
}

# setting PACKAGE SECTION KEY=VALUE...: of a key that comes twice, the first counts.
setting() {
  local package=$1 section=$2 entry
  shift 2
  for entry in "$@"; do
    sed -i "/^\[$section\]/a $entry" "$PACKAGES/$package.cfg"
  done
}

diagctl() {
  "$GUEST_LAB_BUILD/diagctl/diagctl" --allow-insecure --config "$WORK/control.cfg" "$@"
}

# begin_run NAME ARGUMENT...: starts `diagctl run` beside the script.
begin_run() {
  local name=$1 log=$GUEST_LAB_RESULTS/$SCRIPT.$1
  shift
  # The log lies in memory: the folder of the results is slow, and this is no test of it.
  diagctl run -o jsonl="$WORK/$name.jsonl" "$@" >"$log.txt" 2>&1 &
  RUN=$!
}

# has_started NAME TEST DEVICE: whether the test, by number, runs on the device, by its tag.
has_started() {
  grep -qs "Test $2 (.*) on $3 has started" "$WORK/$1.jsonl"
}

# end_run NAME: waits for the run. Its steps then lie in NAME.steps, its exit status in STATUS.
end_run() {
  local name=$1 log=$GUEST_LAB_RESULTS/$SCRIPT.$1
  wait "$RUN"
  STATUS=$?
  cp "$WORK/$name.jsonl" "$log.jsonl"
  python3 tests/guest/steps.py "$WORK/$name.jsonl" | tee "$WORK/$name.steps" >"$log.steps"
  echo "$SCRIPT.$name: exit status $STATUS"
  cut -c1-200 "$WORK/$name.steps"
}

run() {
  begin_run "$@"
  end_run "$1"
}

# steps NAME PATTERN: the lines of the steps whose name has the pattern (a regular expression).
steps() {
  awk -F '\t' -v pattern="$2" '$2 ~ pattern' "$WORK/$1.steps"
}

# all_are RESULT NAME PATTERN: whether there are such steps, all with that result.
all_are() {
  local lines
  lines=$(steps "$2" "$3")
  [[ -n $lines ]] && ! grep -qvP "^$1\t" <<<"$lines"
}

# tells NAME PATTERN FINDING: whether one of the findings of these steps has the pattern.
tells() {
  steps "$1" "$2" | cut -f 3- | grep -qE "$3"
}

# count NAME PATTERN FINDING: how many of the findings of these steps have the pattern.
count() {
  steps "$1" "$2" | cut -f 3- | tr '\t' '\n' | grep -cE "$3"
}

# once NAME SYMPTOM TYPE STEP TEXT: whether there is one diagnosis with that symptom in that step (a regular
# expression), and it is of that type and has that text (another one).
once() {
  local lines
  lines=$(python3 tests/guest/steps.py "$WORK/$1.jsonl" "$2" |
    awk -F '\t' -v pattern="$4" '$2 ~ pattern')
  [[ $(grep -c . <<<"$lines") == 1 ]] && grep -qE "^$3"$'\t'".*"$'\t'".*$5" <<<"$lines"
}

# diagnoses NAME: how many there are that are no pass.
diagnoses() {
  grep -cE '"diagnosis":.*"type":"(FAIL|UNKNOWN)"' "$WORK/$1.jsonl"
}

exited_with() {
  ((STATUS == $1))
}

# module NAME [OPTION...]: loads one of the kernel's.
module() {
  given "the kernel's module $1" modprobe "$@"
}

# interfaces: eth0 and eth1, with a carrier. The emulator loses the interrupt of a link's change when
# it is signalled by a message, so the driver is told to use the line.
interfaces() {
  module e1000e IntMode=0,0
  given "two interfaces" within 30 eval 'ip link set eth0 up && ip link set eth1 up'
  given "a wire between them" within 60 eval 'carrier_is eth0 1 && carrier_is eth1 1'
}

# machine_check CPU STATUS BANK: lets the processor report one. The module takes the time of an error from
# when it was loaded, so it is loaded anew; the write to bank lets the error happen.
machine_check() {
  local folder=/sys/kernel/debug/mce-inject
  if [[ -e $folder ]]; then
    modprobe --remove mce-inject || return
  fi
  modprobe mce-inject && echo sw >$folder/flags && echo "$1" >$folder/cpu &&
    echo "$2" >$folder/status && echo 0x12345000 >$folder/addr && echo "$3" >$folder/bank
}

# all_modules SERIAL: the drivers of all that the machine has, and what they drive is there. SERIAL is the
# serial number of its NVMe disk.
all_modules() {
  module nvme
  module ahci
  module virtio_scsi
  module sd_mod
  given "an NVMe disk" within 30 has_disk "$1"
  given "a SATA disk" within 30 has_disk LAB-SATA
  given "a SCSI disk" within 30 has_disk LAB-SCSI
  interfaces
}

carrier_is() {
  [[ $(cat "/sys/class/net/$1/carrier") == "$2" ]]
}

# disk_of NAME: the kernel's name of the disk with that serial number or model.
disk_of() {
  local folder
  for folder in /sys/block/*; do
    # A SCSI or SATA disk tells its serial number in a page of its own, which is binary.
    if grep -qsa -- "$1" "$folder"/device/{serial,model,vpd_pg80}; then
      basename "$folder"
      return
    fi
  done
}

has_disk() {
  [[ -n $(disk_of "$1") ]]
}
