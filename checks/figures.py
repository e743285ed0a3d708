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


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    report(sys.argv[1], int(sys.argv[2]), *sys.argv[3:])
