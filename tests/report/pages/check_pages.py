#!/usr/bin/env python3
"""Looks at pages of runs as they are written and as a browser shows them.

Usage: check_pages.py DIAGCTL AXE FOLDER: axe.min.js; where logs, pages and pictures go.
"""

import concurrent.futures
import os
import pathlib
import shutil
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # beside the sources
import browser  # noqa: E402
import make_logs  # noqa: E402
import markup  # noqa: E402

LANGUAGES = ["de", "ja"]
TOLD_IN_EACH_LANGUAGE = ["every", "machines"]
TOLD_APART = ["hostile", "machines"]
LARGEST = 3_000_000  # bytes of a page of ten thousand steps

PALE = {"--quiet: #4d5660": "--quiet: #c0c0c0"}
# What is made wrong on a page, and what is then told of it.
MADE_FOR_THE_BROWSER = [
    ("light", PALE, "color-contrast"),
    ("narrow", {"<main>": '<main><div style="width: 900px">wide</div>'}, "stick out"),
    ("light", {"<main>": '<main><a href="#r1-todo"></a>'}, "link-name"),
    ("print", {"--quiet: #333333": "--quiet: #c0c0c0"}, "color-contrast"),
]
MADE_IN_THE_MARKUP = [
    (PALE, "--quiet is pale"),
    ({"<main>": '<main><img src="https://example.org/x"/>'}, "may fetch"),
    ({"html { ": "html { background: url(x.png); "}, "style fetches"),
    ({"<main>": '<main><a href="https://example.org">x</a>'}, "leads outside"),
    ({'style-src \'unsafe-inline\'"': 'style-src *"'}, "may fetch is"),
    ({"<desc": "<text", "</desc>": "</text>"}, "has no desc"),
    ({'<title id="': '<text id="'}, "has no title"),
    ({"<table": "<div", "</table>": "</div>"}, "no table"),
]


def report(diagctl, logs, page, *options):
    with open(page, "wb") as out:
        code = subprocess.run([diagctl, "report", *logs, *options], stdout=out, check=False)
    if code.returncode > 2:
        raise SystemExit(f"FAILED: diagctl report ended with {code.returncode}")


def make_pages(diagctl, folder):
    """@return the pages that are looked at, with their languages."""
    pages = {}
    for name, logs in make_logs.make(folder).items():
        for language in ["en", *(LANGUAGES if name in TOLD_IN_EACH_LANGUAGE else [])]:
            page = folder / (f"{name}.html" if language == "en" else f"{name}-{language}.html")
            report(diagctl, logs, page, "--format", "html", "--lang", language)
            pages[page] = language
        if name in TOLD_APART:
            apart = folder / f"{name}-apart"
            shutil.rmtree(apart, ignore_errors=True)
            report(diagctl, logs, folder / f"{name}.txt", "--split", apart)
            pages[apart / "index.html"] = "en"
            pages[sorted(apart.glob("[!i]*.html"))[0]] = "en"
    return pages


def faults_of_file(page, language):
    text = page.read_text("utf-8")
    yield from markup.faults_of_markup(text)
    yield from markup.faults_of_colours(text)
    yield from markup.faults_of_links(page)
    yield from markup.faults_of_language(text, language)
    if page.stat().st_size > LARGEST:
        yield f"{page.stat().st_size} bytes"


def changed(text, changes):
    for old, new in changes.items():
        if old not in text:
            raise SystemExit(f"FAILED: a page has no '{old}'")
        text = text.replace(old, new)
    return text


def faults_not_found(page, axe):
    """Each kind of fault that was made and that nothing tells of."""
    text = page.read_text("utf-8")
    for changes, wanted in MADE_IN_THE_MARKUP:
        wrong = changed(text, changes)
        if not any(wanted in fault for fault in [*markup.faults_of_markup(wrong), *markup.faults_of_colours(wrong)]):
            yield f"a fault that was made is not found: {wanted}"
    broken = page.with_name("broken.html")
    shutil.copy(page, broken)
    for look, changes, wanted in MADE_FOR_THE_BROWSER:
        found = browser.found_on(broken, look, axe, lambda shown, of=changes: changed(shown, of))
        if not any(wanted in fault for fault in browser.faults_of(found)):
            yield f"a fault that was made is not found: {look}, {wanted}"


def looked_at(page, look, axe):
    begin = time.monotonic()
    faults = [f"{page.parent.name}/{page.name}, {look}: {fault}"
              for fault in browser.faults_of(browser.found_on(page, look, axe))]
    print(f"{time.monotonic() - begin:6.1f} s  {page.parent.name}/{page.name}, {look}", flush=True)
    return faults


def main():
    diagctl, axe = sys.argv[1], pathlib.Path(sys.argv[2]).read_text("utf-8").replace("</script", "<\\/script")
    folder = pathlib.Path(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    pages = make_pages(diagctl, folder)
    failed = [f"{page.parent.name}/{page.name}: {fault}"
              for page, language in pages.items() for fault in faults_of_file(page, language)]
    failed += faults_not_found(folder / "every.html", axe)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        looks = [pool.submit(looked_at, page, look, axe) for page in pages for look in browser.LOOKS]
        failed += [fault for look in looks for fault in look.result()]
    if failed:
        print("FAILED:", *failed, sep="\n  ", file=sys.stderr)
        return 1
    print(f"{len(looks)} looks at {len(pages)} pages; pictures and prints: {folder}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
