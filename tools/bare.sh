# A bare Debian system in a folder, for the stages that show that nothing but the listed packages is
# needed. Sourced by tools/stages.sh.
# shellcheck shell=bash

# The Debian archives among the sources of this machine's apt; any other would hold packages that a
# machine set up from Debian does not find.
debian_sources() {
  apt-get indextargets --format "deb \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    'Created-By: Packages' 'Origin: Debian' | sort -u
}

# How this machine's apt gets at them.
apt_access() {
  apt-config dump --format '%f "%v";%n' Acquire |
    grep -E '^Acquire::(https?::Proxy|Check-Valid-Until|ForceIPv[46]) ' || true
}

# make_bare_system ROOT: a system of Debian's essential packages and apt, in a new folder.
make_bare_system() {
  local root=$1 sources include=()
  if [[ -z $(debian_sources) ]]; then
    quietly build/logs/bare-update.log as_root apt-get update || fail "apt-get update failed"
  fi
  sources=$(debian_sources)
  [[ -n $sources ]] || fail "apt has no source of Debian: no bare system can be made from it"
  if [[ $sources == *https://* ]]; then
    include=(--include=ca-certificates)
  fi
  mkdir -p "$(dirname "$root")"
  apt_access >"$root.apt.conf"
  echo "$sources" >"$root.sources.list"
  say "bare: making a system from $(wc -l <"$root.sources.list") archives"
  # Nothing that walks through build/ meanwhile meets what it mounts.
  quietly build/logs/bare-system.log as_root unshare --mount \
    mmdebstrap --variant=apt --mode=root "${include[@]}" \
    --dpkgopt=force-unsafe-io --aptopt="$root.apt.conf" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" "$root.sources.list" ||
    fail "bare: mmdebstrap made no system (it needs root with the right to mount)"
  as_root cp -L /etc/resolv.conf "$root/etc/resolv.conf"
}

# remove_bare_system ROOT: what was mounted in it ended with the namespace of in_bare_system.
remove_bare_system() {
  as_root rm -rf --one-file-system "$1"
}

# in_bare_system ROOT USER COMMAND: runs the shell's command in the tree's copy there, with an empty
# environment and this machine's devices. Its mounts and processes end with it.
in_bare_system() {
  local root=$1 user=$2
  shift 2
  # shellcheck disable=SC2016  # the inner shell expands them
  as_root unshare --mount --pid --fork --kill-child bash -c '
    set -e
    root=$1 user=$2 factor=$3
    mount -t proc proc "$root/proc"
    mount --rbind /sys "$root/sys"
    mount --rbind /dev "$root/dev"
    mount -t tmpfs tmpfs "$root/run"
    exec chroot "$root" setpriv --reuid "$user" --regid "$user" --init-groups \
      env -i HOME="/home/$user" PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin \
      TARVEX_TIME_FACTOR="$factor" bash -c "cd /home/tree && $4"
  ' bash "$root" "$user" "${TARVEX_TIME_FACTOR:-1}" "$*"
}

# copy_tree ROOT USER: the sources as they are here, without what was built.
copy_tree() {
  local root=$1 user=$2
  as_root rm -rf "$root/home/tree"
  as_root mkdir -p "$root/home/tree"
  tar --exclude=./build --exclude='./build-*' --exclude=./.git --exclude=./.cache -c . |
    as_root tar -x --no-same-owner -C "$root/home/tree"
  as_root chroot "$root" chown -R "$user:$user" /home/tree
}
