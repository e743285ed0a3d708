#!/usr/bin/env python3
"""Runs a lane of checks and keeps its figures; see `./dev help` and docs/reliability.md."""
import argparse
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "reliability.md"


def figures_of(lines):
    """What a lane has appended to the file of figures: an object per line with figure, value, unit, perhaps bound."""
    found = []
    for number, line in enumerate(lines, 1):
        try:
            figure = json.loads(line)
            found.append((figure["figure"], f"{shown(figure['value'])} {figure.get('unit', '')}".strip(),
                          figure.get("bound", "")))
        except (ValueError, KeyError, TypeError) as error:
            raise SystemExit(f"checks: line {number} of the figures is none: {line!r}: {error}") from error
    return found


def shown(value):
    if isinstance(value, (int, float)) and not isinstance(value, bool):
        return f"{value:,}" if value == int(value) else f"{value:,.3g}"
    return str(value)


def took(seconds):
    return f"{seconds:.0f} s" if seconds < 120 else f"{seconds / 60:.0f} min"


def section(lane, about, seconds, figures):
    return "\n".join([f"## {lane}", "", about.strip(), "",
                      f"`./dev check {lane}`, last run on {datetime.date.today()}, {took(seconds)}.", "",
                      "| Figure | Value | Bound |", "|---|---|---|",
                      *(f"| {name} | {value} | {bound} |" for name, value, bound in figures)]) + "\n"


def with_section(document, lane, text):
    """The document with the lane's section replaced, or added in the order of the names."""
    head, *sections = re.split(r"^(?=## )", document, flags=re.MULTILINE)
    kept = [part for part in sections if part.split("\n", 1)[0] != f"## {lane}"]
    return "\n\n".join(part.strip("\n") for part in [head, *sorted([*kept, text])]) + "\n"


def main():
    options = argparse.ArgumentParser(prog="dev check")
    options.add_argument("lane")
    options.add_argument("--quick", action="store_true", help="a small size; keeps no figures")
    given = options.parse_args()

    folder = ROOT / "checks" / given.lane
    with tempfile.NamedTemporaryFile("r", prefix="figures-", encoding="utf-8") as file:
        started = time.monotonic()
        status = subprocess.run([str(folder / "run"), *(["--quick"] if given.quick else [])], cwd=ROOT, check=False,
                                env={**os.environ, "CHECK_FIGURES": file.name}).returncode
        seconds = time.monotonic() - started
        figures = figures_of(file.read().splitlines())
    for name, value, bound in figures:
        print(f"{name}: {value}" + (f" ({bound})" if bound else ""))
    if status != 0:
        print(f"{given.lane}: failed ({status})")
        return 1
    if not given.quick:
        about = (folder / "about.md").read_text(encoding="utf-8")
        DOCUMENT.write_text(with_section(DOCUMENT.read_text(encoding="utf-8"), given.lane,
                                         section(given.lane, about, seconds, figures)), encoding="utf-8")
    print(f"{given.lane}: as expected, {took(seconds)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
