# A fleet on one machine, for the stage that tries what the others ask of diagctl: Slurm with four nodes,
# clush, pdsh, Ansible, Nagios, Prometheus. Sourced by tools/stages.sh. All of it listens on the loopback
# interface alone, lies below FLEET, and is ended by its recorded process ids.
# shellcheck shell=bash

FLEET=
FLEET_PROCESSES=()
FLEET_NODES=(n1 n2 n3 n4)

# fleet_start NAME COMMAND...: a daemon in the foreground, in the background of this shell.
fleet_start() {
  local name=$1
  shift
  "$@" >"$FLEET/log/$name.out" 2>&1 &
  FLEET_PROCESSES+=($!)
}

# The processes of jobs, which outlive the daemons that began them.
fleet_steps() {
  local pid
  for pid in $(pgrep -x slurmstepd); do
    ! grep -qz "^SLURM_CONF=$FLEET/" "/proc/$pid/environ" 2>/dev/null || echo "$pid"
  done
}

fleet_end() {
  local pid status=$?
  for pid in "${FLEET_PROCESSES[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  for pid in "${FLEET_PROCESSES[@]}"; do
    wait "$pid" 2>/dev/null || true
  done
  for pid in $(fleet_steps); do
    kill -KILL "$pid" 2>/dev/null || true
  done
  if ((status == 0)); then
    rm -rf "$FLEET"
  else
    say "fleet: what is left lies in $FLEET"
  fi
}

# fleet_await SECONDS TEXT COMMAND...: until the command succeeds.
fleet_await() {
  local end=$((SECONDS + $1 * ${TARVEX_TIME_FACTOR:-1})) text=$2
  shift 2
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < end)) || fail "fleet: $text"
    sleep 0.5
  done
}

# What a node's diagctl is told beside what the example says, so that four nodes on one machine are four
# machines, each with tests of its own: the package that misbehaves.
fleet_make_program() {
  local node
  mkdir -p "$FLEET"/{bin,log,state,spool,args,munge}
  for node in "${FLEET_NODES[@]}" login; do
    fleet_tests "$node" -t Behaves
  done
  cat >"$FLEET/bin/diagctl" <<TEXT
#!/bin/bash
node=\${SLURMD_NODENAME:-login} verb=\$1
more=()
if [[ \$verb == health || \$verb == run ]]; then
  told=$FLEET/args/\$verb.\$node
  [[ -e \$told ]] || told=$FLEET/args/\$node
  mapfile -t more <"\$told"
fi
[[ \$verb != health ]] || more+=(--state "$FLEET/state/\$node")
exec "$PWD/build/release/diagctl/diagctl" --allow-insecure "\$@" "\${more[@]}"
TEXT
  chmod +x "$FLEET/bin/diagctl"
}

# fleet_tests [VERB.]NODE WORD...: what the node tests from now on, or this verb there.
fleet_tests() {
  local node=$1
  shift
  printf '%s\n' --packages "$PWD/build/release/selftest" -d "Unit 0" --watch off "$@" >"$FLEET/args/.$node"
  mv "$FLEET/args/.$node" "$FLEET/args/$node"
}

# fleet_script NAME EXAMPLE: a program that Slurm starts, which notes when each of them begins and ends.
fleet_script() {
  cat >"$FLEET/$1.sh" <<TEXT
#!/bin/bash
export PATH=$FLEET/bin:\$PATH SLURM_CONF=$FLEET/slurm.conf
[[ ! -e $FLEET/no-$1.\$SLURMD_NODENAME ]] || exit 0
begin=\$EPOCHREALTIME
sh $PWD/examples/fleet/$2 >>$FLEET/log/$1.\$SLURMD_NODENAME 2>&1
code=\$?
echo "\$begin \$EPOCHREALTIME \$code" >>$FLEET/log/$1.\$SLURMD_NODENAME.times
exit \$code
TEXT
  chmod +x "$FLEET/$1.sh"
}

