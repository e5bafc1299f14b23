#!/usr/bin/env python3
"""Proves that no word of the program itself is left in English when another language is asked for.

Usage: check_pseudo_language.py ROOT PREFIX: a copy of what is installed below PREFIX gets a word list
in which every letter is another, and what it prints then is held against the words that may stand there:
those of packages, of files and of the command line.
"""

import getpass
import html
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

LANGUAGE = "ja"
# The letters of the catalogue: full width, which no package uses.
OTHER = {ord(c): ord(c) + 0xFEE0 for c in map(chr, range(0x21, 0x7F)) if c.isalpha()}
KEPT = re.compile(r"(\{[^{}]*\}|\\.)")
WORD = re.compile(r"[A-Za-z][a-z]{2,}")
STRING = re.compile(r'^((?:msgid(?:_plural)?|msgstr(?:\[\d+\])?) )?"(.*)"$')

# What a program is called with stands in its answers.
COMMANDS = [
    (0, ["list"]),
    (0, ["list", "devices"]),
    (0, ["list", "tests"]),
    (0, ["show", "network"]),
    (0, ["show", "Loopback datagrams"]),
    (0, ["estimate", "-p", "network", "-t", "Loopback datagrams"]),
    (0, ["run", "-v", "-q", "--watch", "off", "--quick", "-p", "network", "-t", "Loopback datagrams"]),
    (0, ["run", "--dry-run", "-p", "network"]),
    (3, ["run", "-q", "-t", "zzzz"]),
    (0, ["explain", "KIT_WORKER_CRASHED"]),
    (0, ["explain", "LOAD_LIBRARY_FAILED"]),
    (0, ["explain", "exit:2"]),
    (64, ["runn"]),
    (64, ["run", "--pases", "3"]),
    (64, ["run", "--passes", "none"]),
    (64, ["run", "--format", "pdf"]),
    (2, ["report", "/dev/null"]),
    (64, ["merge"]),
    (64, ["inventory", "golden", "/dev/null", "-o", "/dev/null"]),
    (64, ["inventory", "check"]),
    (64, ["health", "--drain"]),
    (64, ["watch", "--for", "none"]),
    (64, ["selftest", "--pases"]),
    (0, ["check"]),
    (0, ["watch", "--for", "1s"]),
]
# What monitors and schedulers read is English in every language: a result that was told in one is told again to
# those who read another.
ENGLISH = ["health", "-p", "network", "-t", "Loopback datagrams"]
# How the log of a run is told.
OF_A_LOG = [[], ["--format", "html"]]
# What is the same in every language: names, and words of the command line.
NAMES = {"Linux", "customer", "diagctl", "html", "json", "jsonl", "junit", "root", "standard", "tap"}
# What the watch reads, as --watch takes it.
NAMES |= {"aer", "disk", "edac", "hwmon", "kmsg", "mce", "net", "nvme", "power", "psi", "throttle"}
# The key of a setting, where it is one word.
NAMES |= {"Seed"}
NAMES |= set(getpass.getuser().split())


def pseudo(text):
    return "".join(part if KEPT.fullmatch(part) else part.translate(OTHER) for part in KEPT.split(text))


def catalogue(template):
    """The word list of a template, with other letters."""
    source = subprocess.run(["msgen", "--no-wrap", str(template)], check=True, capture_output=True, text=True).stdout
    lines, is_translation, is_head = [], False, True
    for line in source.split("\n"):
        match = STRING.match(line)
        if match and match[1]:
            is_translation = match[1].startswith("msgstr")
        if not line:
            is_head = False
        if match and is_translation and not is_head:
            line = f'{match[1] or ""}"{pseudo(match[2])}"'
        lines.append(line.replace("nplurals=INTEGER; plural=EXPRESSION", "nplurals=2; plural=(n != 1)"))
    return "\n".join(lines)


def words_of_packages(prefix):
    words = set()
    for path in prefix.rglob("*.cfg"):
        words |= set(WORD.findall(path.read_text(encoding="utf-8")))
    return words


def words_of_machine(diagctl):
    """Names of devices, and reasons of the system."""
    answer = subprocess.run(
        [str(diagctl), "--allow-insecure", "list", "devices", "--format", "json"],
        check=True, capture_output=True, text=True).stdout
    texts = [os.strerror(number) for number in range(1, 134)]
    for device in json.loads(answer)["devices"]:
        texts += [device["name"], device["tag"]]
    return set(WORD.findall(" ".join(texts)))


def words_of_log(path):
    """What a log has of the machine, of packages, of the command line and of details; not the program's own."""
    texts = []

    def take(value, key=""):
        if isinstance(value, dict):
            for name, part in value.items():
                texts.extend([name] if key == "parameters" else [])
                take(part, "detail" if value.get("severity") == "DEBUG" else name)
        elif isinstance(value, list):
            for part in value:
                take(part, key)
        elif isinstance(value, str) and key != "message" and not value.startswith("diagctl: "):
            texts.append(re.sub(r"([a-z])([A-Z])", r"\1 \2", value).lower())
            texts.append(value)

    for line in path.read_text("utf-8").splitlines():
        take(json.loads(line))
    return set(WORD.findall(" ".join(texts)))


