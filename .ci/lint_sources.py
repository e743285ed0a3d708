"""Compiles sources with clang as a second compiler, which also checks locks, and looks them through with clang-tidy:
lint_sources.py BUILD [--changed | --list]

BUILD is a configured build folder. --changed: only the sources that differ from where this branch left the main one,
or from the commit before when it is the main one, and those that include what differs. Time is bounded: clang compiles
MOST of them, those that differ first; clang-tidy looks through TIDIED of these, the first ANALYZED of them with its
analyzer, which takes most of the time. A greater change needs the run without an option. --list: names the sources.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(["<])([^">]+)[">]', re.MULTILINE)
SOURCES = (".h", ".cpp", ".h.in")
MOST, TIDIED, ANALYZED = 60, 24, 12
WITHOUT_ANALYZER = ["--checks=-clang-analyzer-*"]


def git(root, *arguments):
    """What git says, without its line end, or nothing when it fails."""
    done = subprocess.run(["git", *arguments], cwd=root, capture_output=True, text=True, check=False)
    return done.stdout.removesuffix("\n") if done.returncode == 0 else ""


def base(root):
    """The commit that changes are counted from."""
    head = git(root, "rev-parse", "HEAD")
    for main in ("origin/main", "main"):
        fork = git(root, "merge-base", main, "HEAD")
        if fork and fork != head:
            return fork
    return git(root, "rev-parse", "-q", "--verify", "HEAD~1") or git(root, "hash-object", "-t", "tree", "/dev/null")


def names(text):
    return [name for name in text.split("\0") if name]


def changed(root):
    """Files of the tree that differ from the base, committed or not, but for those that have only moved."""
    found = set(names(git(root, "ls-files", "-z", "--others", "--exclude-standard")))
    fields = iter(names(git(root, "diff", "--name-status", "-z", "--find-renames", base(root))))
    for status in fields:
        file = next(fields)
        if status.startswith("R"):
            file = next(fields)
        if status != "R100":
            found.add(file)
    return found


def tree(root):
    """file -> what it includes, as (quote, name), of all C++ files of the tree."""
    files = names(git(root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"))
    return {
        file: INCLUDE.findall((root / file).read_text(encoding="utf-8", errors="replace"))
        for file in files
        if file.endswith(SOURCES) and (root / file).is_file()
    }


def included_files(file, quote, name, by_last_part):
    """The files that an include may mean. The include paths are not looked at: all that end in the name count."""
    beside = os.path.normpath(os.path.join(os.path.dirname(file), name))
    candidates = by_last_part.get(os.path.basename(name), ())
    if quote == '"' and beside in candidates:
        return [beside]
    suffix = "/" + os.path.normpath(name).replace("../", "")
    return [candidate for candidate in candidates if f"/{candidate.removesuffix('.in')}".endswith(suffix)]


def dependants(includes, files):
    """Those that include one of the files, directly or not; the nearest first."""
    by_last_part = {}
    for file in {*includes, *files}:
        by_last_part.setdefault(os.path.basename(file).removesuffix(".in"), []).append(file)
    included_by = {}
    for file, entries in includes.items():
        for quote, name in entries:
            for target in included_files(file, quote, name, by_last_part):
                included_by.setdefault(target, set()).add(file)
    found, known, new = [], set(files), set(files)
    while new:
        new = set().union(*(included_by.get(file, ()) for file in new)) - known
        known |= new
        found += sorted(new)
    return found


def commands(build):
    """source -> its command with clang, which compiles nothing."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        words = shlex.split(entry["command"])
        first = next(i for i, word in enumerate(words) if word.startswith("-"))
        output = words.index("-o")
        options = words[first:output] + words[output + 2 :]
        found[entry["file"]] = (
            ["clang++", "-fsyntax-only", "-Wthread-safety", *(word for word in options if word != "-c")],
            entry["directory"],
        )
    return found


def said(command, folder):
    """What a program finds, or nothing."""
    done = subprocess.run(
        command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, errors="replace"
    )
    return done.stdout or f"{command[0]} failed\n" if done.returncode else ""


def lint(build, source, command, folder, tidy):
    """Findings of one source; tidy: options of clang-tidy, or None. It need not see what clang does not compile."""
    findings = said(command, folder)
    if not findings and tidy is not None:
        findings = said(["clang-tidy", "-p", build, "--quiet", *tidy, source], ROOT)
    return findings


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    all_commands = commands(build)
    sources = list(all_commands)
    tidied = {source: [] for source in sources}
    if sys.argv[2:] in (["--changed"], ["--list"]):
        differing = changed(ROOT)
        own = [source for source in sources if os.path.relpath(source, ROOT) in differing]
        others = [str(ROOT / file) for file in dependants(tree(ROOT), differing)]
        others = [source for source in others if source in all_commands]
        found = own + others
        sources = found[:MOST]
        tidied = {source: WITHOUT_ANALYZER for source in sources[:TIDIED]}
        tidied |= {source: [] for source in own[:ANALYZED]}
        if len(found) > MOST:
            print(f"clang: {len(found) - MOST} further sources are left to ./dev lint", file=sys.stderr)
    if sys.argv[2:] == ["--list"]:
        print("\n".join(os.path.relpath(source, ROOT) for source in sources))
        return 0
    print(f"clang: {len(sources)} sources, clang-tidy: {len(tidied)}", file=sys.stderr)
    status = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {
            pool.submit(lint, build, source, *all_commands[source], tidied.get(source)): source for source in sources
        }
        for run in concurrent.futures.as_completed(runs):
            if findings := run.result():
                print(f"== {os.path.relpath(runs[run], ROOT)}\n{findings}", flush=True)
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