fleet_write_slurm() {
  local host
  host=$(hostname -s)
  cat >"$FLEET/slurm.conf" <<TEXT
ClusterName=fleet
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=26817
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$FLEET/munge/socket
StateSaveLocation=$FLEET/state/slurmctld
SlurmdSpoolDir=$FLEET/spool/%n
SlurmctldPidFile=$FLEET/spool/slurmctld.pid
SlurmdPidFile=$FLEET/spool/%n.pid
SlurmdLogFile=$FLEET/log/%n.log
SlurmctldLogFile=$FLEET/log/slurmctld.log
SrunPortRange=26820-26840
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
SlurmdParameters=config_overrides
HealthCheckProgram=$FLEET/check.sh
HealthCheckInterval=5
HealthCheckNodeState=ANY
Prolog=$FLEET/prolog.sh
PrologFlags=Alloc
MailProg=/bin/true
MpiDefault=none
NodeName=n[1-4] NodeHostname=$host NodeAddr=127.0.0.1 Port=[26901-26904] CPUs=1 RealMemory=100 State=UNKNOWN
PartitionName=p Nodes=n[1-4] Default=YES State=UP
TEXT
}

fleet_start_slurm() {
  local node
  fleet_script check slurm-healthcheck.sh
  fleet_script prolog slurm-prolog.sh
  fleet_write_slurm
  mkdir -p "$FLEET/state/slurmctld"
  head -c 1024 /dev/urandom >"$FLEET/munge/key"
  chmod 0400 "$FLEET/munge/key"
  chmod 0711 "$FLEET" "$FLEET/munge"
  fleet_start munged munged --foreground --force --socket="$FLEET/munge/socket" \
    --key-file="$FLEET/munge/key" --log-file="$FLEET/munge/log" --pid-file="$FLEET/munge/pid" \
    --seed-file="$FLEET/munge/seed"
  fleet_await 20 "munged does not start" test -S "$FLEET/munge/socket"
  fleet_start slurmctld slurmctld -D -i -f "$FLEET/slurm.conf"
  for node in "${FLEET_NODES[@]}"; do
    mkdir -p "$FLEET/spool/$node"
    fleet_start "slurmd-$node" slurmd -D -N "$node" -f "$FLEET/slurm.conf"
  done
  export SLURM_CONF=$FLEET/slurm.conf
  fleet_await 60 "the nodes do not get ready" fleet_has 4 idle
  say "fleet: four nodes are ready"
}

# fleet_has COUNT STATE
fleet_has() {
  [[ $(sinfo -h -N -t "$2" -o %N | sort -u | wc -l) == "$1" ]]
}

fleet_state_of() {
  scontrol show node "$1" | sed -nE 's/^ *State=([^ ]*).*/\1/p'
}

fleet_reason_of() {
  scontrol show node "$1" | sed -nE 's/^ *Reason=(.*) \[.*/\1/p'
}

fleet_is_drained() {
  [[ $(fleet_state_of "$1") == *DRAIN* ]]
}

fleet_is_free() {
  ! fleet_is_drained "$1"
}

# fleet_ends NODE STATUS: how many checks have ended so.
fleet_ends() {
  awk -v status="$2" '$3 == status' "$FLEET/log/check.$1.times" 2>/dev/null | wc -l
}

# fleet_has_ended COUNT NODE STATUS
fleet_has_ended() {
  (($(fleet_ends "$2" "$3") >= $1))
}

# fleet_await_ends COUNT NODE STATUS: as many more.
fleet_await_ends() {
  fleet_await 120 "no check of $2 ends with $3" fleet_has_ended "$(($(fleet_ends "$2" "$3") + $1))" "$2" "$3"
}

# A node that fails is drained for our reason, the others go on, and it comes back.
fleet_try_draining() {
  fleet_await_ends 1 n2 0
  fleet_tests n2 -t Fault
  fleet_await 120 "n2 is not drained" fleet_is_drained n2
  (($(fleet_ends n2 1) <= 2)) || fail "fleet: n2 is drained after $(fleet_ends n2 1) checks"
  [[ $(fleet_reason_of n2) == "diagctl: "*Fault* ]] ||
    fail "fleet: n2 is drained for '$(fleet_reason_of n2)'"
  srun -N3 -w n1,n3,n4 true || fail "fleet: the three others run no job"
  fleet_tests n2 -t Behaves
  fleet_await 120 "n2 does not come back" fleet_is_free n2
  say "fleet: n2 was drained for our reason, and is back"
}

