#!/usr/bin/env python3
"""Proves of the front end's sources that texts for people are marked, and that all is printed in
one place.

Usage: check_texts.py ROOT [FINDING]: looks at diagctl/ below ROOT; there must be no finding, or
this one and no other.

A literal that holds two words, or a word and a place for an argument, one behind the other is a text
for people. It must be an argument of one of the functions that mark, so that it can be told in
another language. What only machines read stands below, by file.
"""

import pathlib
import re
import sys

MARKING = {"tr", "trn", "marked", "say", "english"}

# Formats, and the lines of files and of other programs.
FOR_MACHINES = {
    "diagctl/health/SlurmState.cpp",
    "diagctl/report/JsonlReporter.cpp",
    "diagctl/report/JunitReporter.cpp",
    "diagctl/report/RunMetrics.cpp",
    "diagctl/report/TapReporter.cpp",
}

# The one place that may know the standard streams.
PRINTING = {"diagctl/terminal/Printer.cpp"}
PRINTS = re.compile(
    r"\bstd::(cout|cerr|clog)\b|<(iostream|stdio\.h|fmt/ostream\.h)>|\bfmt::print\b"
    r"|\b(v?f?printf|f?puts|f?putc|putchar|perror|psignal)\s*\("
    r"|\bwrite\s*\(\s*(STDOUT_FILENO|STDERR_FILENO|[12])\s*,"
)

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/
      |R"(?P<delimiter>[^(\s]*)\((?P<raw>.*?)\)(?P=delimiter)"
      |"(?P<text>(?:[^"\\\n]|\\.)*)"
      |'(?:[^'\\\n]|\\.)+'
      |\#\s*include[^\n]*
      |[A-Za-z_]\w*|\d[\w.']*|\S""",
    re.DOTALL | re.VERBOSE,
)
EXAMPLE = re.compile(r"^  diagctl [^:]*$", re.MULTILINE)  # of a command line
# A word, and another one or a place for an argument.
TWO_WORDS = re.compile(r"[A-Za-z][a-z]+([,;:.]? [a-z]{2,}|[,;.]? \{)|\} [a-z]{2,}")


def unmarked(source):
    """The texts for people that are not marked, with their lines."""
    callers = [""]  # of the brackets around, the innermost last
    last = ""
    text, line, found = None, 0, []
    for token in TOKEN.finditer(source):
        word = token.group()
        if word.startswith(("//", "/*", "#")):
            continue
        literal = token.group("text")
        literal = token.group("raw") if literal is None else literal
        if literal is not None:
            if text is None:
                text, line = "", source.count("\n", 0, token.start()) + 1
            text += EXAMPLE.sub("", literal.replace("\\n", "\n"))
            continue
        if text is not None and TWO_WORDS.search(text) and callers[-1] not in MARKING:
            found.append((line, text.strip().split("\n")[0]))
        text = None
        if word in "([{":
            callers.append(last if word == "(" else "")
        elif word in ")]}" and len(callers) > 1:
            callers.pop()
        last = word
    return found


def findings(root):
    for path in sorted((root / "diagctl").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        name = path.relative_to(root).as_posix()
        source = path.read_text(encoding="utf-8")
        if name not in FOR_MACHINES:
            for line, text in unmarked(source):
                yield f"{name}:{line}: not marked: {text}"
        if name not in PRINTING:
            code = re.sub(r"//[^\n]*", "", source)
            for match in PRINTS.finditer(code):
                line = code.count("\n", 0, match.start()) + 1
                yield f"{name}:{line}: printed beside the printer: {match.group().strip()}"


def main():
    found = list(findings(pathlib.Path(sys.argv[1])))
    if found != sys.argv[2:]:
        print("FAILED:", *(found or ["nothing was found"]), sep="\n  ", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
