#!/usr/bin/env python3
"""Proves that each text of the program is there in every language, with the places of its arguments.

Usage: check_words.py ROOT [FINDING]: looks at the texts of diagctl/ and watch/ below ROOT and at the
word lists po/*.po; there must be no finding, or this one and no other.
"""

import collections
import pathlib
import re
import subprocess
import sys
import tempfile

TOOL = pathlib.Path(__file__).resolve().parents[2] / "tools" / "word-lists"
LINE = re.compile(r'^(?P<key>msgid|msgid_plural|msgstr(?:\[\d+\])?) "(?P<text>.*)"$')
PLACE = re.compile(r"\{(?P<number>\d*)(?P<form>:[^{}]*)?\}")
# What English tells one thing with, any language may tell without its number.
COUNT = "0"


def entries(path):
    """The texts of a word list by their English: (whether it is fuzzy, English plural, translations)."""
    # The tool brings every text into one line.
    text = subprocess.run(
        ["msgcat", "--no-wrap", str(path)], check=True, capture_output=True, text=True
    ).stdout
    found = {}
    for block in text.split("\n\n"):
        parts, key = {}, None
        for line in block.split("\n"):
            start = LINE.match(line)
            if start:
                key = start["key"]
                parts[key] = start["text"]
            elif line.startswith('"') and key:
                parts[key] += line[1:-1]
        if parts.get("msgid"):
            texts = [part for key, part in parts.items() if key.startswith("msgstr")]
            is_fuzzy = re.search(r"^#,.*\bfuzzy\b", block, re.MULTILINE) is not None
            found[parts["msgid"]] = (is_fuzzy, parts.get("msgid_plural"), texts)
    return found


def places(text):
    """The places of a text: those without a number are counted."""
    found = collections.Counter()
    for index, place in enumerate(PLACE.finditer(text.replace("{{", "").replace("}}", ""))):
        found[(place["number"] or str(index), place["form"] or "")] += 1
    return found


def is_mixed(text):
    kinds = {place["number"] == "" for place in PLACE.finditer(text)}
    return len(kinds) > 1


def fits(translation, source, plural):
    if is_mixed(translation):
        return False
    wanted = set(places(source)) | set(places(plural or source))
    told = set(places(translation))
    needed = set(places(source)) & set(places(plural or source))
    missing = {number for number, _ in needed - told}
    return told <= wanted and missing <= ({COUNT} if plural else set())


def findings_in(path, texts):
    known = entries(path)
    name = path.stem
    for source, (_, plural, _) in texts.items():
        is_fuzzy, _, translations = known.get(source, (False, None, []))
        if not translations or not all(translations):
            yield f"{name}: not translated: {source}"
        elif is_fuzzy:
            yield f"{name}: not sure: {source}"
        for translation in filter(None, translations):
            if not fits(translation, source, plural):
                yield f"{name}: other places: {source}: {translation}"
    for source in known.keys() - texts.keys():
        yield f"{name}: in no source: {source}"


def findings(root):
    with tempfile.NamedTemporaryFile(suffix=".pot") as template:
        subprocess.run([str(TOOL), "--template", template.name, str(root)], check=True)
        texts = entries(template.name)
    lists = sorted((root / "po").glob("*.po"))
    if not texts or not lists:
        yield "nothing to look at"
    for path in lists:
        yield from findings_in(path, texts)


def main():
    root = pathlib.Path(sys.argv[1])
    wanted = sys.argv[2:]
    found = list(findings(root))
    for finding in found:
        print(finding)
    return 0 if found == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
