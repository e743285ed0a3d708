"""Tries every message at its boundaries, under the address and undefined-behaviour sanitizers."""

import os
import pathlib
import re
import shutil
import subprocess

import figures

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("CHECK_BUILD", ROOT / "build")) / "check-boundary"
# What a line of the summary counts, and how it is called in the list of figures.
FIGURES = {
    "accepted": "boundary cases accepted with the expected value",
    "refused: shorter than its record": "boundary cases refused as shorter than the record",
    "refused: bytes after the last block": "boundary cases refused for bytes after the last block",
    "refused: count and pointer disagree": "boundary cases refused for a count against a pointer",
    "refused: block misplaced or too large": "boundary cases refused for a block misplaced or too large",
    "refused: text not terminated": "boundary cases refused for a text not terminated",
}


def build():
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    subprocess.run(
        [
            "cmake",
            "-B",
            BUILD,
            "-S",
            ROOT,
            "-G",
            "Ninja",
            "-DCMAKE_BUILD_TYPE=Debug",
            "-DCMAKE_CXX_FLAGS_DEBUG=-g1 -O1",
            "-DTVSA_SANITIZE=address,undefined",
            *launcher,
        ],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    subprocess.run(["ninja", "-C", BUILD, "--quiet", "boundary-cases"], check=True)


def check(quick):
    """Whether every case has the expected outcome."""
    build()
    size = [] if quick else ["--all"]
    run = subprocess.run(
        [BUILD / "bin" / "boundary-cases", ROOT / "tests" / "golden", *size], stdout=subprocess.PIPE, text=True
    )
    print(run.stdout, end="", flush=True)
    for count, what in re.findall(r"^ *(\d+) (.*)$", run.stdout, re.MULTILINE):
        if what in FIGURES:
            figures.report(FIGURES[what], int(count), "cases")
    total = re.search(r"^ *(\d+) cases, (\d+) of them not as expected$", run.stdout, re.MULTILINE)
    if total:
        figures.report("boundary cases", int(total[1]), "cases")
        figures.report("boundary cases with another outcome than expected", int(total[2]), "cases", "0")
    return run.returncode == 0 and total is not None
