# Completion of diagctl for bash.

_diagctl_options() {
  local selection="-p --package -d --device -t --test --exclude-package --exclude-device --exclude-test"
  local thoroughness="--profile --passes --quick"
  local packages="--packages --set"
  local reporting="--format -o --output --strict --fail-on-skip --vanished --exit-style --only-problems -v --verbose"
  case $1 in
    run)
      echo "$selection $thoroughness $packages $reporting" "--time --total-time --stress --halt-on-error --fail-fast" \
        "--serial --parallel --mode --allow-disruptive --debug-worker --expect-devices --dry-run --seed" "-q --quiet" \
        "--watch --watch-interval --settle --watch-ce-interval --textfile"
      ;;
    health)
      echo "$selection $thoroughness $packages" "--max-time --cached --style --vanished --drain --undrain-own" \
        "--slurm-conf --state --textfile --watch --watch-interval --settle --watch-ce-interval"
      ;;
    estimate) echo "$selection $thoroughness $packages --format" ;;
    report) echo "$reporting --split --redact --redact-key" ;;
    merge) echo "-o --output --strict --fail-on-skip --vanished --only-problems --redact --redact-key" ;;
    watch) echo "--for --format --set --textfile --watch --watch-interval --watch-ce-interval" ;;
    selftest) echo "--packages" ;;
    list | show | check) echo "$packages --format" ;;
    explain) echo "--packages --format" ;;
    inventory) echo "-o --output --redact --redact-key --root" ;;
    "inventory check")
      echo "--against --rules --root --format -o --output --strict --exit-style --only-problems -v --verbose"
      ;;
    "inventory golden") echo "-o --output --rules" ;;
  esac
  echo "-h --help --version -c --config --lang --allow-insecure"
}

# _diagctl_values OPTION VERB: a value on a line.
_diagctl_values() {
  local values=""
  case $1 in
    --profile) printf '%s\n' quick standard extended && _diagctl_plans ;;
    --mode) values="customer factory bringup" ;;
    --format)
      case $2 in
        run) values="text jsonl junit tap html json" ;;
        report | "inventory check") values="text jsonl junit tap html" ;;
        watch) values="text jsonl" ;;
        *) values="text json" ;;
      esac
      ;;
    --exit-style) values="plain nagios npd" ;;
    --style) values="plain slurm nagios npd nhc" ;;
    --watch) values="off all edac mce aer kmsg throttle hwmon power disk nvme net psi" ;;
    --vanished) values="trouble failure" ;;
    --fail-on-skip=) values="any privilege" ;;
    --lang) values="en de fr es zh ja" ;;
    -p | --package | --exclude-package) _diagctl_names packages ;;
    -d | --device | --exclude-device) _diagctl_names devices ;;
    -t | --test | --exclude-test) _diagctl_names tests ;;
    --set) _diagctl_settings ;;
  esac
  [[ -z $values ]] || tr ' ' '\n' <<<"$values"
}

# The names of the plans that somebody has written.
_diagctl_plans() {
  local directory file
  for directory in "${XDG_CONFIG_HOME:-$HOME/.config}" /etc; do
    for file in "$directory"/tarvexdiags/plans/*.cfg; do
      [[ ! -e $file ]] || basename "$file" .cfg
    done
  done | sort -u
}

# _diagctl_names packages|devices|tests: what is there, a name on a line.
_diagctl_names() {
  local key=name
  [[ $1 == packages ]] && key=baseName
  diagctl list "$1" --format json 2>/dev/null </dev/null |
    sed -n "s/^      \"$key\": \"\(.*\)\",\{0,1\}\$/\1/p" | sort -u
}

# What --set may hold: PACKAGE.KEY=.
_diagctl_settings() {
  diagctl show '*' --format json 2>/dev/null </dev/null | awk -F'"' '
    /^      "package": / { package = $4 }
    /^          "key": / { print package "." $4 "=" }' | sort -u
}

_diagctl_codes() {
  diagctl explain '*' --format json 2>/dev/null </dev/null |
    sed -n 's/^      "name": "\(.*\)",$/\1/p' | sort -u
}

# _diagctl_offer WORD: lines of standard input that begin with it, fit to be typed.
_diagctl_offer() {
  local line
  COMPREPLY=()
  while IFS= read -r line; do
    [[ ${line,,} == "${1,,}"* ]] && COMPREPLY+=("$(printf '%q' "$line")")
  done
}

_diagctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local verbs="list show inventory run watch health estimate check explain report merge selftest help version" verb="" word
  local parts="check golden diff"
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $verb == inventory ]]; then
      [[ " $parts " != *" $word "* ]] || verb="inventory $word"
      break
    elif [[ " $verbs " == *" $word "* ]]; then
      verb=$word
      [[ $verb == inventory ]] || break
    fi
  done
  # "--format=te" comes as three words.
  if [[ $current == "=" ]]; then
    current=""
  elif [[ $previous == "=" ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
    [[ $previous != --fail-on-skip ]] || previous=--fail-on-skip=  # no word behind it is its value
    if [[ ${COMP_WORDS[COMP_CWORD - 3]} == -o || ${COMP_WORDS[COMP_CWORD - 3]} == --output ]]; then
      previous=FILE
    fi
  fi
  if [[ ($verb == inventory || $verb == "inventory golden" || $verb == merge) && ($previous == -o || $previous == --output) ]]; then
    previous=FILE
  fi
  if [[ $previous == -o || $previous == --output ]]; then
    compopt -o nospace 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -W "text= jsonl= junit= tap= html=" -- "$current")
    return
  fi
  case $previous in
    -c | --config | --packages | --redact-key | --root | --split | --slurm-conf | --state | --textfile | --against | --rules | FILE)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --profile | --mode | --format | --exit-style | --style | --vanished | --watch | --fail-on-skip= | --lang | -p | --package | \
      --exclude-package | -d | --device | --exclude-device | -t | --test | --exclude-test | --set)
      [[ $previous != --set ]] || compopt -o nospace 2>/dev/null
      _diagctl_offer "$current" < <(_diagctl_values "$previous" "$verb")
      return
      ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_diagctl_options "$verb")" -- "$current")
  else
    case $verb in
      "" | help) mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$current") ;;
      list) mapfile -t COMPREPLY < <(compgen -W "packages devices tests" -- "$current") ;;
      run | health | estimate | show)
        _diagctl_offer "$current" < <(_diagctl_names packages && _diagctl_names devices &&
          _diagctl_names tests)
        ;;
      explain) _diagctl_offer "$current" < <(_diagctl_codes) ;;
      inventory) mapfile -t COMPREPLY < <(compgen -W "$parts" -- "$current") ;;
      report | merge | "inventory golden" | "inventory diff") mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
  fi
}

complete -F _diagctl diagctl
