#!/usr/bin/env python3
"""Runs a check and keeps its figures; see `./dev help` and docs/reliability.md."""
import argparse
import datetime
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import reliability

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGES = reliability.Pages(ROOT / "docs" / "reliability.md", ROOT / "docs" / "reliability")


def figures_of(lines):
    """Parses the figures that a check reported: a JSON object a line, with figure, value, unit and optionally bound."""
    found = []
    for number, line in enumerate(lines, 1):
        try:
            figure = json.loads(line)
            found.append(
                (
                    figure["figure"],
                    f"{number_text(figure['value'])} {figure.get('unit', '')}".strip(),
                    figure.get("bound", ""),
                )
            )
        except (ValueError, KeyError, TypeError) as error:
            raise ValueError(f"line {number} of the reported figures is malformed: {line!r}: {error}") from error
    return found


def number_text(value):
    if isinstance(value, (int, float)) and not isinstance(value, bool):
        return f"{value:,}" if value == int(value) else f"{value:,.3g}"
    return str(value)


def duration_text(seconds):
    return f"{seconds:.0f} s" if seconds < 120 else f"{seconds / 60:.0f} min"


def git(*arguments):
    """Returns git's output, or "" if git is missing or fails, as outside a checkout."""
    try:
        return subprocess.run(
            ["git", *arguments], cwd=ROOT, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True
        ).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def tree():
    """Returns the commit of a run and whether files have changed. Pages of results do not count: checks write them."""
    written = [f":!{path.relative_to(ROOT)}" for path in (PAGES.summary, PAGES.folder)]
    changed = git("status", "--porcelain", "--", ".", *written)
    return (git("rev-parse", "--short", "HEAD") or "no commit") + (" with changes" if changed else "")


def main():
    options = argparse.ArgumentParser(
        prog="dev check", epilog="Options after -- are those of the check itself; with them, no figures are kept."
    )
    options.add_argument("check")
    options.add_argument("--quick", action="store_true", help="run at a smaller size; keep no figures")
    arguments = sys.argv[1:]
    end = arguments.index("--") if "--" in arguments else len(arguments)
    given, own = options.parse_args(arguments[:end]), arguments[end + 1 :]
    kept = not given.quick and not own

    if kept and (missing := PAGES.missing(given.check)):
        print(f"{missing}; write it first, or run with --quick")
        return 2
    program = ROOT / "checks" / given.check / "run"
    date, commit = str(datetime.date.today()), tree()
    with tempfile.NamedTemporaryFile("r", prefix="figures-", encoding="utf-8") as file:
        started = time.monotonic()
        status = subprocess.run(
            [str(program), *(["--quick"] if given.quick else []), *own],
            cwd=ROOT,
            check=False,
            env={**os.environ, "CHECK_FIGURES": file.name},
        ).returncode
        seconds = time.monotonic() - started
        try:
            figures, problem = figures_of(file.read().splitlines()), f"exit code {status}" if status else ""
        except ValueError as error:
            figures, problem = [], str(error)
    for name, value, bound in figures:
        print(f"{name}: {value}" + (f" ({bound})" if bound else ""))
    if kept:
        run = reliability.Run(given.check, date, commit, duration_text(seconds))
        if problem:
            PAGES.keep_failure(run, problem)
        else:
            PAGES.keep(run, figures)
    if problem:
        print(f"{given.check}: failed, {problem}")
        return 1
    print(f"{given.check}: as expected, {duration_text(seconds)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
