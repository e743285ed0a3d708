"""Text as a manual page: pieces of roff, and a document in Markdown as such pieces."""

import re

INLINE = re.compile(r"`([^`]+)`|\[([^\]]+)\]\([^)]+\)|\*\*([^*]+)\*\*")
NUMBERED = re.compile(r"(\d+\.) +(.*)", re.DOTALL)


def escape(text):
    """Returns a line of text that roff prints unchanged."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def bold(text):
    return f"\\fB{escape(text)}\\fR"


def inline(text):
    """Returns a paragraph of Markdown: code and emphasis in bold, links as their texts."""
    parts, end = [], 0
    for match in INLINE.finditer(text):
        parts.append(escape(text[end : match.start()]).removeprefix("\\&" if end else ""))
        code, link, strong = match.groups()
        parts.append(inline(link) if link else bold(code or strong))
        end = match.end()
    parts.append(escape(text[end:]).removeprefix("\\&" if end else ""))
    return "".join(parts)


def header(name, section, version, purpose):
    """The start of each page."""
    return [f'.TH "{escape(name.upper())}" {section} "" "{escape(version)}"', ".SH NAME", f"{name} \\- {purpose}"]


def paragraph(text):
    return [".PP", text]


def item(name, *lines):
    """A name, and what it means below it."""
    return [".TP", name, *"\n.br\n".join(line for line in lines if line).split("\n")]


def literal(lines):
    return [".PP", ".nf", ".RS", *map(escape, lines), ".RE", ".fi"]


def cells(row):
    return [cell.strip() for cell in row.strip().strip("|").split("|")]


def table(rows):
    """One item per row. The first cell is its name; the titles of the others precede them, unless there is only one."""
    titles, pieces = cells(rows[0]), []
    for row in rows[2:]:
        name, *rest = map(inline, cells(row))
        if len(rest) > 1:
            rest = [f"{escape(title)}: {cell}" if cell else "" for title, cell in zip(titles[1:], rest)]
        pieces += item(name, *rest)
    return pieces


def block(lines):
    """Returns a paragraph, table, list or heading of Markdown."""
    if lines[0].startswith("```"):
        return literal(lines[1:-1])
    if lines[0].startswith("#"):
        return [f".SH {inline(lines[0].lstrip('#').strip()).upper()}"]
    if lines[0].startswith("|"):
        return table(lines)
    if NUMBERED.match(lines[0]):
        points = re.split(r"\n(?=\d+\. )", "\n".join(lines))
        return [
            piece
            for number, text in (NUMBERED.fullmatch(point).groups() for point in points)
            for piece in item(number, inline(re.sub(r"\s+", " ", text)))
        ]
    return paragraph(inline(" ".join(lines)))


def document(text):
    """Returns a document's title, and its other blocks."""
    blocks, current, fenced = [], [], False
    for line in text.splitlines():
        if line.startswith("```"):
            fenced = not fenced
        if line or fenced:
            current.append(line)
        if current and (not line and not fenced or line.startswith("#") and not fenced):
            blocks.append(current)
            current = []
    if current:
        blocks.append(current)
    title, *rest = blocks
    return title[0].lstrip("# "), [piece for lines in rest for piece in block(lines)]
