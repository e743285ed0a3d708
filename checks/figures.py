#!/usr/bin/env python3
"""Reports a check's figures: appends a line of JSON for each to the file that CHECK_FIGURES names, if it is set.

usage: figures.py NAME VALUE UNIT [BOUND], for checks that are not written in Python"""
import json
import os
import sys


def report(name, value, unit, bound=None):
    if not os.environ.get("CHECK_FIGURES"):
        return
    line = {"figure": name, "value": value, "unit": unit, **({"bound": bound} if bound else {})}
    with open(os.environ["CHECK_FIGURES"], "a", encoding="utf-8") as file:
        file.write(json.dumps(line) + "\n")


class Judge:
    """Prints and reports figures. `held` stays true while all are within their bounds."""

    def __init__(self):
        self.held = True

    def __call__(self, what, value, unit, low=None, high=None):
        held = (low is None or value >= low) and (high is None or value <= high)
        self.held = self.held and held
        if high is None:
            bound = "" if low is None else f"at least {low:,.0f}"
        else:
            bound = f"{high:,.0f}" if low == high else f"at most {high:,.0f}" if not low else f"{low:,} to {high:,}"
        print(f"{what:55} {value:9,} {unit:12} {bound}{'' if held else '  NOT HELD'}", flush=True)
        report(what, value, unit, bound)


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    report(sys.argv[1], int(sys.argv[2]), *sys.argv[3:])
