# Shared by ./test and ./run: messages and the Debian packages. Sourced with the root as the current
# folder.
# shellcheck shell=bash

say() {
  printf '== %s\n' "$*"
}

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# quietly LOG COMMAND...: runs the command with its output in the log, and shows the log's end when
# the command fails.
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 && return
  tail -n 80 "$log" >&2
  echo "(the whole output is in $log)" >&2
  return 1
}

# packages_of KIND: the names in tools/packages.txt that bear no mark; where KIND is full those marked so as
# well, where it is a stage of ./test --deep also those of that stage, and where it is deep all.
packages_of() {
  awk -v kind="$1" '/^[^#]/ && ($2 == "" || $2 == kind || kind == "deep" ||
    ($2 == "full" && kind != "quick" && kind != "always")) { print $1 }' tools/packages.txt
}

# What an installed package provides is there as well.
missing_packages() {
  comm -23 <(packages_of "$1" | sort) \
    <(dpkg-query -W -f '${db:Status-Status} ${Package} ${Provides}\n' |
      sed -nE 's/ \([^)]*\)//g; s/,//g; s/^installed //p' | tr ' ' '\n' | sort -u)
}

# as_root COMMAND...: runs it as root, through sudo where this is somebody else.
as_root() {
  if ((EUID == 0)); then
    "$@"
  else
    command -v sudo >/dev/null || fail "this needs root, and there is no sudo: $*"
    sudo "$@"
  fi
}

# install_packages KIND: installs what is missing of the list.
install_packages() {
  command -v dpkg-query >/dev/null ||
    fail "this is no Debian system; needed are its packages: $(packages_of "$1" | xargs)"
  local missing
  mapfile -t missing < <(missing_packages "$1")
  if ((${#missing[@]} == 0)); then
    say "packages: nothing is missing"
    return
  fi
  say "packages: installing ${missing[*]}"
  quietly build/logs/packages.log as_root apt-get update ||
    fail "apt-get update failed"
  quietly build/logs/packages.log as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}" ||
    fail "apt-get install ${missing[*]} failed"
}

# configure_preset PRESET: anew where its folder was configured for another compiler, since cmake would
# keep the new one and forget the rest.
configure_preset() {
  local cache=build/$1/CMakeCache.txt wanted used
  wanted=$(cmake -N --preset "$1" | sed -nE 's/^ *CMAKE_CXX_COMPILER="(.*)"$/\1/p')
  used=$([[ ! -f $cache ]] || sed -nE 's|^CMAKE_CXX_COMPILER:.*[=/]||p' "$cache")
  if [[ $used == "$wanted" ]]; then
    cmake --preset "$1"
  else
    cmake --fresh --preset "$1"
  fi
}

# build_preset PRESET [TARGET...]: configures and builds.
build_preset() {
  local preset=$1
  shift
  say "$preset: building"
  quietly "build/logs/$preset-configure.log" configure_preset "$preset" ||
    fail "$preset: configuring"
  quietly "build/logs/$preset-build.log" cmake --build --preset "$preset" ${1:+--target "$@"} ||
    fail "$preset: building"
}

# build_program: the release of diagctl with the packages that come along.
build_program() {
  build_preset release diagctl_program bundled_packages
}
