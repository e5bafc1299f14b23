#!/usr/bin/env bash
# Proves that what `cmake --install` lays down can be built against, outside of the tree.
# Usage: check_install.sh STEP PREFIX, where STEP is one of
#   install        installs the build in $BUILD_DIR into PREFIX and looks at the headers laid down
#   cmake-client   builds and runs a client that uses find_package
#   client-header  compiles a client of DiagCtrl/Client.h with both compilers and their warnings
#   kit-package    builds a package with the installed kit and runs its test
#   examples       builds all examples from the folder of documents, and runs the clients
#   pkg-config-client, package-module   a client and a package with pkg-config alone
#   pkg-config-kit   a package that is written with the kit, with pkg-config alone
# CXX, CXXFLAGS and LDFLAGS are those of the build.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
step=$1
prefix=$2
CXXFLAGS="-std=c++20 -Wall -Wextra -Werror ${CXXFLAGS:-}"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# expect TEXT COMMAND...: the command succeeds and prints exactly the text.
expect() {
  local wanted=$1 got
  shift
  got=$("$@") || fail "$* exited with $?: $got"
  [[ $got == "$wanted" ]] || fail "$* printed '$got' instead of '$wanted'"
}

install_build() {
  rm -rf "$prefix"
  cmake --install "$BUILD_DIR" --prefix "$prefix" >/dev/null
  local include=$prefix/include/tarvexdiags
  [[ -f $include/DiagCtrl/GlobalSettings.h ]] || fail "no headers below $include"
  [[ ! -e $include/DiagCtrl/internal ]] || fail "internal headers were installed"
  if grep -rnE '#include "[A-Za-z]+/internal/' "$include"; then
    fail "an installed header includes one that is not installed"
  fi
  # The package kit is a static library, whose classes are exported by nobody.
  if grep -rnE '^(class|struct) [A-Z][A-Za-z]* *(final *)?(:|\{|$)' \
    "$include"/{DiagCtrl,Diag,DeviceEnum,System}; then
    fail "an installed class is not exported"
  fi
  local library
  for library in diagframework diagctrl; do
    [[ $(readelf -d "$prefix/lib/lib$library.so") == *"soname: [lib$library.so.1]"* ]] ||
      fail "lib$library.so has another SONAME"
  done
}

build_cmake_client() {
  cp -r "$here/client" "$work/source"
  cmake -S "$work/source" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS="$CXXFLAGS" >/dev/null
  cmake --build "$work/build" >/dev/null
  expect UNINITIALISED "$work/build/client"
}

# What is in a template is compiled when it is used, so a client is compiled too.
check_client_header() {
  local header=$prefix/include/tarvexdiags/DiagCtrl/Client.h source compiler
  echo '#include "DiagCtrl/Client.h"' >"$work/alone.cpp"
  for source in "$work/alone.cpp" "$here/../../examples/short_client/ShortClient.cpp"; do
    for compiler in g++ clang++-14; do
      # shellcheck disable=SC2046  # words
      "$compiler" -std=c++20 -Wall -Wextra -Wconversion -Werror -DCONTROL_FILE='""' \
        $(pkg-config --cflags tarvexdiags) -fsyntax-only "$source" ||
        fail "$compiler has something to say about Client.h in $source"
    done
  done
  # The standard library, and the project's own headers.
  if grep '^#include' "$header" | grep -vE '<[a-z_]+>$|"(DiagCtrl|System)/[A-Za-z]+\.h"$'; then
    fail "Client.h brings a dependency along"
  fi
}

build_kit_package() {
  cp -r "$here/kit" "$work/source"
  cp -r "$here/../../examples/minimal_package" "$work/source/clock"
  cmake -S "$work/source" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS="$CXXFLAGS" >/dev/null
  cmake --build "$work/build" >/dev/null
  expect PASSED "$work/build/driver"
}

