#!/usr/bin/env python3
"""Both user guides are well-formed, lead nowhere else than to what is there, and say the same in the same
order.

usage: guides.py PROGRAM_FOLDER/Documentation
"""
import html.parser
import pathlib
import sys

VOID = {"meta", "link", "img", "br", "hr", "input"}


class Guide(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.path = path
        self.open, self.shape, self.ids, self.links, self.files, self.faults = [], [], set(), [], [], []
        self.feed(path.read_text(encoding="utf-8"))
        self.close()
        if self.open:
            self.fault(f"never closed: {self.open}")

    def fault(self, words):
        self.faults.append(f"{self.path.name}:{self.getpos()[0]}: {words}")

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.shape.append((tag, attributes.get("id")))
        if "id" in attributes:
            if attributes["id"] in self.ids:
                self.fault(f"a second id {attributes['id']}")
            self.ids.add(attributes["id"])
        if "href" in attributes:
            self.links.append(attributes["href"])
        if "src" in attributes:
            self.files.append(attributes["src"])
        if tag == "img" and "alt" not in attributes:
            self.fault("a picture without words")
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        self.handle_starttag(tag, attributes)
        if tag not in VOID:
            self.open.pop()

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.fault(f"</{tag}> closes something else")

    def check_links(self):
        for link in self.links:
            if link.startswith("#"):
                if link[1:] not in self.ids:
                    self.fault(f"leads to nothing: {link}")
            else:
                self.files.append(link)
        for name in self.files:
            if not (self.path.parent / name).is_file():
                self.fault(f"is not there: {name}")


def main():
    folder = pathlib.Path(sys.argv[1])
    english = Guide(folder / "Backup-Guide-English.html")
    german = Guide(folder / "Backup-Guide-Deutsch.html")
    for guide in (english, german):
        guide.check_links()
    faults = english.faults + german.faults
    # The languages may use inline marks differently, but not blocks.
    blocks = {"h1", "h2", "h3", "p", "li", "dt", "dd", "tr", "td", "th", "pre", "figure", "table"}
    shapes = [[part for part in guide.shape if part[0] in blocks] for guide in (english, german)]
    for number, (ours, theirs) in enumerate(zip(*shapes)):
        if ours != theirs:
            faults.append(f"block {number} differs: {ours} in English, {theirs} in German")
            break
    if len(shapes[0]) != len(shapes[1]):
        faults.append(f"{len(shapes[0])} blocks in English, {len(shapes[1])} in German")
    if len(shapes[0]) < 100:
        faults.append("hardly anything was looked at")
    print("\n".join(faults) or f"{len(shapes[0])} blocks, the same in both")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
