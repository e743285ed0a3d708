"""Findings of a check that a person has judged: a file of blocks, and how new findings differ from it.

A block is a line with a number and a name, the source line's text, and on the lines after it the reason."""
import collections


def read(path):
    """(name, text) -> number. Lines that begin with # are comments."""
    found = collections.Counter()
    text = "\n".join(line for line in path.read_text(encoding="utf-8").splitlines() if not line.startswith("#"))
    for block in filter(None, (block.strip("\n") for block in text.split("\n\n"))):
        lines = block.split("\n")
        number, _, name = lines[0].partition(" ")
        if not number.isdecimal() or not name or len(lines) < 3 or not "".join(lines[2:]).strip():
            raise SystemExit(f"{path}: not 'NUMBER NAME', a source line's text and a reason:\n{block}")
        found[name, lines[1].strip()] += int(number)
    return found


def differences(found, expected, gone):
    """Lines about what is found and not listed, and about what is listed and, as `gone` says, not so any more."""
    lines = [f"not listed: {number} {name}\n    {text}" for (name, text), number in sorted((found - expected).items())]
    return lines + [
        f"listed, but {gone}: {number} {name}\n    {text}"
        for (name, text), number in sorted((expected - found).items())
    ]
