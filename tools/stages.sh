# The stages of ./test: one function each, named in STAGES. Sourced by ./test.
# shellcheck shell=bash

# Name, limit in seconds, the command that runs it, and what it is. The limit is what the stage takes
# with nothing built before on two slow cores; beyond 1.5 times of it the stage is ended and has
# failed. The limits of --full and of the packages come to at most an hour.
# shellcheck disable=SC2034  # read by ./test
STAGES=(
  "packages     240  always  installs the Debian packages that are missing"
  "dev          330  quick   the test suite, in a build made for daily work"
  "scripts       10  full    shellcheck of the scripts"
  "format        25  full    clang-format of the sources, cmake-format of the build's files"
  "model         60  full    the models of the controller's threads, over every schedule"
  "setup         90  full    configuring on a bare system, with nothing but the listed packages"
  "coverage     570  full    each header alone, and the test suite with at least 95 % of the libraries' lines run"
  "schedules    160  full    the pipeline's and the stress tests under random schedules, from two seeds"
  "run          250  full    the release build and the main job"
  "inject       260  full    faults made from outside, under the release: each from the fault to the report"
  "deb          270  full    the Debian packages: built, checked, installed, used and purged on a bare system"
  "guest        270  full    diagctl on hardware that breaks, in an emulated guest"
  "tidy         120  full    clang-tidy of the sources that changed since tools/tidy-base, or include such"
  "asan         785  full    the test suite and the stress tests, under the address and undefined behaviour sanitizers"
  "fuzz          90  full    the fuzzers, each for a short while"
  "tsan         400  full    the test suite and the stress tests, under the thread sanitizer"
  "whole-tidy   780  deep    clang-tidy of all the sources that are shipped, and of the tests' names"
  "long-model  1200  deep    the models with larger bounds"
  "long-fuzz   3900  deep    the fuzzers, each for ten minutes"
  "long-stress 3000  deep    the stress tests from ten seeds, under both sanitizers"
  "long-schedules 1800 deep  the tests under random schedules, from ten seeds with long stress"
  "long-races   900  deep    looks at files that another changes, as root: ten thousand of each kind"
  "no-alarm   10800  deep    a hundred quick runs of all that is bundled, half of them with all sources watched, without a finding"
  "pages        900  deep    pages of runs in a browser, by the rules of axe-core: light, dark, narrow, on paper, in three languages"
  "second-build 600  deep    two builds of the release, which must not differ in a byte"
  "lives        600  deep    the Debian packages: what installing, removing and purging them leaves or breaks"
  "fleet       1500  deep    what calls diagctl on many machines: Slurm, clush, pdsh, Ansible, monitors"
  "bare        1500  deep    ./test and ./run on a bare system, as root, and ./run as somebody else"
)
FULL_LIMIT=3600

# shellcheck source=tools/bare.sh
source tools/bare.sh
# shellcheck source=tools/deb.sh
source tools/deb.sh
# shellcheck source=tools/fleet.sh
source tools/fleet.sh

LIBRARY_FOLDERS=(DiagCtrl Diag DeviceEnum System)
SHIPPED_FOLDERS=("${LIBRARY_FOLDERS[@]}" packagekit watch inventory report packages diagctl)
CPP_FOLDERS=("${SHIPPED_FOLDERS[@]}" examples bench tests)
TIDY_FOLDERS=("${SHIPPED_FOLDERS[@]}" tests)  # of the tests the names alone

CORES=$(nproc)

# second_tries LOG: the tests that failed at first, as ctest logged them.
second_tries() {
  sed -nE 's/^.* Test +#[0-9]+: ([^ ]+) .*\*\*\*(Failed|Timeout|Exception).*/needed another try: \1/p' "$1" |
    sort -u
}

# run_ctest LABEL PRESET ARGUMENT...: shows what failed and the summary, and keeps the latter for the
# end. Most tests wait more than they compute, hence more of them at a time than there are cores; CTEST_PARALLEL says
# otherwise.
run_ctest() {
  local label=$1 preset=$2 log=build/logs/$1-ctest.log status=0
  shift 2
  say "$label: running the tests"
  ctest --test-dir "build/$preset" --parallel "${CTEST_PARALLEL:-$((3 * CORES))}" --output-on-failure --no-tests=error \
    "$@" 2>&1 | tee "$log" |
    awk '!/^ +Start +[0-9]+:/ && !/ Passed +[0-9.]+ sec *$/ { print; fflush() }' || status=1
  local count
  count=$(find "$CTEST_SUMMARIES" -type f | wc -l)
  grep -E '^[0-9]+% tests passed|^Total Test time' "$log" >"$CTEST_SUMMARIES/$count-$label" || status=1
  second_tries "$log" >>"$CTEST_SUMMARIES/$count-$label"
  return "$status"
}

