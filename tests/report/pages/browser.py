"""How a browser shows a page: what axe-core finds on it, whether anything sticks out of the window,
a picture and a print."""

import html
import json
import re
import subprocess

BROWSER = ["chromium-headless-shell", "--no-sandbox", "--disable-gpu", "--hide-scrollbars"]
DARK = "--blink-settings=preferredColorScheme=0"
LOOKS = {
    "light": ["--window-size=1100,2400"],
    "dark": ["--window-size=1100,2400", DARK],
    "narrow": ["--window-size=400,2400"],
    "print": ["--window-size=794,2400", DARK],  # as wide as paper, by somebody who has it dark
}
# What axe leaves to people: signs beside a word, and texts of plots, whose colours are those of the
# texts beside them.
LEFT_TO_PEOPLE = {"color-contrast"}
FEWEST_RULES = 10
LONGEST = 600  # seconds
# Everything is looked at unfolded, and shown as its reader first sees it.
PROBE = """<script>%s</script><script>
addEventListener("load", () => {
  const folded = [...document.querySelectorAll("details:not([open])")];
  folded.forEach(part => { part.open = true; });
  const wanted = {type: "tag", values: ["wcag2a", "wcag2aa", "wcag21aa", "best-practice"]};
  axe.run(document, {runOnly: wanted}).then(found => {
    const root = document.documentElement;
    const told = document.createElement("pre");
    told.id = "found";
    told.hidden = true;
    told.textContent = JSON.stringify({
      violations: found.violations.map(
        rule => rule.id + ": " + rule.nodes.slice(0, 3).map(node => node.html.slice(0, 120)).join(" | ")),
      incomplete: found.incomplete.map(rule => rule.id),
      passes: found.passes.length,
      overflow: root.scrollWidth - root.clientWidth});
    folded.forEach(part => { part.open = false; });
    document.body.append(told);
  });
});</script>"""


def dressed_for(look, text):
    """The page forbids scripts, so a copy that does not is looked at; for paper, with its rules."""
    text = re.sub(r'<meta http-equiv="Content-Security-Policy"[^>]*/>', "", text)
    return text.replace("@media print", "@media all") if look == "print" else text


def found_on(page, look, axe, dress=lambda text: text):
    """What axe finds. Leaves a picture beside the page, or a print."""
    text = dressed_for(look, page.read_text("utf-8"))
    probe = page.with_suffix(f".{look}.probe.html")
    probe.write_text(dress(text).replace("</body>", PROBE % axe + "</body>"), "utf-8")
    kept = (["--no-pdf-header-footer", f"--print-to-pdf={page.with_suffix('.pdf')}"] if look == "print"
            else [f"--screenshot={page.with_suffix('')}-{look}.png"])
    shown = subprocess.run(
        [*BROWSER, *LOOKS[look], "--virtual-time-budget=300000", "--dump-dom", *kept, probe.resolve().as_uri()],
        check=True, capture_output=True, text=True, timeout=LONGEST).stdout
    probe.unlink()
    told = re.search(r'<pre id="found"[^>]*>(.*?)</pre>', shown, re.DOTALL)
    if told is None:
        raise SystemExit(f"FAILED: {page.name}, {look}: axe told nothing")
    return json.loads(html.unescape(told.group(1)))


def faults_of(found):
    yield from found["violations"]
    yield from (rule for rule in found["incomplete"] if rule not in LEFT_TO_PEOPLE)
    if found["overflow"] > 0:
        yield f"{found['overflow']} pixels stick out of the window"
    if found["passes"] < FEWEST_RULES:
        yield "hardly anything was checked"
