#!/usr/bin/env python3
"""Counts the instructions of the product's codec and of the limit with callgrind. The machine's load has no effect.

usage: instruction_counts.py CODEC_COUNT [--check]

Prints a JSON line per figure. With --check it fails if a ratio exceeds its bound, and exits with 77, which ctest
reports as skipped, if valgrind is missing.
"""
import json
import re
import shutil
import subprocess
import sys
import tempfile

GOAL = 1.25
# The bounds of the test: the measured ratios, plus 3 % for other compilers and libraries. A long list reaches the goal.
# A single request has fixed costs that the limit does not have: for its memory, two traversals and four calls into the
# platform.
CASES = {"request/1": 200, "request/100": 20}
CHECKED = {"request/1": 1.42, "request/100": 1.19}


def instructions(program, codec, case, runs):
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(
            [
                "valgrind",
                "--tool=callgrind",
                "--toggle-collect=countedRuns",
                f"--callgrind-out-file={folder}/callgrind.out",
                program,
                codec,
                case,
                str(runs),
            ],
            capture_output=True,
            text=True,
            check=False,
        )
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not found:
        raise SystemExit(f"instruction_counts: {codec} {case}: no count\n{done.stderr}")
    return int(found.group(1)) / runs


def main():
    program, check = sys.argv[1], "--check" in sys.argv[2:]
    if not shutil.which("valgrind"):
        print(
            "valgrind is not installed"
            if check
            else json.dumps({"bench": "instructions", "note": "valgrind is not installed: omitted"})
        )
        return 77 if check else 0
    failed = False
    for case, runs in CASES.items():
        counts = {codec: instructions(program, codec, case, runs) for codec in ("own", "limit")}
        for codec, count in counts.items():
            print(
                json.dumps(
                    {
                        "bench": "instructions",
                        "case": case,
                        "side": codec,
                        "unit": "instruction",
                        "per": "message",
                        "min": count,
                        "median": count,
                        "max": count,
                        "rounds": 1,
                    }
                )
            )
        ratio = counts["own"] / counts["limit"]
        print(
            json.dumps(
                {
                    "bench": "instructions",
                    "case": case,
                    "ratio": "own/limit",
                    "median": ratio,
                    "roundMedian": ratio,
                    "min": ratio,
                    "max": ratio,
                    "rounds": 1,
                    "goal": GOAL,
                    "goalNumber": 3,
                    "bound": "atMost",
                }
            )
        )
        if check and ratio > CHECKED[case]:
            print(f"{case}: {ratio:.3f} times the limit's instructions, more than {CHECKED[case]}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