def told_by_page(page):
    """What is read on a page, and what is read aloud of it."""
    page = re.sub(r"<style>.*?</style>", " ", page, flags=re.DOTALL)
    page = re.sub(r'<[^>]*aria-label="([^"]*)"[^>]*>', r" \1 ", page)
    return html.unescape(re.sub(r"<[^>]*>", " ", page))


def words_left(diagctl, arguments, status, allowed):
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    done = subprocess.run(
        [str(diagctl), "--allow-insecure", "--lang", LANGUAGE, *arguments],
        capture_output=True, text=True, cwd="/", env=environment, check=False)
    output = (told_by_page(done.stdout) if "<html" in done.stdout else done.stdout) + done.stderr
    if done.returncode != status:
        yield f"ended with {done.returncode}: {output}"
    if not is_other(output):
        yield f"no word of the other language: {output}"
    given = set(WORD.findall(" ".join(arguments)))
    for line in output.split("\n"):
        # Paths, options, quoted commands, and what has digits or signs of a code in it.
        bare = re.sub(r'"[^"]*"|\'[^\']*\'|\S*[/_=\d]\S*|\w*[a-z][A-Z]\w*|--?[a-z][a-z-]*|\S+\.\S+', " ", line)
        for word in WORD.findall(bare):
            if word not in allowed | given:
                yield f"{word}: {line}"


def is_other(text):
    return any(chr(letter) in text for letter in OTHER.values())


def words_of_others(diagctl, folder):
    """Of another language in what is told in English."""
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    for more in ([], ["--cached", "1h"], ["--style", "nagios"]):
        done = subprocess.run(
            [str(diagctl), "--allow-insecure", "--lang", LANGUAGE, *ENGLISH, "--state", str(folder), *more],
            capture_output=True, text=True, cwd="/", env=environment, check=False)
        if is_other(done.stdout) or not done.stdout:
            yield f"{' '.join(ENGLISH + more)}: {done.stdout or done.stderr}"


def words_left_of_inventory(diagctl, folder, allowed):
    """Of a machine that is not what it should be."""
    path = pathlib.Path(folder) / "inventory.json"
    subprocess.run([str(diagctl), "inventory", "-o", str(path)], check=True)
    expected = json.loads(path.read_text("utf-8"))
    expected["kernel"]["release"] = "0.1"
    path.write_text(json.dumps(expected), "utf-8")
    arguments = ["inventory", "check", "-v", "--against", str(path)]
    yield from (f"{' '.join(arguments)}: {left}" for left in words_left(diagctl, arguments, 0, allowed))


def words_left_of_log(diagctl, log, allowed):
    """Of a run that fails, since fewer devices are there than it expects; by itself, and with another."""
    command = ["run", "-q", "--quick", "-p", "network", "-t", "Loopback datagrams", "--expect-devices", "999",
               "-o", f"jsonl={log}"]
    told = [(command, allowed)]
    merged = log.with_name("merged.jsonl")
    told += [(["merge", str(log), str(log), "-o", str(merged)], None)]
    told += [(["report", *logs, *options], None) for logs in ([str(log)], [str(log)] * 2) for options in OF_A_LOG]
    for arguments, words in told:
        found = words_left(diagctl, arguments, 1, words or allowed | words_of_log(log))
        yield from (f"{' '.join(arguments)}: {left}" for left in found)


def main():
    root, installed = map(pathlib.Path, sys.argv[1:3])
    with tempfile.TemporaryDirectory() as folder:
        prefix = pathlib.Path(folder) / "prefix"
        shutil.copytree(installed, prefix, symlinks=True)
        template = pathlib.Path(folder) / "texts.pot"
        subprocess.run([str(root / "tools" / "word-lists"), "--template", str(template)], check=True)
        words = pathlib.Path(folder) / "words.po"
        words.write_text(catalogue(template), encoding="utf-8")
        target = prefix / "share" / "locale" / LANGUAGE / "LC_MESSAGES" / "diagctl.mo"
        subprocess.run(["msgfmt", "-o", str(target), str(words)], check=True)
        diagctl = prefix / "bin" / "diagctl"
        allowed = words_of_packages(prefix) | words_of_machine(diagctl) | NAMES
        found = [
            f"{' '.join(arguments)}: {left}"
            for status, arguments in COMMANDS
            for left in words_left(diagctl, arguments, status, allowed)
        ]
        found += words_of_others(diagctl, pathlib.Path(folder) / "state")
        found += words_left_of_inventory(diagctl, folder, allowed)
        found += words_left_of_log(diagctl, pathlib.Path(folder) / "run.jsonl", allowed)
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