# run_interleavings LABEL PRESET ARGUMENT...: tests that force an interleaving of threads, which can fail
# on a busy machine: they alone are tried again, and it is a fault when more than one in fifty needs it.
run_interleavings() {
  local log=build/logs/$1-ctest.log tries tests
  run_ctest "$@" --label-regex '^interleaving$' --repeat until-pass:3
  tries=$(second_tries "$log" | wc -l)
  tests=$(sed -nE 's/^[0-9]+% tests passed, .* out of ([0-9]+)$/\1/p' "$log")
  ((tries * 50 <= tests)) || fail "$1: $tries of $tests tests of interleavings needed another try"
}

# run_suite PRESET [ARGUMENT...]: all tests but the stress tests, the guest's and those that inject
# faults, or those that the arguments of ctest choose. LEFT_OUT: one more label to leave out.
run_suite() {
  run_ctest "$1" "$1" --label-exclude "^(stress|guest|inject|interleaving${LEFT_OUT:+|$LEFT_OUT})\$" "${@:2}"
  run_interleavings "$1-interleaving" "$1" --label-exclude '^stress$'
}

# existing FOLDER...: those of the folders that are there.
existing() {
  local folder
  for folder in "$@"; do
    if [[ -d $folder ]]; then
      echo "$folder"
    fi
  done
}

# needs TEXT COUNT: a check of nothing is no check.
needs() {
  (($2 > 0)) || fail "found no $1"
}

stage_packages() {
  install_packages "${KIND_OF_PACKAGES:-quick}"
}

stage_dev() {
  build_preset dev
  say "dev: without the tests labelled lengthy, which --full runs"
  LEFT_OUT=lengthy run_suite dev
}

stage_scripts() {
  local scripts
  mapfile -t scripts < <(grep -rlE '^#!.*bash|^# shellcheck shell=bash' test run .ci tools tests examples)
  needs scripts "${#scripts[@]}"
  shellcheck --external-sources "${scripts[@]}"
  say "scripts: ${#scripts[@]} are clean"
}

# A test's name is a sentence, what must be true: words in small letters, or tokens in capitals.
check_sentences() {
  local others
  others=$(grep -rnE --include='*.cpp' --include='*.h' \
    '^(TYPED_)?TEST(_F|_P)?\([A-Za-z0-9_]+,[[:space:]]*([A-Z][a-z]|.*[a-z][A-Z])' tests || true)
  [[ -z $others ]] || fail "format: tests whose names are no sentences:"$'\n'"$others"
}

stage_format() {
  local folders sources lists
  mapfile -t folders < <(existing "${CPP_FOLDERS[@]}")
  mapfile -t sources < <(find "${folders[@]}" -name '*.h' -o -name '*.cpp' -o -name '*.inc' | sort)
  needs sources "${#sources[@]}"
  clang-format-14 --dry-run -Werror "${sources[@]}" ||
    fail "format: clang-format-14 -i FILE puts each file right"
  mapfile -t lists < <(find CMakeLists.txt cmake "${folders[@]}" \
    -name 'CMakeLists.txt' -o -name '*.cmake' | sort)
  needs "CMake files" "${#lists[@]}"
  cmake-format --check "${lists[@]}" ||
    fail "format: cmake-format -i FILE puts each CMake file right"
  check_sentences
  say "format: ${#sources[@]} sources and ${#lists[@]} CMake files are formatted"
}

stage_model() {
  tests/controller/model/run
}

stage_long_model() {
  tests/controller/model/run --deep
}

stage_coverage() {
  build_preset coverage
  find build/coverage -name '*.gcda' -delete
  run_suite coverage
  local filters=() folder
  for folder in "${LIBRARY_FOLDERS[@]}"; do
    filters+=(--filter "$folder/")
  done
  mkdir -p build/coverage/report
  gcovr --root . "${filters[@]}" -j "$CORES" --print-summary --fail-under-line 95 \
    --html-details build/coverage/report/index.html --txt build/coverage/report/lines.txt \
    build/coverage/CMakeFiles || {
    cat build/coverage/report/lines.txt
    fail "coverage: under the threshold (build/coverage/report/index.html)"
  }
}

