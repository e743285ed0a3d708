"""Branches and functions of a source tree as its test programs took them, read from what the compiler's gcov says in
JSON.

Its text would not do: there, branches of a function's instance that never ran are not marked as those of exceptions."""
import collections
import concurrent.futures
import dataclasses
import functools
import itertools
import json
import subprocess


@dataclasses.dataclass
class Counts:
    branches: dict = dataclasses.field(default_factory=dict)  # (file, line) -> how often each was taken
    functions: dict = dataclasses.field(default_factory=dict)  # (file, line, its linker's name) -> how often it was run

    def add_branches(self, place, counts):
        """Instances of a template and functions of a macro used on one line are taken together, branch by branch."""
        known = self.branches.get(place, [])
        self.branches[place] = [sum(pair) for pair in itertools.zip_longest(known, counts, fillvalue=0)]

    def add_function(self, place, count):
        """Each instance and each function of a macro is one of its own, wherever it was compiled."""
        self.functions[place] = self.functions.get(place, 0) + count


def of_notes(root, folders, notes):
    """The counts of one object file."""
    output = subprocess.run(
        [
            "gcov-12",
            "--json-format",
            "--stdout",
            "--branch-probabilities",
            "--relative-only",
            "--source-prefix",
            root,
            notes,
        ],
        cwd=notes.parent,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        check=True,
    ).stdout
    found = Counts()
    for text in output.splitlines():
        for file in json.loads(text)["files"]:
            name = file["file"].removeprefix(f"{root}/")
            if not name.startswith(folders):
                continue
            for line in file["lines"]:
                counts = [branch["count"] for branch in line["branches"] if not branch["throw"]]
                if counts:
                    found.add_branches((name, line["line_number"]), counts)
            for function in file["functions"]:
                found.add_function((name, function["start_line"], function["name"]), function["execution_count"])
    return found


def count(root, build, folders):
    """How many branches and functions the folders have, and how many of either were never taken or run: two numbers,
    and two times (file, line's text) -> number."""
    merged = Counts()
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for found in pool.map(functools.partial(of_notes, root, folders), sorted(build.rglob("*.gcno"))):
            for place, counts in found.branches.items():
                merged.add_branches(place, counts)
            for place, runs in found.functions.items():
                merged.add_function(place, runs)
    lines = functools.cache(lambda file: (root / file).read_text(encoding="utf-8").split("\n"))
    uncovered, never_run = collections.Counter(), collections.Counter()
    for (file, line), counts in merged.branches.items():
        if 0 in counts:
            uncovered[file, lines(file)[line - 1].strip()] += counts.count(0)
    for (file, line, _), runs in merged.functions.items():
        if runs == 0:
            never_run[f"function of {file}", lines(file)[line - 1].strip()] += 1
    return sum(len(counts) for counts in merged.branches.values()), len(merged.functions), uncovered, never_run
