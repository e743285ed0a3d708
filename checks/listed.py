"""Findings of a check that a person has reviewed and listed in a file of blocks, compared with new findings.

A block is a line with a number and a name, a line with the text of the source line, and the lines of the reason."""
import collections


def read(path):
    """Returns (name, text) -> number. Lines that begin with # are comments."""
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
    """Returns lines about findings that are not listed, and about listed ones that were not found; `gone` says why."""
    lines = [f"not listed: {number} {name}\n    {text}" for (name, text), number in sorted((found - expected).items())]
    return lines + [
        f"listed, but {gone}: {number} {name}\n    {text}"
        for (name, text), number in sorted((expected - found).items())
    ]