# What a person has drained is the person's.
fleet_try_drained_by_hand() {
  local reason="the fan is to be replaced"
  scontrol update NodeName=n3 State=DRAIN Reason="$reason"
  fleet_tests n3 -t Fault
  fleet_await_ends 2 n3 1
  [[ $(fleet_reason_of n3) == "$reason" ]] || fail "fleet: the reason of n3 has become '$(fleet_reason_of n3)'"
  fleet_tests n3 -t Behaves
  fleet_await_ends 3 n3 0
  fleet_is_drained n3 || fail "fleet: what was drained by hand has come back"
  scontrol update NodeName=n3 State=RESUME
  say "fleet: n3 was left to whom has drained it"
}

# Checks that take as long as they may, some 30 of the 45 seconds, at an interval of five: those that come
# meanwhile end at once, and none is ended by the scheduler, which would do so after 60 seconds.
fleet_try_long_checks() {
  local before overlaps
  : >"$FLEET/log/check.n4.times"
  fleet_tests n4 -t Behaves --passes 1000000
  before=$(date +%s)
  fleet_await 200 "no two checks of n4 took long" fleet_long_checks_of n4
  fleet_tests n4 -t Behaves
  overlaps=$(awk '$2 - $1 > 20' "$FLEET/log/check.n4.times" | sort -n |
    awk '$1 < last { print } { last = $2 }')
  [[ -z $overlaps ]] || fail "fleet: two checks of n4 have overlapped: $overlaps"
  awk '$2 - $1 < 5' "$FLEET/log/check.n4.times" | grep -q . ||
    fail "fleet: no check of n4 has ended at once beside a long one"
  ! grep -hE 'health_check.*(timeout|killed)' "$FLEET"/log/n?.log ||
    fail "fleet: a check was ended by the scheduler"
  say "fleet: a check of n4 took $(fleet_longest_check_of n4) s, and none overlapped in $(($(date +%s) - before)) s"
}

# fleet_long_checks_of NODE: whether two have ended, which is the least that could have overlapped.
fleet_long_checks_of() {
  (($(awk '$2 - $1 > 20' "$FLEET/log/check.$1.times" | wc -l) >= 2))
}

fleet_longest_check_of() {
  awk '{ if ($2 - $1 > most) most = $2 - $1 } END { printf "%.0f", most }' "$FLEET/log/check.$1.times"
}

# The prolog looks at the last result, and sets the reason before Slurm says "Prolog error".
fleet_try_prolog() {
  touch "$FLEET/no-check.n1"
  fleet_await 60 "the last check of n1 does not end" fleet_is_quiet n1
  fleet_tests n1 -t Fault
  SLURMD_NODENAME=n1 "$FLEET/bin/diagctl" health --style slurm >"$FLEET/log/prolog.health" 2>&1 || true
  fleet_is_free n1 || fail "fleet: n1 is drained before its prolog"
  timeout 30 srun -w n1 --immediate=20 true >"$FLEET/log/prolog.srun" 2>&1 || true
  fleet_await 30 "the prolog does not drain n1" fleet_is_drained n1
  [[ $(fleet_reason_of n1) == "diagctl: "* ]] ||
    fail "fleet: the prolog has drained n1 for '$(fleet_reason_of n1)'"
  fleet_tests n1 -t Behaves
  rm "$FLEET/no-check.n1"
  fleet_await 60 "n1 does not come back" fleet_is_free n1
  say "fleet: the prolog of n1 has refused a job for our reason"
}

# fleet_is_quiet NODE: whether no check of it runs.
fleet_is_quiet() {
  ! pgrep -f "state/$1( |$)" >/dev/null
}

# One job on all nodes, and one report of it. The nodes have one host's name, so the tasks' numbers name
# the logs.
fleet_try_merging() {
  local task status=0
  fleet_await 60 "the nodes do not get ready again" fleet_has 4 idle
  fleet_tests run.n2 -t Fault
  srun -N4 --output="$FLEET/run.%t.jsonl" "$FLEET/bin/diagctl" run --quiet --format jsonl || true
  for task in {0..3}; do
    [[ -s $FLEET/run.$task.jsonl ]] || fail "fleet: the job has left no log of task $task"
  done
  "$FLEET/bin/diagctl" merge "$FLEET"/run.?.jsonl -o "$FLEET/all.jsonl" >"$FLEET/log/merge" || status=$?
  ((status == 1)) || fail "fleet: the merged log of the job ends with $status"
  grep -q '^4 runs of' "$FLEET/log/merge" || fail "fleet: the merged log does not hold four runs"
  "$FLEET/bin/diagctl" report "$FLEET/all.jsonl" --format junit >"$FLEET/all.xml" || true
  python3 -c 'import sys, xml.etree.ElementTree as tree; tree.parse(sys.argv[1])' "$FLEET/all.xml"
  rm "$FLEET/args/run.n2"
  grep -q '^FAILED' "$FLEET/log/merge" || fail "fleet: the merged log tells no failure"
  say "fleet: the runs of a job on four nodes are one report"
}