stage_run() {
  ./run
}

# One after the other: what they break and what they measure is the whole machine's.
stage_inject() {
  build_preset release inject
  CTEST_PARALLEL=1 run_ctest inject release --label-regex '^inject$'
}

# The packages are checked, and then used in a system that has nothing else.
stage_deb() {
  local root=$PWD/build/bare/deb
  build_debs
  check_interfaces
  check_packed
  check_units
  remove_bare_system "$root"
  make_bare_system "$root"
  try_debs "$root"
  remove_bare_system "$root"
}

# Says which kernel it is, or why there is none, before the first guest needs it.
stage_guest() {
  local kernel
  kernel=$(tools/guest-lab --fetch-only) || fail "guest: there is no lab"
  say "guest: $kernel"
  build_program
  GUEST_LAB_TIME_SCALE=${TARVEX_TIME_FACTOR:-1} run_ctest guest release --label-regex '^guest$'
}

# The sources below the folders concerned that the build with clang compiles. The commands are taken
# from a configuration of their own: a precompiled header would have to be built first.
sources_for_tidy() {
  quietly build/logs/tidy-configure.log cmake --preset asan -B build/tidy \
    -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DTARVEX_COMPILE_TOGETHER=nothing || fail "tidy: configuring"
  local pattern
  pattern="^$PWD/($(IFS='|' && echo "${TIDY_FOLDERS[*]}"))/"
  grep -oE '"file": "[^"]+"' build/tidy/compile_commands.json | cut -d'"' -f4 | grep -E "$pattern" |
    sed "s|^$PWD/||" | sort -u || fail "found no sources for clang-tidy"
}

# run_tidy SOURCE...
run_tidy() {
  say "tidy: $# files"
  printf '%s\n' "$@" | sed 's/[.+]/\\&/g; s|.*|^'"$PWD"'/&$|' | xargs run-clang-tidy-14 -quiet \
    -p build/tidy -j "$CORES" >build/logs/tidy.log 2>&1 || {
    sed 's/\x1b\[[0-9;]*m//g' build/logs/tidy.log | grep -E '(error|warning): ' | sort -u
    fail "tidy: the whole output is in build/logs/tidy.log"
  }
}

# changed_since COMMIT: what differs from it, and what is new.
changed_since() {
  git diff --name-only "$1" --
  git ls-files --others --exclude-standard
}

