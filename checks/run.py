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
            raise ValueError(f"line {number} of the figures is none: {line!r}: {error}") from error
    return found


def shown(value):
    if isinstance(value, (int, float)) and not isinstance(value, bool):
        return f"{value:,}" if value == int(value) else f"{value:,.3g}"
    return str(value)


def took(seconds):
    return f"{seconds:.0f} s" if seconds < 120 else f"{seconds / 60:.0f} min"


def git(*arguments):
    """What git says, or nothing when this is no checkout."""
    try:
        return subprocess.run(["git", *arguments], cwd=ROOT, check=True, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def tree():
    """Of which sources a run is. The document is none of them: the lane that ran before has written it."""
    changed = git("status", "--porcelain", "--", ".", f":!{DOCUMENT.relative_to(ROOT)}")
    return (git("rev-parse", "--short", "HEAD") or "no commit") + (" with changes" if changed else "")


def section(lane, about, outcome, figures):
    return "\n".join([f"## {lane}", "", about.strip(), "", f"`./dev check {lane}`, {outcome}", "",
                      "| Figure | Value | Bound |", "|---|---|---|",
                      *(f"| {name} | {value} | {bound} |" for name, value, bound in figures)]) + "\n"


def marked_as_failed(document, lane, about, failure):
    """The document with a failed run told of in the lane's section, which keeps the figures of the last good one."""
    found = re.search(rf"^## {re.escape(lane)}\n.*?(?=^## |\Z)", document, re.MULTILINE | re.DOTALL)
    text = found[0] if found else section(lane, about, "never run to its end.", [])
    text = re.sub(r"^\*\*Failed\*\*.*\n\n", "", text, flags=re.MULTILINE)
    table = text.index("| Figure |")
    return with_section(document, lane, f"{text[:table]}**Failed** {failure}\n\n{text[table:]}")


def with_section(document, lane, text):
    """The document with the lane's section replaced, or added in the order of the names."""
    head, *sections = re.split(r"^(?=## )", document, flags=re.MULTILINE)
    kept = [part for part in sections if part.split("\n", 1)[0] != f"## {lane}"]
    return "\n\n".join(part.strip("\n") for part in [head, *sorted([*kept, text])]) + "\n"


def main():
    options = argparse.ArgumentParser(prog="dev check")
    options.add_argument("lane")
    options.add_argument("--quick", action="store_true", help="a small size; keeps no figures")
    options.add_argument("options", nargs="*", help="behind --: the lane's own; keeps no figures")
    given = options.parse_args()
    kept = not given.quick and not given.options

    folder = ROOT / "checks" / given.lane
    about = (folder / "about.md").read_text(encoding="utf-8")
    when = f"on {datetime.date.today()} at {tree()}"
    with tempfile.NamedTemporaryFile("r", prefix="figures-", encoding="utf-8") as file:
        started = time.monotonic()
        status = subprocess.run([str(folder / "run"), *(["--quick"] if given.quick else []), *given.options], cwd=ROOT, check=False,
                                env={**os.environ, "CHECK_FIGURES": file.name}).returncode
        seconds = time.monotonic() - started
        try:
            figures, problem = figures_of(file.read().splitlines()), f"exit code {status}" if status else ""
        except ValueError as error:
            figures, problem = [], str(error)
    for name, value, bound in figures:
        print(f"{name}: {value}" + (f" ({bound})" if bound else ""))
    if kept:
        before = DOCUMENT.read_text(encoding="utf-8")
        if problem:
            after = marked_as_failed(before, given.lane, about, f"{when}, {problem}; the figures are older.")
        else:
            after = with_section(before, given.lane,
                                 section(given.lane, about, f"last run {when}, {took(seconds)}.", figures))
        DOCUMENT.write_text(after, encoding="utf-8")
    if problem:
        print(f"{given.lane}: failed, {problem}")
        return 1
    print(f"{given.lane}: as expected, {took(seconds)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
