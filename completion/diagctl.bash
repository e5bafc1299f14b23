# Completion of diagctl for bash.

_diagctl_options() {
  case $1 in
    run)
      echo "-p --package -d --device -t --test --exclude-package --exclude-device --exclude-test" \
        "--profile --passes --quick --time --total-time --stress --halt-on-error --serial" \
        "--parallel --mode --allow-disruptive --expect-devices --dry-run --seed --format -o --output -q --quiet" \
        "--strict --fail-on-skip --vanished --exit-style"
      ;;
    estimate)
      echo "-p --package -d --device -t --test --exclude-package --exclude-device --exclude-test" \
        "--profile --passes --quick"
      ;;
    report) echo "--format -o --output --strict --fail-on-skip --vanished --exit-style" ;;
    selftest) echo "--packages" ;;
  esac
  echo "-h --help --version -c --config --lang --allow-insecure"
}

_diagctl_values() {
  case $1 in
    --profile) echo "quick standard extended" ;;
    --mode) echo "customer factory bringup" ;;
    --format) echo "text jsonl junit tap" ;;
    --exit-style) echo "plain nagios npd" ;;
    --vanished) echo "trouble failure" ;;
    --lang) echo "en de fr es zh ja" ;;
  esac
}

_diagctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local verbs="list show run estimate check explain report selftest help version" verb="" word values
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ " $verbs " == *" $word "* ]]; then
      verb=$word
      break
    fi
  done
  values=$(_diagctl_values "$previous")
  if [[ -n $values ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
  elif [[ $previous == -c || $previous == --config || $previous == --packages ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  elif [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_diagctl_options "$verb")" -- "$current")
  elif [[ -z $verb ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$current")
  elif [[ $verb == help ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$current")
  elif [[ $verb == list ]]; then
    mapfile -t COMPREPLY < <(compgen -W "packages devices tests" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

complete -F _diagctl diagctl
