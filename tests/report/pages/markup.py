"""What must hold of a page as it is written: nothing is fetched, no script runs, each plot has a
title, a description and a table, each link leads somewhere, colours stand out."""

import html
import html.parser
import re

POLICY = "default-src 'none'; style-src 'unsafe-inline'"
FETCHING_TAGS = {"script", "link", "img", "iframe", "object", "embed", "base", "form", "audio", "video",
                 "source", "image", "use", "foreignobject"}
FETCHING_ATTRIBUTES = {"src", "srcset", "xlink:href", "action", "background", "poster", "ping"}
LEAST_CONTRAST = 4.5
GROUNDS = {"page", "card"}
LINES = {"line"}  # divide what is told apart without them


class Reader(html.parser.HTMLParser):
    """Reads a page, and keeps what is wrong with it."""

    def __init__(self):
        super().__init__()
        self.faults = []
        self.policies = []
        self.open = []  # tags
        self.plots = []  # of the section that is open
        self.tables = 0  # after the first of them

    def handle_starttag(self, tag, attributes):
        self.handle_startendtag(tag, attributes)
        if tag != "meta":
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        named = dict(attributes)
        self.check_requests(tag, named)
        if tag == "section":
            self.plots, self.tables = [], 0
        elif tag == "svg":
            self.plots.append({"names": (named.get("aria-labelledby") or "").split(), "told": {}, "text": ""})
        elif tag in ("title", "desc") and "svg" in self.open:
            self.plots[-1]["told"].setdefault(tag, named.get("id"))  # those of its parts have none
        elif tag == "table" and self.plots:
            self.tables += 1

    def check_requests(self, tag, named):
        where = f"<{tag}> of line {self.getpos()[0]}"
        if tag in FETCHING_TAGS:
            self.faults.append(f"{where} may fetch something")
        for name, value in named.items():
            if name in FETCHING_ATTRIBUTES or name.startswith("on") or name == "style":
                self.faults.append(f"{where} has {name}")
            if name == "href" and not re.fullmatch(r"[\w.%-]*(#[\w-]+)?", value):
                self.faults.append(f"{where} leads outside: {value}")
        if named.get("http-equiv") == "Content-Security-Policy":
            self.policies.append(named["content"])

    def handle_data(self, data):
        if self.open and self.open[-1] == "style" and re.search(r"url\s*\(|@import", data):
            self.faults.append("the style fetches something")
        if "svg" in self.open and self.open[-1] in ("title", "desc") and data.strip():
            self.plots[-1]["text"] += self.open[-1]

    def handle_endtag(self, tag):
        if tag not in self.open:
            self.faults.append(f"</{tag}> of line {self.getpos()[0]} ends nothing")
            return
        while self.open.pop() != tag:
            self.faults.append(f"</{tag}> of line {self.getpos()[0]} ends what stands in it")
        if tag == "svg":
            self.check_plot(self.plots[-1])
        elif tag == "section" and self.plots and self.tables == 0:
            self.faults.append(f"no table is behind the plots that end at line {self.getpos()[0]}")

    def check_plot(self, plot):
        for tag in ("title", "desc"):
            if plot["told"].get(tag) is None or plot["told"][tag] not in plot["names"] or tag not in plot["text"]:
                self.faults.append(f"a plot that ends at line {self.getpos()[0]} has no {tag}")


def faults_of_markup(text):
    reader = Reader()
    reader.feed(text)
    reader.close()
    if reader.policies != [POLICY]:
        reader.faults.append(f"what the page may fetch is {reader.policies}")
    return reader.faults + [f"<{tag}> is left open" for tag in reader.open]


def luminance(colour):
    parts = [int(colour[place:place + 2], 16) / 255 for place in (1, 3, 5)]
    linear = [part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    lighter, darker = sorted((luminance(one), luminance(other)), reverse=True)
    return (lighter + 0.05) / (darker + 0.05)


def faults_of_colours(style):
    """Of each set of colours, also where axe cannot see what a text of a plot stands on."""
    sets = re.findall(r":root \{(.*?)\}", style, re.DOTALL)
    if len(sets) != 3:
        yield f"{len(sets)} sets of colours, not those for light, dark and paper"
    for number, text in enumerate(sets):
        colours = dict(re.findall(r"--([a-z]+): (#[0-9a-f]{6})", text))
        for name in colours.keys() - GROUNDS - LINES:
            for ground in GROUNDS:
                if contrast(colours[name], colours[ground]) < LEAST_CONTRAST:
                    yield f"set {number}: --{name} is pale on --{ground}"


def faults_of_links(page):
    """Each leads to a part of a page that is there."""
    for link in re.findall(r'href="([^"]*)"', page.read_text("utf-8")):
        file, _, part = html.unescape(link).partition("#")
        target = page.parent / file if file else page
        if not target.is_file() or (part and f'id="{part}"' not in target.read_text("utf-8")):
            yield f"{link} leads nowhere"


def faults_of_language(text, language):
    if f'<html lang="{language}">' not in text:
        yield "the page does not say its language"
