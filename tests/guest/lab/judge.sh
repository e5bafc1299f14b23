#!/bin/bash
# Proves that the judge of the guest's scripts can fail, without a guest.
# Usage: judge.sh FOLDER, which is emptied.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$1"
mkdir -p "$1"
cd "$1"

# case_of STATUS TEXT CHECKS MARKS: the judge exits with the status and tells the text.
case_of() {
  local wanted=$1 text=$2 status=0 told
  printf '%b' "$3" >script.checks
  printf '%b' "$4" >marks
  told=$(python3 "$here/../judge.py" script.checks marks 2>&1) || status=$?
  if ((status != wanted)) || [[ $told != *"$text"* ]]; then
    printf 'FAILED: of the checks\n%bwith the marks\n%bthe judge said, with %s:\n%s\n' \
      "$3" "$4" "$status" "$told" >&2
    exit 1
  fi
}

case_of 0 'passed: a' 'ok a\nend\n' ''
case_of 0 'failed, as expected: a' 'not ok a\nok b\nend\n' '# why\nscript a # reason\n'
case_of 0 'passed: a' 'ok a\nend\n' 'other a\n'
case_of 1 'FAILED: a' 'not ok a\nend\n' 'other a\n'
case_of 1 'FREED FROM ITS MARK: a' 'ok a\nend\n' 'script a\n'
case_of 1 'MARKED, BUT NOT CHECKED: b' 'ok a\nend\n' 'script b\n'
case_of 1 'not given: a disk' 'not ok a\nnot given: a disk\nend\n' 'script a\n'
case_of 1 'cut short' 'ok a\n' ''
case_of 1 'checked nothing' 'end\n' ''
case_of 1 'two checks have the name a' 'ok a\nok a\nend\n' ''
case_of 1 'a script and a check are wanted' 'ok a\nend\n' 'script\n'
rm script.checks
if python3 "$here/../judge.py" script.checks marks 2>/dev/null; then
  echo "FAILED: a script that never ran has passed" >&2
  exit 1
fi
