#!/usr/bin/env python3
"""Writes the manual pages: pages.py FOLDER SOURCE PAGE=DOCUMENT... PROGRAM...

PROGRAM.1 of each program from its --help and from that of its commands, and PAGE.5 from each document. SOURCE is what
the pages name as the package and version that they belong to.
"""

import pathlib
import sys

import help_text
import roff


def items(listed):
    pieces = []
    for one in listed:
        name, _, value = one.names.partition(" ")
        pieces += roff.item(roff.bold(name) + (" " + roff.escape(value) if value else ""), roff.escape(one.text))
    return pieces


def notes(texts):
    """The paragraphs after the options. Exit codes have their usual section."""
    pieces = []
    for text in texts:
        title, _, rest = text.partition(": ")
        pieces += [".SH EXIT STATUS", roff.escape(rest)] if title == "Exit codes" else roff.paragraph(roff.escape(text))
    return pieces


def command(program, listed):
    """A command of a program, from its own --help."""
    described = help_text.help_of(program, listed.names)
    pieces = [f".SS {roff.bold(described.synopsis)}"]
    for text in described.description:
        pieces += roff.paragraph(roff.escape(text))
    pieces += items(described.arguments + [one for one in described.options if "--help" not in one.options()])
    for text in described.notes:
        pieces += roff.paragraph(roff.escape(text))
    return pieces


def program_page(program, version, others):
    described = help_text.help_of(program)
    purpose = described.description[0].split(". ")[0].removesuffix(".")
    pieces = roff.header(described.name, 1, version, roff.escape(purpose[0].lower() + purpose[1:]))
    pieces += [".SH SYNOPSIS", roff.bold(described.synopsis), ".SH DESCRIPTION"]
    for text in described.description:
        pieces += roff.paragraph(roff.escape(text))
    if described.arguments:
        pieces += [".SH ARGUMENTS", *items(described.arguments)]
    pieces += [".SH OPTIONS", *items(described.options)]
    if described.commands:
        pieces.append(".SH COMMANDS")
        for listed in described.commands:
            pieces += command(program, listed)
    return pieces + notes(described.notes) + see_also(others)


def document_page(document, name, version, others):
    title, pieces = roff.document(document.read_text(encoding="utf-8"))
    header = roff.header(name, 5, version, roff.escape(f"{title[0].lower() + title[1:]} of a receiver's programs"))
    return header + [".SH DESCRIPTION"] + pieces + see_also(others)


def see_also(pages):
    return [".SH SEE ALSO", ", ".join(f"{roff.bold(name)}({section})" for name, section in pages)]


def main():
    folder, source, *subjects = sys.argv[1:]
    documents = dict(subject.split("=", 1) for subject in subjects if "=" in subject)
    programs = {pathlib.Path(subject).name: subject for subject in subjects if "=" not in subject}
    sections = {**dict.fromkeys(programs, 1), **dict.fromkeys(documents, 5)}
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for page, section in sections.items():
        others = [other for other in sections.items() if other[0] != page]
        if page in programs:
            pieces = program_page(programs[page], source, others)
        else:
            pieces = document_page(pathlib.Path(documents[page]), page, source, others)
        (folder / f"{page}.{section}").write_text("\n".join(pieces) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
