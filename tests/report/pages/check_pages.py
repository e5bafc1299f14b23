#!/usr/bin/env python3
"""Looks at pages of runs as a browser shows them: by the rules of axe-core, and whether anything
sticks out of the window.

Usage: check_pages.py DIAGCTL AXE FOLDER: axe.min.js; where logs, pages and pictures go.
"""

import html
import json
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # beside the sources
import make_logs  # noqa: E402

BROWSER = ["chromium-headless-shell", "--no-sandbox", "--disable-gpu", "--hide-scrollbars"]
LOOKS = {
    "light": ["--window-size=1100,2400"],
    "dark": ["--window-size=1100,2400", "--blink-settings=preferredColorScheme=0"],
    "narrow": ["--window-size=400,2400"],
}
# What axe leaves to people: signs beside a word, and texts of plots, whose colours are those of the
# texts beside them.
LEFT_TO_PEOPLE = {"color-contrast"}
LARGEST = 3_000_000  # bytes of a page of ten thousand steps
PROBE = """<script>%s</script><script>
addEventListener("load", () => {
  document.querySelectorAll("details").forEach(part => { part.open = true; });
  const wanted = {type: "tag", values: ["wcag2a", "wcag2aa", "wcag21aa", "best-practice"]};
  axe.run(document, {runOnly: wanted}).then(found => {
    const root = document.documentElement;
    const told = document.createElement("pre");
    told.id = "found";
    told.textContent = JSON.stringify({
      violations: found.violations.map(
        rule => rule.id + ": " + rule.nodes.slice(0, 3).map(node => node.html.slice(0, 120)).join(" | ")),
      incomplete: found.incomplete.map(rule => rule.id),
      passes: found.passes.length,
      overflow: root.scrollWidth - root.clientWidth});
    document.body.append(told);
  });
});</script>"""


def report(diagctl, logs, page):
    with open(page, "wb") as out:
        code = subprocess.run([diagctl, "report", *logs, "--format", "html"], stdout=out, check=False)
    if code.returncode > 2:
        raise SystemExit(f"FAILED: diagctl report ended with {code.returncode}")


def browse(page, look, *arguments):
    return subprocess.run([*BROWSER, *LOOKS[look], *arguments, page.resolve().as_uri()], check=True,
                          capture_output=True, text=True, timeout=600).stdout


def found_on(page, look, axe, dress=lambda text: text):
    """What axe finds. The page forbids scripts, so a copy that does not is looked at."""
    text = re.sub(r'<meta http-equiv="Content-Security-Policy"[^>]*/>', "", page.read_text("utf-8"))
    probe = page.with_suffix(f".{look}.probe.html")
    probe.write_text(dress(text).replace("</body>", PROBE % axe + "</body>"), "utf-8")
    told = re.search(r'<pre id="found">(.*?)</pre>',
                     browse(probe, look, "--virtual-time-budget=300000", "--dump-dom"), re.DOTALL)
    probe.unlink()
    if told is None:
        raise SystemExit(f"FAILED: {page.name}, {look}: axe told nothing")
    return json.loads(html.unescape(told.group(1)))


def faults_of(found):
    yield from found["violations"]
    yield from (rule for rule in found["incomplete"] if rule not in LEFT_TO_PEOPLE)
    if found["overflow"] > 0:
        yield f"{found['overflow']} pixels stick out of the window"
    if found["passes"] < 10:
        yield "hardly anything was checked"


def check_that_faults_are_found(page, axe):
    """Pale text, and a part that is too wide."""
    pale = found_on(page, "light", axe, lambda text: text.replace("--quiet: #4d5660", "--quiet: #c0c0c0"))
    wide = found_on(page, "narrow", axe, lambda text: text.replace(
        "<body>", '<body><div style="width: 900px">wide</div>'))
    if not any("contrast" in rule for rule in pale["violations"]) or wide["overflow"] <= 0:
        raise SystemExit("FAILED: faults that were made are not found")


def main():
    diagctl, axe = sys.argv[1], pathlib.Path(sys.argv[2]).read_text("utf-8").replace("</script", "<\\/script")
    folder = pathlib.Path(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    failed = []
    for name, logs in make_logs.make(folder).items():
        page = folder / f"{name}.html"
        report(diagctl, logs, page)
        if page.stat().st_size > LARGEST:
            failed.append(f"{name}: {page.stat().st_size} bytes")
        for look in LOOKS:
            failed += [f"{name}, {look}: {fault}" for fault in faults_of(found_on(page, look, axe))]
            browse(page, look, f"--screenshot={folder / f'{name}-{look}.png'}")
        browse(page, "light", "--no-pdf-header-footer", f"--print-to-pdf={folder / f'{name}.pdf'}")
    check_that_faults_are_found(folder / "every.html", axe)
    if failed:
        print("FAILED:", *failed, sep="\n  ", file=sys.stderr)
        return 1
    print(f"pages, pictures and prints: {folder}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
