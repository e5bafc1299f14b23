#!/usr/bin/env bash
# In a bare system, as root, beside the packages: installs, uses and purges them as an operator and
# somebody who builds against them would.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
export DEBIAN_FRONTEND=noninteractive

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# apt's own words only where it fails.
install() {
  apt-get install -y --no-install-recommends "$@" >apt.log 2>&1 || {
    cat apt.log
    fail "apt-get install $*"
  }
}

# files_of_ours: what of the packages lies in the system.
files_of_ours() {
  find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /run -o -path /home/tree \) -prune -o \
    \( -iname '*tarvex*' -o -name '*diagctl*' -o -name 'libdiagframework*' \) -print
}

apt-get update >apt.log 2>&1 || {
  cat apt.log
  fail "apt-get update"
}

echo "-- installing"
install ./tarvexdiags_*.deb ./tarvexdiags-packages_*.deb ./libdiag*.deb
[[ $(stat -c %a /var/log/tarvexdiags) == 755 ]] || fail "the directory of logs is not root's alone"
diagctl check || fail "diagctl check exited with $?"
diagctl list >list.txt || fail "diagctl list exited with $?"
grep -qw MEMORY list.txt || fail "diagctl list tells of no tests of memory: $(cat list.txt)"
setpriv --reuid nobody --regid nogroup --clear-groups diagctl check || fail "as nobody: diagctl check exited with $?"
man_page=$(dpkg -L tarvexdiags | grep '/man1/diagctl.1.gz$') || fail "there is no man page"
gzip -t "$man_page"
for unit in tarvexdiags-health.timer tarvexdiags-health.service tarvexdiags-watch.service; do
  [[ -e /lib/systemd/system/$unit ]] || fail "there is no $unit"
  [[ -z $(find /etc/systemd -name "$unit" 2>/dev/null) ]] || fail "$unit was enabled by itself"
done
diagctl health -p memory --max-time 5m >health.txt || fail "diagctl health exited with $?: $(cat health.txt)"
setpriv --reuid nobody --regid nogroup --clear-groups diagctl health -p memory --cached 1h ||
  fail "as nobody: the last result is not told"
# The nightly unit's command is one that diagctl takes; what it would test was not tested yet.
nightly=$(sed -n 's/^ExecStart=//p' /lib/systemd/system/tarvexdiags-health.service)
status=0
# shellcheck disable=SC2086  # a command and its words
$nightly --cached 1h >nightly.txt 2>&1 || status=$?
[[ -n $nightly && $status != 64 ]] || fail "$nightly: $(cat nightly.txt)"
# No locale is installed here but the one that the system comes with.
LC_ALL=C.UTF-8 diagctl --lang de list >german.txt || fail "diagctl --lang de exited with $?"
grep -q PAKET german.txt || fail "diagctl --lang de list: $(cat german.txt)"
LC_ALL=C.UTF-8 diagctl --lang ja list | grep -q パッケージ || fail "diagctl speaks no Japanese"
# A log in English, told in other languages as text and as a page: more devices are expected than there are.
status=0
diagctl run -q -p platform --expect-devices 99999 -o jsonl=failed.jsonl >failed.txt || status=$?
[[ $status == 1 ]] || fail "diagctl run --expect-devices exited with $status: $(cat failed.txt)"
speaks() {
  local language=$1 word
  shift
  LC_ALL=C.UTF-8 diagctl --lang "$language" report failed.jsonl >told.txt || status=$?
  LC_ALL=C.UTF-8 diagctl --lang "$language" report failed.jsonl --format html >told.html || status=$?
  [[ $status == 1 ]] || fail "diagctl --lang $language report exited with $status"
  for word; do
    grep -qF "$word" told.txt || fail "the report in $language has no '$word': $(cat told.txt)"
    grep -qF "$word" told.html || fail "the page in $language has no '$word'"
  done
  if grep -F -e FAILED -e 'Expected devices' told.txt told.html; then fail "the report in $language is English"; fi
}
speaks de 'DEFEKT: Es liegt an der Hardware' 'Erwartete Geräte'
speaks ja '不合格：ハードウェアに故障があります' 'このマシン'

echo "-- selftest"
install ./tarvexdiags-selftest_*.deb
diagctl selftest >selftest.txt 2>&1 || {
  cat selftest.txt
  fail "diagctl selftest"
}

echo "-- a client and a package, built against the development files alone"
apt-get purge -y 'tarvexdiags*' >apt.log 2>&1 || fail "apt-get purge: $(cat apt.log)"
install ./libtarvexdiags-dev_*.deb ./libdiag*.deb ./tarvexdiags-doc_*.deb cmake g++ ninja-build pkg-config
[[ ! -e /usr/libexec/tarvexdiags ]] || fail "the development files brought the worker along"
if ! { cmake -S /usr/share/doc/tarvexdiags/examples -B examples -G Ninja &&
  cmake --build examples; } >cmake.log 2>&1; then
  cat cmake.log
  fail "the examples were not built"
fi
# shellcheck disable=SC2046  # several flags
g++ -std=c++20 /usr/share/doc/tarvexdiags/examples/short_client/ShortClient.cpp -o by_pkg_config \
  -DCONTROL_FILE='"control.cfg"' \
  $(pkg-config --cflags --libs tarvexdiags) || fail "a client was not built with pkg-config"

echo "-- purging"
apt-get purge -y 'tarvexdiags*' 'libtarvexdiags*' 'libdiag*' >apt.log 2>&1 || fail "apt-get purge: $(cat apt.log)"
left=$(files_of_ours)
[[ -z $left ]] || fail "what was purged left this behind: $left"
