#!/usr/bin/env python3
"""Checks that relative links in the documents lead to existing files and headings: check-links.py SOURCE_FOLDER."""
import pathlib
import re
import sys

CODE = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ +(.+?) *$", re.MULTILINE)


def anchors(text):
    """Returns the anchors of a page's headings in the rendered page."""
    headings = HEADING.findall(CODE.sub("", text))
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def broken_links(document):
    for target in LINK.findall(CODE.sub("", document.read_text(encoding="utf-8"))):
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        file = document.parent / path if path else document
        if not file.exists():
            yield f"{document}: no file {target}"
        elif anchor and anchor not in anchors(file.read_text(encoding="utf-8")):
            yield f"{document}: no heading {target}"


def main():
    source = pathlib.Path(sys.argv[1])
    documents = sorted([*source.glob("*.md"), *source.glob("python/*.md"), *(source / "docs").rglob("*.md")])
    if not documents:
        raise SystemExit(f"{source}: no documents")
    broken = [line for document in documents for line in broken_links(document)]
    if broken:
        raise SystemExit("\n".join(broken))


if __name__ == "__main__":
    main()
