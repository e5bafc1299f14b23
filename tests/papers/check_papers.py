#!/usr/bin/env python3
"""Holds the pages against the tree.

Usage: check_papers.py ROOT [FINDING]: there must be nothing wrong below ROOT, or this finding and no
other.

- Links in every page lead to a file, and to a heading of it.
- What pages about the code say in backquotes exists: paths, files, and names of the code.
- DiagCtrl/README.md names each header of DiagCtrl/.
- docs/architecture.md names each lock of DiagCtrl/ in its order of locks.
- Each folder of packages/ has a README; that of a package leads to its tests.
"""

import pathlib
import re
import sys

SOURCES = ("System", "Diag", "DeviceEnum", "DiagCtrl", "packagekit", "packages", "diagctl", "tests",
           "cmake", "examples", "bench", "tools")
SKIPPED = ("build", ".git", ".cache")
ABOUT_CODE = ("docs/architecture.md", "DiagCtrl/README.md", "packages/*/README.md", "SECURITY.md")
NAME = re.compile(r"~?[A-Za-z_]\w*(::~?\w+)*(\(\))?")
FILE_NAME = re.compile(r"[\w.-]+\.(cpp|h|inc|md|cfg|py|sh|pml|txt)")
PATH = re.compile(r"[\w.-]+(/[\w.-]+)*/?")


def files_below(root, pattern):
    return sorted(file for file in root.rglob(pattern)
                  if not set(file.relative_to(root).parts) & set(SKIPPED))


def prose_of(page):
    return re.sub(r"^```.*?^```", "", page.read_text(encoding="utf-8"), flags=re.M | re.S)


def anchors_of(page):
    headings = re.findall(r"^#+ (.*)$", prose_of(page), flags=re.M)
    plain = (re.sub(r"[^\w\- ]", "", heading.lower()) for heading in headings)
    return {heading.strip().replace(" ", "-") for heading in plain}


def wrong_links(root):
    for page in files_below(root, "*.md"):
        for target in re.findall(r"\]\(([^)\s]+)\)", prose_of(page)):
            if re.match(r"[a-z]+:", target):
                continue
            path, _, anchor = target.partition("#")
            file = page.parent / path if path else page
            if not file.exists():
                yield f"{page.relative_to(root)} leads to {target}, which is not there"
            elif anchor and file.suffix == ".md" and anchor not in anchors_of(file):
                yield f"{page.relative_to(root)} leads to {target}, a heading that is not there"


def words_of(root):
    """Every word of the code, and the names of all files and folders."""
    words = set()
    for folder in SOURCES:
        for file in files_below(root / folder, "*"):
            if file.parent == root / "tests/papers":
                continue  # names things that are not there
            words.update(file.name.split(".")[0:1] + [file.name, file.stem])
            if file.is_file() and file.suffix != ".md":
                words.update(re.findall(r"\w+", file.read_text(encoding="utf-8", errors="ignore")))
    return words


def is_there(root, page, words, text):
    if "/" in text:
        # The rooms of the front end are named as its sources name them.
        places = (root, page.parent, root / "diagctl")
        return any((place / (text + suffix)).exists() for place in places for suffix in ("", ".h"))
    if FILE_NAME.fullmatch(text):
        return text in words or any((place / text).exists() for place in (root, page.parent))
    return re.findall(r"\w+", text)[-1] in words


def wrong_names(root):
    words = words_of(root)
    for pattern in ABOUT_CODE:
        for page in sorted(root.glob(pattern)):
            for text in re.findall(r"`([^`]+)`", prose_of(page)):
                isChecked = (NAME.fullmatch(text) or FILE_NAME.fullmatch(text)
                             or ("/" in text and PATH.fullmatch(text) and not is_place(text)))
                if isChecked and not is_there(root, page, words, text):
                    yield f"{page.relative_to(root)} names {text}, which is not there"


def is_place(text):
    """Names of devices, and of folders of an installation, have a slash too."""
    return text.startswith(("host/", "lib/"))


def headers_without_word(root):
    readme = root / "DiagCtrl/README.md"
    named = set(re.findall(r"`(\w+)`", readme.read_text(encoding="utf-8"))) if readme.exists() else set()
    for header in files_below(root / "DiagCtrl", "*.h"):
        if header.stem not in named:
            yield f"DiagCtrl/README.md does not name {header.stem}"


def locks_without_place(root):
    page = root / "docs/architecture.md"
    text = prose_of(page) if page.exists() else ""
    order = text.partition("\n## Order of locks\n")[2].partition("\n## ")[0]
    declared = re.compile(r"^ *(?:static )?(?:DiagCtrlLock|System::(?:Shared)?Mutex) (m\w+)\b[^(]*$", re.M)
    locks = set()
    for header in files_below(root / "DiagCtrl", "*.h"):
        locks.update(declared.findall(header.read_text(encoding="utf-8")))
    for lock in sorted(locks):
        if f"`{lock}`" not in order:
            yield f"docs/architecture.md has no place for {lock}"


def packages_without_readme(root):
    for folder in sorted(path for path in root.glob("packages/*") if path.is_dir()):
        readme = folder / "README.md"
        if not readme.exists():
            yield f"packages/{folder.name} has no README.md"
            continue
        list_file = folder / "CMakeLists.txt"
        made = list_file.read_text(encoding="utf-8") if list_file.exists() else ""
        isBundled = "tarvex_add_package(" in made and "GROUP" not in made
        if isBundled and "(../../docs/tests.md#" not in readme.read_text(encoding="utf-8"):
            yield f"packages/{folder.name}/README.md does not lead to its tests"


def main():
    root = pathlib.Path(sys.argv[1])
    wanted = sys.argv[2:]
    findings = [finding for check in (wrong_links, wrong_names, headers_without_word,
                                      locks_without_place, packages_without_readme)
                for finding in check(root)]
    if findings != wanted:
        for finding in findings or [f"nothing found instead of \"{wanted[0]}\""]:
            print("FAILED:", finding, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