# fleet_expect STATUS NAME COMMAND...
fleet_expect() {
  local expected=$1 name=$2 status=0
  shift 2
  "$@" >"$FLEET/log/$name" 2>&1 || status=$?
  ((status == expected)) || {
    cat "$FLEET/log/$name" >&2
    fail "fleet: $name ends with $status, and not with $expected"
  }
}

# clush, pdsh and Ansible with workers on this machine.
fleet_try_spreaders() {
  local path=$FLEET/bin:$PATH program worker
  for program in clush pdsh; do
    worker=(--worker=exec)
    mkdir "$FLEET/logs-of-$program"
    [[ $program == clush ]] || worker=(-R exec)
    fleet_tests login -t Fault
    fleet_expect 1 "$program-of-a-failure" env PATH="$path" LOGS="$FLEET/logs-of-$program" \
      "examples/fleet/$program.sh" 'n[1-4]' "${worker[@]}"
    grep -q '^4 runs of' "$FLEET/log/$program-of-a-failure" || fail "fleet: $program does not tell four runs"
    fleet_tests login -t Behaves
    fleet_expect 0 "$program-of-none" env PATH="$path" LOGS="$FLEET/logs-of-$program" \
      "examples/fleet/$program.sh" 'n[1-4]' "${worker[@]}"
  done
  printf '%s ansible_connection=local ansible_python_interpreter=/usr/bin/python3\n' n1 n2 n3 n4 >"$FLEET/hosts"
  fleet_expect 0 playbook env PATH="$path" ANSIBLE_LOCALHOST_WARNING=0 ansible-playbook \
    -i "$FLEET/hosts" -e "logs=$FLEET/logs" examples/fleet/playbook.yml
  fleet_tests login -t Fault
  fleet_expect 2 playbook-of-a-failure env PATH="$path" ansible-playbook -i "$FLEET/hosts" \
    -e "logs=$FLEET/logs" examples/fleet/playbook.yml
  fleet_tests login -t Behaves
  say "fleet: clush, pdsh and the playbook run, gather and judge"
}

# Metrics that are written a thousand times while they are scraped: no scrape meets half a file.
fleet_try_metrics() {
  local directory=$FLEET/metrics port=26850 count errors writer
  mkdir -p "$directory"
  fleet_start exporter prometheus-node-exporter --collector.disable-defaults --collector.textfile \
    --collector.textfile.directory="$directory" --web.listen-address="127.0.0.1:$port"
  fleet_await 20 "the exporter does not start" curl -fsS "http://127.0.0.1:$port/metrics"
  fleet_write_metrics "$directory" &
  writer=$!
  count=0 errors=0
  while kill -0 "$writer" 2>/dev/null && ((count < 5000)); do
    curl -fsS --max-time 10 "http://127.0.0.1:$port/metrics" >"$FLEET/log/scrape" ||
      fail "fleet: a scrape has failed"
    grep -qx 'node_textfile_scrape_error 0' "$FLEET/log/scrape" || errors=$((errors + 1))
    count=$((count + 1))
    sleep 0.1
  done
  wait "$writer" || fail "fleet: the metrics could not be written"
  ((count > 50 && errors == 0)) || fail "fleet: $errors of $count scrapes have met an error"
  grep -q '^tarvexdiags_run_exit_code' "$FLEET/log/scrape" || fail "fleet: the exporter has no metrics"
  promtool check metrics <"$directory/tarvexdiags-run.prom" || fail "fleet: promtool refuses the metrics"
  say "fleet: 1000 writes, $count scrapes, and no error"
}

# fleet_write_metrics DIR
fleet_write_metrics() {
  local left=1000
  while ((left-- > 0)); do
    "$FLEET/bin/diagctl" run --quiet --only-problems --textfile "$1" >"$FLEET/log/metrics" 2>&1 || return 1
  done
}

