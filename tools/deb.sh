# The Debian packages, for the stage that builds and installs them. Sourced by tools/stages.sh.
# shellcheck shell=bash

DEB_FOLDER=build/deb
LIBRARIES_WITH_ABI=(diagframework diagctrl)

# The packages, in build/deb, of the release build.
build_debs() {
  local triplet
  triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  say "deb: building"
  quietly build/logs/deb-configure.log cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_INSTALL_LIBDIR="lib/$triplet" || fail "deb: configuring"
  quietly build/logs/deb-build.log cmake --build --preset release --target installed ||
    fail "deb: building"
  pack_debs "$PWD/build/release" "$PWD/$DEB_FOLDER" || fail "deb: packing"
}

# pack_debs BUILD FOLDER: the packages of a build for /usr that is there, to FOLDER, from a copy of the
# sources below it: debhelper writes into the tree that it packs. Both are absolute.
pack_debs() {
  local tree=$2/tree
  rm -rf "$2"
  mkdir -p "$tree"
  tar --exclude=./build --exclude='./build-*' --exclude=./.git -c . | tar -x -C "$tree"
  quietly build/logs/deb.log env -C "$tree" TARVEX_BUILD="$1" TARVEX_DEBS="$2" \
    DEB_RULES_REQUIRES_ROOT=no DEB_BUILD_OPTIONS=noautodbgsym debian/rules binary
}

# describe_interfaces HEADERS FOLDER: what both libraries of the release build offer, as far as the
# installed headers tell of it, to FOLDER/lib<name>.abi.
describe_interfaces() {
  local library
  for library in "${LIBRARIES_WITH_ABI[@]}"; do
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-elf-needed \
      --drop-private-types --exported-interfaces-only --headers-dir "$1" \
      --out-file "$2/lib$library.abi" "$(echo build/release/"lib$library".so.*.*.*)"
  done
}

# What programs and packages that are built were promised stays as it is while the SONAME does: what is
# new is no break, all else is one. tools/describe-abi writes the descriptions.
check_interfaces() {
  local library log
  describe_interfaces "$DEB_FOLDER/tree/debian/tmp/usr/include/tarvexdiags" "$DEB_FOLDER"
  for library in "${LIBRARIES_WITH_ABI[@]}"; do
    log=build/logs/abi-$library.log
    xz -dc "debian/abi/lib$library.abi.xz" >"$DEB_FOLDER/promised.abi"
    abidiff --no-added-syms "$DEB_FOLDER/promised.abi" "$DEB_FOLDER/lib$library.abi" >"$log" 2>&1 || {
      cat "$log"
      fail "deb: lib$library breaks what debian/abi promises: it needs a new SONAME"
    }
  done
}

# What is in the packages has kept what the release was built with, whatever packing did to it.
check_packed() {
  local package
  for package in "$DEB_FOLDER"/*.deb; do
    dpkg-deb --extract "$package" "$DEB_FOLDER/packed"
  done
  quietly build/logs/deb-packed.log tests/security/check_binaries.sh ON "$DEB_FOLDER/packed" ||
    fail "deb: a file is not as it must be"
  quietly build/logs/lintian.log lintian --fail-on error,warning "$DEB_FOLDER"/*.deb ||
    fail "deb: lintian"
}

# What runs every night as root keeps to what it needs. The program of a unit is not on this machine.
check_units() {
  local unit copies=$DEB_FOLDER/units
  mkdir -p "$copies"
  for unit in "$DEB_FOLDER"/packed/lib/systemd/system/tarvexdiags-*; do
    sed 's|^ExecStart=/usr/bin/diagctl |ExecStart=/bin/true |' "$unit" >"$copies/${unit##*/}"
  done
  quietly build/logs/deb-units.log systemd-analyze --man=no verify "$copies"/* || fail "deb: a unit is wrong"
  for unit in "$copies"/*.service; do
    quietly build/logs/deb-units.log systemd-analyze security --offline=true --no-pager --threshold=40 "$unit" ||
      fail "deb: ${unit##*/} may do more than it must"
  done
}

# In the system at ROOT: everything from installing to purging, as its user would.
try_debs() {
  local root=$1
  as_root mkdir -p "$root/home/tree/debs"
  as_root cp "$DEB_FOLDER"/*.deb tests/install/deb/* "$root/home/tree/debs"
  in_bare_system "$root" root 'debs/try_packages.sh'
}

# offer_debs ROOT: the packages as an archive of the bare system's own apt, in a folder that is there before
# anything is installed.
offer_debs() {
  local offered=$1/srv/debs
  as_root mkdir -p "$offered"
  as_root cp "$DEB_FOLDER"/*.deb "$offered"
  (cd "$DEB_FOLDER" && dpkg-scanpackages --multiversion . 2>/dev/null) | as_root tee "$offered/Packages" >/dev/null
  echo "deb [trusted=yes] file:/srv/debs ./" | as_root tee "$1/etc/apt/sources.list.d/offered.list" >/dev/null
}

# try_lives ROOT: the packages, installed, removed, purged and installed again in copies of the bare system
# at ROOT by piuparts, which looks for what that leaves behind, breaks or puts where it does not belong.
try_lives() {
  # Nothing that walks through build/ meanwhile meets what it mounts.
  quietly build/logs/piuparts.log as_root unshare --mount piuparts --existing-chroot="$1" \
    --keep-sources-list --distribution="$(. /etc/os-release && echo "$VERSION_CODENAME")" \
    --tmpdir="$(dirname "$1")" --no-upgrade-test --install-remove-install --install-purge-install \
    --fail-on-broken-symlinks "$DEB_FOLDER"/*.deb || fail "lives: piuparts"
}
