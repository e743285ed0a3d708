"""Searches every state of manager.pml: its assertions and the absence of deadlocks, then progress, which takes many
more states."""
import os
import pathlib
import re
import subprocess

import figures

MODEL = pathlib.Path(__file__).resolve().parent / "manager.pml"
BUILD = pathlib.Path(os.environ.get("CHECK_BUILD", "build")).resolve() / "check-exhaustive"


def verify(name, spin_options, compiler_options, options=()):
    """The output of one variant's exhaustive search."""
    folder = BUILD / name
    folder.mkdir(parents=True, exist_ok=True)
    subprocess.run(["spin", "-a", *spin_options, MODEL], cwd=folder, stdout=subprocess.DEVNULL, check=True)
    subprocess.run(["gcc", "-O2", "-w", *compiler_options, "-o", "pan", "pan.c"], cwd=folder, check=True)
    search = ["./pan", "-m1000000", "-w26", *options]
    return subprocess.run(search, cwd=folder, stdout=subprocess.PIPE, text=True, check=True).stdout


def states(output):
    return int(re.search(r"(\d+) states, stored", output)[1])


def errors(output):
    return int(re.search(r"errors: (\d+)", output)[1])


def found_nothing(output):
    return errors(output) == 0 and "Search not completed" not in output


def found_early_start(output):
    """The assertion is the one that the worker makes of stopAnswered, and nothing else that could be wrong."""
    return errors(output) == 1 and re.search(r"assertion violated.*stopAnswered", output) is not None


def expected(good, what, output):
    if not good:
        print(f"{what}: not as expected\n{output}")
    return good


def check(quick):
    """Whether every search ends as expected."""
    bundles = 2 if quick else 3
    output = verify("safety", [f"-DBUNDLES={bundles}"], ["-DSAFETY", "-DNOCLAIM", "-DCOLLAPSE"])
    if not expected(found_nothing(output), "no start before its stops, no deadlock", output):
        return False
    print(f"order and deadlocks: {states(output)} states, nothing found", flush=True)
    figures.report(
        "states searched for a start before its stops, a dropped bundle's sending, a deadlock",
        states(output),
        "states",
        f"all, with {bundles} bundles",
    )

    output = verify("progress", ["-DBUNDLES=2"], ["-DCOLLAPSE"], ["-a", "-f"])
    if not expected(found_nothing(output), "every bundle is answered or dropped", output):
        return False
    print(f"progress: {states(output)} states, nothing found", flush=True)
    figures.report("states searched for a bundle that stays", states(output), "states", "all, with 2 bundles")

    # Answers are subtracted: three of one service stand for those of both. The model has to find that.
    output = verify("thrice", ["-DBUNDLES=1", "-DANSWERS=3"], ["-DSAFETY", "-DNOCLAIM"])
    if not expected(found_early_start(output), "an answer given three times lets a start overtake a stop", output):
        return False
    print("three answers to one request: found, as it has to be", flush=True)
    return True