# The metrics of runs at random, as the test that makes them leaves them: what names and figures may come.
fleet_try_catalogues() {
  local directory=$FLEET/catalogues file count=0
  mkdir -p "$directory"
  TARVEX_METRICS_DIRECTORY=$directory build/release/tests/diagctl/run_metrics_test \
    --gtest_filter='*of_any_catalogue*' >"$FLEET/log/catalogues" || fail "fleet: there are no metrics at random"
  for file in "$directory"/*.prom; do
    promtool check metrics <"$file" >"$FLEET/log/promtool" 2>&1 || {
      cat "$FLEET/log/promtool" >&2
      cp "$file" build/logs/
      fail "fleet: promtool refuses build/logs/${file##*/}"
    }
    count=$((count + 1))
  done
  ((count == 200)) || fail "fleet: promtool has looked at $count catalogues, and not at 200"
  say "fleet: promtool takes the metrics of $count runs at random"
}

# A monitor of one host, with the example's command and service and what those leave to their users.
fleet_write_monitor() {
  local directory=$FLEET/nagios day
  mkdir -p "$directory/results"
  sed "s|/usr/bin/diagctl|$FLEET/bin/diagctl|" examples/fleet/nagios.cfg >"$directory/example.cfg"
  cat >"$directory/objects.cfg" <<TEXT
define timeperiod {
  timeperiod_name  always
  alias            always
$(for day in mon tues wednes thurs fri satur sun; do echo "  ${day}day 00:00-24:00"; done)
}
define contact {
  contact_name                   nobody
  host_notifications_enabled     0
  service_notifications_enabled  0
  host_notification_period       always
  service_notification_period    always
  host_notification_commands     check_diagctl
  service_notification_commands  check_diagctl
}
define host {
  host_name           node1
  address             127.0.0.1
  max_check_attempts  1
  check_period        always
  contacts            nobody
}
define service {
  name                generic-service
  register            0
  max_check_attempts  1000
  retry_interval      1
  check_period        always
  contacts            nobody
}
TEXT
  cat >"$directory/nagios.cfg" <<TEXT
cfg_file=$directory/objects.cfg
cfg_file=$directory/example.cfg
log_file=$directory/log
object_cache_file=$directory/objects.cache
precached_object_file=$directory/objects.precache
status_file=$directory/status
status_update_interval=1
temp_file=$directory/temp
temp_path=$directory/results
check_result_path=$directory/results
state_retention_file=$directory/retention
lock_file=$directory/lock
command_file=$directory/commands
query_socket=$directory/query
nagios_user=root
nagios_group=root
check_external_commands=0
check_for_updates=0
check_workers=1
enable_notifications=0
interval_length=1
service_inter_check_delay_method=n
service_interleave_factor=1
use_syslog=0
TEXT
}

# fleet_monitor_says KEY PATTERN: whether the monitor has checked the service, and holds this of it.
fleet_monitor_says() {
  sed -n '/^servicestatus {/,/}/p' "$FLEET/nagios/status" >"$FLEET/log/nagios.status" 2>/dev/null
  grep -q 'has_been_checked=1$' "$FLEET/log/nagios.status" && grep -qE "\s$1=$2\$" "$FLEET/log/nagios.status"
}

# The engine of a monitor calls the plug-in and reads state, text and figures from it.
fleet_try_monitor() {
  fleet_write_monitor
  fleet_expect 0 nagios-objects nagios4 -v "$FLEET/nagios/nagios.cfg"
  fleet_tests login -t Fault
  fleet_expect 1 nagios-health-of-a-failure "$FLEET/bin/diagctl" health --max-time 10m
  fleet_start nagios nagios4 "$FLEET/nagios/nagios.cfg"
  fleet_await 60 "the monitor tells no failure" fleet_monitor_says current_state 2
  fleet_monitor_says plugin_output 'CRITICAL - .*Fault.*' || fail "fleet: the monitor has another text"
  fleet_monitor_says performance_data "'duration'=.*s;.*'failed'=1;.*" ||
    fail "fleet: the monitor has other figures"
  fleet_tests login -t Behaves
  fleet_expect 0 nagios-health-of-none "$FLEET/bin/diagctl" health --max-time 10m
  fleet_await 60 "the monitor tells no end of the failure" fleet_monitor_says current_state 0
  say "fleet: a monitor's engine tells a failure and its end, with figures"
}
