"""Branches of a source tree as its test programs took them, read from what the compiler's gcov says in JSON.

Its text would not do: there, branches of a function's instance that never ran are not marked as those of exceptions."""
import collections
import concurrent.futures
import functools
import itertools
import json
import subprocess


def of_notes(root, notes):
    """(file, line) -> how often each branch was taken, for one object file. Instances of a template and functions of a
    macro used on one line are taken together, branch by branch."""
    output = subprocess.run(["gcov-12", "--json-format", "--stdout", "--branch-probabilities", "--relative-only",
                             "--source-prefix", root, notes], cwd=notes.parent, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, check=True).stdout
    found = {}
    for text in output.splitlines():
        for file in json.loads(text)["files"]:
            for line in file["lines"]:
                counts = [branch["count"] for branch in line["branches"] if not branch["throw"]]
                if counts:
                    add(found, (file["file"].removeprefix(f"{root}/"), line["line_number"]), counts)
    return found


def add(found, place, counts):
    known = found.get(place, [])
    found[place] = [sum(pair) for pair in itertools.zip_longest(known, counts, fillvalue=0)]


def count(root, build, folders):
    """The number of branches in the folders, and how many are uncovered: (file, line's text) -> number."""
    merged = {}
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for found in pool.map(functools.partial(of_notes, root), sorted(build.rglob("*.gcno"))):
            for place, counts in found.items():
                if place[0].startswith(folders):
                    add(merged, place, counts)
    lines = functools.cache(lambda file: (root / file).read_text(encoding="utf-8").split("\n"))
    uncovered = collections.Counter()
    for (file, line), counts in merged.items():
        if 0 in counts:
            uncovered[file, lines(file)[line - 1].strip()] += counts.count(0)
    return sum(len(counts) for counts in merged.values()), uncovered
