#!/usr/bin/env python3
"""Says whether a script of the guest told what it must: its checks against the expected failures.

usage: judge.py CHECKS MARKS
CHECKS  what the script wrote: "ok NAME", "not ok NAME", "not given: ...", and "end" when it got there
MARKS   the expected failures: "SCRIPT NAME" lines, and comments

A check that fails must be marked. One that is marked and passes is an error too: it is freed from its
mark, and the line has to go."""

import pathlib
import sys


def read_marks(file, script):
    marks = set()
    for line in pathlib.Path(file).read_text(encoding="utf-8").splitlines():
        words = line.split("#")[0].split()
        if words and len(words) != 2:
            raise SystemExit(f"{file}: a script and a check are wanted: {line}")
        if words and words[0] == script:
            marks.add(words[1])
    return marks


def read_checks(file):
    """The checks by name, in their order, and what is wrong with the script itself."""
    path = pathlib.Path(file)
    if not path.exists():
        return {}, ["the script has not run"]
    checks, troubles, lines = {}, [], path.read_text(encoding="utf-8").splitlines()
    for line in lines:
        word, _, name = line.rpartition(" ")
        if line.startswith("not given"):
            troubles.append(line)
        elif word in ("ok", "not ok"):
            if name in checks:
                troubles.append(f"two checks have the name {name}")
            checks[name] = word == "ok"
    if "end" not in lines:
        troubles.append("the script was cut short")
    if not checks:
        troubles.append("the script has checked nothing")
    return checks, troubles


def judge(checks, marks):
    """A line for each check, and the errors among them."""
    lines, errors = [], []
    for name, passed in checks.items():
        marked = name in marks
        text = {(True, False): "passed", (False, True): "failed, as expected",
                (False, False): "FAILED", (True, True): "FREED FROM ITS MARK"}[passed, marked]
        lines.append(f"{text}: {name}")
        if passed == marked:
            errors.append(lines[-1])
    errors += [f"MARKED, BUT NOT CHECKED: {name}" for name in sorted(marks - checks.keys())]
    return lines, errors


def main(checks_file, marks_file):
    script = pathlib.Path(checks_file).stem
    checks, troubles = read_checks(checks_file)
    lines, errors = judge(checks, read_marks(marks_file, script))
    print("\n".join(lines))
    if troubles or errors:
        print("\n".join([f"{script}:", *troubles, *errors]), file=sys.stderr)
        return 1
    return 0


if len(sys.argv) != 3:
    raise SystemExit(__doc__)
sys.exit(main(*sys.argv[1:]))