# affected_by FILE...: of the files concerned, those named and all that include one of them, directly or
# not. Headers of one name in two folders are taken for the same.
affected_by() {
  local affected=("$@") headers count=0
  while ((${#affected[@]} > count)); do
    count=${#affected[@]}
    headers=$(printf '%s\n' "${affected[@]}" |
      sed -n '/\.h$/ { s|.*/||; s/[.+]/\\&/g; p }' | sort -u | paste -sd '|')
    [[ -n $headers ]] || break
    mapfile -t affected < <({
      printf '%s\n' "${affected[@]}"
      grep -rlE --include='*.h' --include='*.cpp' "^ *# *include *[\"<]([^\">]*/)?($headers)[\">]" \
        "${TIDY_FOLDERS[@]}" || true
    } | sort -u)
  done
  printf '%s\n' "${affected[@]}"
}

# The files changed since the commit that tools/tidy-base names, which was clean as a whole, and what
# includes them. Another set of checks concerns every file.
stage_tidy() {
  local base changed known sources
  base=$(grep -v '^#' tools/tidy-base)
  git cat-file -e "$base^{commit}" ||
    fail "tidy: the commit $base of tools/tidy-base is not here: fetch the whole history"
  changed=$(changed_since "$base")
  if grep -qxE '(tests/)?\.clang-tidy' <<<"$changed"; then
    say "tidy: the checks have changed, so all files are looked at"
    stage_whole_tidy
    return
  fi
  mapfile -t changed <<<"$changed"
  known=$(sources_for_tidy)
  mapfile -t sources < <(comm -12 - <(affected_by "${changed[@]}" | sort -u) <<<"$known")
  if ((${#sources[@]} == 0)); then
    say "tidy: no source is affected by what changed since $base"
    return
  fi
  run_tidy "${sources[@]}"
}

stage_whole_tidy() {
  local sources
  sources=$(sources_for_tidy)
  mapfile -t sources <<<"$sources"
  run_tidy "${sources[@]}"
}

# run_fuzzer NAME CORPUS: new inputs and crashes go below build/, the corpus is only read.
run_fuzzer() {
  local name=$1 corpus=$2 found=build/asan/found/$1 log=build/logs/fuzz-$1.log
  mkdir -p "$found"
  "build/asan/fuzzers/$name" -max_total_time="${TARVEX_FUZZ_SECONDS:-10}" -timeout=10 \
    -artifact_prefix="build/asan/$name-" -print_final_stats=1 "$found" "$corpus" >"$log" 2>&1 || {
    tail -n 60 "$log" >&2
    echo "FAILED: fuzzer $name (the input lies beside build/asan/$name-*)" >&2
    return 1
  }
  say "fuzz: $name: $(awk '/number_of_executed_units/ { print $2 }' "$log") runs"
}

stage_fuzz() {
  build_preset asan fuzzers
  needs fuzzers "$(wc -l <build/asan/fuzzers.txt)"
  export -f run_fuzzer say
  xargs -a build/asan/fuzzers.txt -P "$CORES" -L 1 bash -c 'run_fuzzer "$@"' fuzzer
}

stage_long_fuzz() {
  TARVEX_FUZZ_SECONDS=${TARVEX_FUZZ_SECONDS:-600} stage_fuzz
}

# stress PRESET SEED: the stress tests, which run in the builds with a sanitizer alone.
stress() {
  TARVEX_STRESS_SECONDS=${TARVEX_STRESS_SECONDS:-60} TARVEX_STRESS_SEED=$2 \
    run_ctest "$1-stress-$2" "$1" --label-regex '^stress$'
  say "$1: $(grep '^survived' "build/$1/Testing/Temporary/LastTest.log")"
}

# sanitized PRESET [ARGUMENT...]: the suite, or what the arguments choose of it, then the stress tests.
sanitized() {
  build_preset "$1"
  run_suite "$@"
  stress "$1" "${TARVEX_STRESS_SEED:-1}"
}

stage_long_stress() {
  local preset seed
  for preset in asan tsan; do
    build_preset "$preset"
    for seed in {1..10}; do
      stress "$preset" "$seed"
    done
  done
}

# schedules SEED SECONDS CYCLES: the tests that stand in a build once more with sleeps around every
# lock. The stress test has other lives at each seed, of all kinds where it has the time. Those that
# force an interleaving may stop a thread elsewhere than they mean to, and are tried again.
schedules() {
  local random='^Schedules/(PipelineStress|CyclesTest)'
  TARVEX_SCHEDULE_SEED=$1 TARVEX_STRESS_SEED=$((8 * $1 - 2)) TARVEX_STRESS_SECONDS=$2 \
    TARVEX_CYCLES=$3 run_ctest "schedules-$1" coverage --tests-regex "$random"
  say "schedules: $(grep '^survived' build/coverage/Testing/Temporary/LastTest.log)"
  TARVEX_SCHEDULE_SEED=$1 run_ctest "schedules-$1-pipeline" coverage --tests-regex '^Schedules/' \
    --exclude-regex "$random" --label-exclude '^interleaving$'
  TARVEX_SCHEDULE_SEED=$1 run_interleavings "schedules-$1-interleaving" coverage \
    --tests-regex '^Schedules/'
}

# In the build that the coverage needs anyway: a sanitizer's runtime has locks of its own.
stage_schedules() {
  local seed
  build_preset coverage pipeline_test regressions_test pipeline_stress cycles_test
  for seed in 1 2; do
    schedules "$seed" 15 5
  done
}

stage_long_schedules() {
  local seed
  build_preset coverage pipeline_test regressions_test pipeline_stress cycles_test
  for seed in {1..10}; do
    schedules "$seed" 60 20
  done
}

# Without ctest, whose limit is one for a short race.
stage_long_races() {
  [[ $(id -u) == 0 ]] || fail "long-races: only root can make files of others to be refused"
  build_preset release security_trust_test diagctl_program
  TARVEX_RACE_TRIES=10000 quietly build/logs/long-races.log \
    build/release/tests/security/security_trust_test --gtest_filter='TrustRace.*' ||
    fail "long-races: something of another was not found"
}

# Each whole, and the first with a finding ends them: a false alarm is to be looked at, not counted.
stage_no_alarm() {
  local runs=${TARVEX_QUIET_RUNS:-100} log=build/logs/no-alarm.jsonl number sources
  build_preset release diagctl_program bundled_packages
  mkdir -p build/logs
  for ((number = 1; number <= runs; ++number)); do
    sources=$([[ $((number % 2)) == 0 ]] && echo all || echo off)
    rm -f "$log"
    quietly build/logs/no-alarm.log build/release/diagctl/diagctl --allow-insecure run -q --quick \
      --strict --watch "$sources" -o "jsonl=$log" ||
      fail "no-alarm: run $number of $runs, watched: $sources, has a finding, kept in $log"
  done
  say "no-alarm: $runs quick runs without a finding"
}

# Four nodes on this machine, on the loopback interface alone.
stage_fleet() {
  [[ $(id -u) == 0 ]] || fail "fleet: only root can start a scheduler"
  build_preset release diagctl_program package_misbehaving run_metrics_test
  FLEET=$(mktemp -d)
  trap fleet_end EXIT
  fleet_make_program
  fleet_try_spreaders
  fleet_try_monitor
  fleet_try_catalogues
  fleet_try_metrics
  fleet_start_slurm
  fleet_try_draining
  fleet_try_drained_by_hand
  fleet_try_prolog
  fleet_try_merging
  fleet_try_long_checks
}

stage_asan() {
  sanitized asan
}

stage_tsan() {
  sanitized tsan --label-regex '^threads$'
}

stage_setup() {
  local root=$PWD/build/bare/setup
  remove_bare_system "$root"
  make_bare_system "$root"
  copy_tree "$root" root
  in_bare_system "$root" root \
    'source tools/common.sh && install_packages quick && quietly build/logs/setup.log cmake --preset dev'
  remove_bare_system "$root"
}

# The packages come in with ./test; the release is built by somebody who is not root, and run by both.
stage_bare() {
  local root=$PWD/build/bare/system
  remove_bare_system "$root"
  make_bare_system "$root"
  copy_tree "$root" root
  in_bare_system "$root" root './test'
  as_root chroot "$root" useradd --create-home somebody
  copy_tree "$root" somebody
  in_bare_system "$root" somebody './run'
  in_bare_system "$root" root './run'
  remove_bare_system "$root"
}

# axe-core comes from its registry, the version and the checksum from the lock file.
stage_pages() {
  build_preset dev diagctl_program
  mkdir -p build/pages
  cp tests/report/pages/package.json tests/report/pages/package-lock.json build/pages/
  quietly build/logs/pages-npm.log npm ci --ignore-scripts --prefix build/pages ||
    fail "pages: npm could not install what the lock file names"
  tests/report/pages/check_pages.py build/dev/diagctl/diagctl \
    build/pages/node_modules/axe-core/axe.min.js build/pages/results
}

# install_second LABEL: builds the release anew, without a cache of objects, and installs it.
install_second() {
  local label=$1 folder=build/second
  rm -rf "$folder/build" "${folder:?}/$label"
  say "second-build: $label"
  quietly "build/logs/second-$label.log" cmake --preset release -B "$folder/build" \
    -DTARVEX_USE_CCACHE=OFF -DBUILD_TESTING=OFF || fail "second-build: configuring"
  quietly "build/logs/second-$label.log" cmake --build "$folder/build" -j "$2" ||
    fail "second-build: building"
  quietly "build/logs/second-$label.log" cmake --install "$folder/build" --prefix "$PWD/$folder/$label" ||
    fail "second-build: installing"
}

# must_be_the_same ONE OTHER: two folders that differ in nothing; shows in what they do.
must_be_the_same() {
  local log=build/logs/second-difference.log
  needs "files in $1" "$(find "$1" -type f | wc -l)"
  diff -r --brief "$1" "$2" && return
  diffoscope --text "$log" --max-text-report-size 1000000 "$1" "$2" || true
  head -n 100 "$log" >&2
  fail "second-build: $1 and $2 differ (the whole is in $log)"
}

# Two builds of the same sources are the same to the byte, whatever the day, the language and the order.
stage_second_build() {
  install_second first "$CORES"
  TZ=Pacific/Kiritimati LC_ALL=C.UTF-8 install_second second "$((CORES + 3))"
  must_be_the_same build/second/first build/second/second
}

# What remains of the packages in a system that had nothing else.
stage_lives() {
  local root=$PWD/build/bare/lives
  build_debs
  remove_bare_system "$root"
  make_bare_system "$root"
  offer_debs "$root"
  try_lives "$root"
  remove_bare_system "$root"
}