# Each can be configured by itself as well.
build_examples() {
  local flags=(-G Ninja "-DCMAKE_PREFIX_PATH=$prefix" "-DCMAKE_CXX_COMPILER=$CXX"
    "-DCMAKE_CXX_FLAGS=$CXXFLAGS") example client
  cp -r "$prefix/share/doc/tarvexdiags/examples" "$work/source"
  cmake -S "$work/source" -B "$work/build" "${flags[@]}" >/dev/null
  cmake --build "$work/build" >/dev/null
  # The controller leaves behind what it says it leaves behind.
  export ASAN_OPTIONS=detect_leaks=0
  for client in short_client minimal_client; do
    "$work/build/$client/$client" >"$work/output" || fail "$client exited with $?"
    grep -q 'on host/clocksource0 has ended: PASSED' "$work/output" || fail "$client ran no test"
  done
  grep -qx 'A request has ended.' "$work/output" || fail "the client had no texts of the controller"
  for example in "$work"/source/*/; do
    [[ -f $example/CMakeLists.txt ]] || continue # fleet/ has nothing to build
    cmake -S "$example" -B "$work/alone/$(basename "$example")" "${flags[@]}" >/dev/null ||
      fail "$example cannot be built by itself"
  done
}

build_pkg_config_client() {
  cp "$here/client/main.cpp" "$work"
  read -ra options <<<"$CXXFLAGS ${LDFLAGS:-} $(pkg-config --cflags --libs tarvexdiags)"
  "$CXX" "$work/main.cpp" -o "$work/client" "${options[@]}" \
    "-Wl,-rpath,$(pkg-config --variable=libdir tarvexdiags)"
  expect UNINITIALISED "$work/client"
  local messages
  messages=$(pkg-config --variable=messagefile tarvexdiags)
  cmp "$messages" "$here/../../DiagCtrl/messages.cfg" || fail "messagefile names no message file"
}

# Undefined symbols are refused: a package must get along with the framework alone.
build_package_module() {
  cp "$here"/module/*.cpp "$work"
  read -ra options <<<"$CXXFLAGS ${LDFLAGS:-} $(pkg-config --cflags --libs tarvexdiags-framework)"
  options+=("-Wl,-rpath,$(pkg-config --variable=libdir tarvexdiags-framework)")
  local no_undefined=-Wl,-z,defs
  [[ $CXXFLAGS != *-fsanitize* ]] || no_undefined=
  "$CXX" -shared -fPIC -fvisibility=hidden "$work/package.cpp" -o "$work/libpackage.so" \
    "${options[@]}" ${no_undefined:+"$no_undefined"}
  "$CXX" "$work/host.cpp" -o "$work/host" "${options[@]}"
  expect "host/device0 PASSED" "$work/host" "$work/libpackage.so"
}

# As the guide has it. Undefined symbols are refused.
build_pkg_config_kit() {
  local source=$here/../../examples/minimal_package packages=$work/packages kit language options
  kit=$(pkg-config --variable=kitdata tarvexdiags-packagekit)
  for language in en de fr es zh ja; do
    mkdir -p "$packages/$language"
    cat "$source/$language/clock.cfg" "$kit/$language/kit.cfg" >"$packages/$language/clock.cfg"
  done
  cat "$source/clock.cfg" "$kit/kit.cfg" >"$packages/clock.cfg"
  read -ra options <<<"$CXXFLAGS ${LDFLAGS:-} $(pkg-config --cflags tarvexdiags-packagekit)"
  [[ $("$CXX" --version) == *clang* ]] || options+=(-fno-gnu-unique)
  [[ $CXXFLAGS == *-fsanitize* ]] || options+=("-Wl,-z,defs")
  options+=("-Wl,-rpath,$(pkg-config --variable=libdir tarvexdiags-packagekit)")
  local libraries
  read -ra libraries <<<"$(pkg-config --libs tarvexdiags-packagekit)"
  "$CXX" -shared "$source/Clock.cpp" -o "$packages/libclock.so" "${options[@]}" "${libraries[@]}" \
    "-Wl,--version-script=$(pkg-config --variable=versionscript tarvexdiags-packagekit)"
  "$CXX" "$here/kit/main.cpp" -o "$work/driver" "-DPACKAGES=\"$packages\"" "${options[@]}" \
    "-L$prefix/lib" -lpackagekit_testing "${libraries[@]}"
  expect PASSED "$work/driver"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig

case $step in
  install) install_build ;;
  cmake-client) build_cmake_client ;;
  client-header) check_client_header ;;
  kit-package) build_kit_package ;;
  examples) build_examples ;;
  pkg-config-kit) build_pkg_config_kit ;;
  pkg-config-client) build_pkg_config_client ;;
  package-module) build_package_module ;;
  *) fail "unknown step $step" ;;
esac
