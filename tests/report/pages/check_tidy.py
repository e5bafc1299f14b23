#!/usr/bin/env python3
"""Holds pages against HTML Tidy, and against what holds for each: no script, no request, a size.

Usage: check_tidy.py DIAGCTL: makes pages of runs of every kind, also of hostile names, and looks at each.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

import make_logs
import markup

LARGEST = 3_000_000
TOLD_IN = {"every": ["en", "de", "ja"], "hostile": ["en", "ja"]}
# What Tidy says of a page that is as it should be.
TAKEN = {
    # It takes the title of a drawing for that of the page; any element may have an id.
    '<title> proprietary attribute "id"',
}
# What is made wrong, to see that it is found.
MADE = [
    ("</table>", "", "missing </table>"),
    ("<main>", '<main><p align="left" nothing="1">', "nothing"),
    ("<main>", "<main><blink>x</blink>", "blink"),
    ("<main>", "<main><script>1</script>", "script"),
    ("<main>", '<main><img src="https://example.org/x" alt="x"/>', "may fetch"),
]


def page_of(diagctl, logs, language):
    command = [diagctl, "report", *logs, "--format", "html", "--lang", language]
    done = subprocess.run(command, stdout=subprocess.PIPE, check=False)
    if done.returncode > 2:
        raise SystemExit(f"FAILED: diagctl report ended with {done.returncode}")
    return done.stdout.decode("utf-8")


def faults_of(text):
    told = subprocess.run(
        ["tidy", "-quiet", "-errors", "-utf8"], input=text, capture_output=True, text=True, check=False).stderr
    for line in told.splitlines():
        match = re.fullmatch(r"line \d+ column \d+ - \w+: (.*)", line)
        if match is None or match[1] not in TAKEN:
            yield f"tidy: {line}"
    yield from markup.faults_of_markup(text)
    if len(text.encode("utf-8")) > LARGEST:
        yield f"it is larger than {LARGEST} bytes"


def faults_not_found(text):
    for old, new, wanted in MADE:
        if old not in text:
            yield f"a page has no {old}"
        elif not any(wanted in fault for fault in faults_of(text.replace(old, new, 1))):
            yield f"a fault that was made is not found: {wanted}"


def main():
    diagctl = sys.argv[1]
    failed = []
    with tempfile.TemporaryDirectory() as folder:
        for name, logs in make_logs.make(pathlib.Path(folder)).items():
            for language in TOLD_IN.get(name, ["en"]):
                page = page_of(diagctl, logs, language)
                failed += [f"{name}, {language}: {fault}" for fault in faults_of(page)]
                failed += [f"{name}, {language}: {fault}" for fault in markup.faults_of_language(page, language)]
                if name == "every" and language == "en":
                    failed += faults_not_found(page)
    if failed:
        print("FAILED:", *failed[:50], sep="\n  ", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
