#!/usr/bin/env python3
"""Runs the benchmark programs and combines their output; see `./dev help`."""
import argparse
import pathlib
import subprocess
import sys

import document
import figures
import plot


def commands(build):
    """Reads the programs' commands: one per line, arguments separated by tabs."""
    listed = (build / "bench-programs.txt").read_text(encoding="utf-8").splitlines()
    return [line.split("\t") for line in listed if line]


def measured(build, quick, timeout):
    lines, failures = [], []
    for command in commands(build):
        name = pathlib.Path(command[-1 if command[0].endswith("python3") else 0]).name
        print(f"bench: {name}", file=sys.stderr, flush=True)
        try:
            done = subprocess.run(
                command + (["--quick"] if quick else []),
                stdout=subprocess.PIPE,
                text=True,
                timeout=timeout,
                check=False,
            )
        except subprocess.TimeoutExpired as error:
            lines += figures.parsed((error.stdout or b"").decode(), name)
            failures.append(f"{name} took longer than {timeout} s")
            continue
        lines += figures.parsed(done.stdout, name)
        if done.returncode != 0:
            failures.append(f"{name} failed with exit code {done.returncode}")
    return lines, failures


def main():
    options = argparse.ArgumentParser(prog="dev bench")
    options.add_argument("--build", type=pathlib.Path, required=True, help="the build folder")
    options.add_argument(
        "--docs", type=pathlib.Path, required=True, help="the folder for benchmarks.md and benchmarks.svg"
    )
    options.add_argument("--compiler", default="c++")
    options.add_argument("--quick", action="store_true", help="fewer and shorter rounds; writes no document")
    options.add_argument("--gate", action="store_true", help="fail when a figure misses its bound; writes no document")
    options.add_argument("--margin", type=float, default=0.10, help="by how much a bound may be missed")
    given = options.parse_args()

    lines, failures = measured(given.build, given.quick, timeout=900)
    if given.quick or given.gate:
        print("\n".join(document.goal_rows(lines)))
    else:
        given.docs.joinpath("benchmarks.md").write_text(document.markdown(lines, given.compiler), encoding="utf-8")
        given.docs.joinpath("benchmarks.svg").write_text(plot.svg(lines), encoding="utf-8")
    if given.gate:
        failures += [
            f"{figures.name_of(line)}: {figures.value_of(line)}, bound {figures.number(line['goal'])}"
            for line in figures.missed(lines, given.margin)
        ]
    for failure in failures:
        print(f"bench: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
