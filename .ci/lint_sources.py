"""Compiles sources with clang as a second compiler, which also checks locks, and runs clang-tidy on them:
lint_sources.py BUILD [--changed | --list]

BUILD is a configured build folder. --changed: only changed sources and sources that include changed files. On a branch,
changes are counted from its merge base with the main branch; on the main branch, from the previous commit. To bound the
time, clang compiles at most MAX_COMPILED of these sources, changed ones first. clang-tidy checks the first MAX_TIDIED
of them, and runs its analyzer, which takes most of the time, only on the first MAX_ANALYZED changed ones. Larger
changes need a run without an option. --list: prints the sources that --changed would check.
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
MAX_COMPILED, MAX_TIDIED, MAX_ANALYZED = 60, 24, 12
WITHOUT_ANALYZER = ["--checks=-clang-analyzer-*"]


def git(root, *arguments):
    """The output of git without the final line feed, or an empty string when git fails."""
    result = subprocess.run(["git", *arguments], cwd=root, capture_output=True, text=True, check=False)
    return result.stdout.removesuffix("\n") if result.returncode == 0 else ""


def base(root):
    """The commit with which the tree is compared."""
    head = git(root, "rev-parse", "HEAD")
    for main in ("origin/main", "main"):
        merge_base = git(root, "merge-base", main, "HEAD")
        if merge_base and merge_base != head:
            return merge_base
    return git(root, "rev-parse", "-q", "--verify", "HEAD~1") or git(root, "hash-object", "-t", "tree", "/dev/null")


def names(text):
    return [name for name in text.split("\0") if name]


def changed(root):
    """Files that differ from the base commit, committed or not, except files that were only moved."""
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
    """Maps each C++ file of the tree to its includes, as (quote, name)."""
    files = names(git(root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"))
    return {
        file: INCLUDE.findall((root / file).read_text(encoding="utf-8", errors="replace"))
        for file in files
        if file.endswith(SOURCES) and (root / file).is_file()
    }


def included_files(file, quote, name, by_last_part):
    """The files that an include may refer to: all whose path ends in the name, as the include paths are ignored."""
    beside = os.path.normpath(os.path.join(os.path.dirname(file), name))
    candidates = by_last_part.get(os.path.basename(name), ())
    if quote == '"' and beside in candidates:
        return [beside]
    suffix = "/" + os.path.normpath(name).replace("../", "")
    return [candidate for candidate in candidates if f"/{candidate.removesuffix('.in')}".endswith(suffix)]


def dependants(includes, files):
    """The files that include one of the given files, directly or indirectly; direct ones first."""
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
    """Maps each source to a clang command that only checks its syntax."""
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


def findings_of(command, folder):
    """The output of a program that fails, or an empty string."""
    result = subprocess.run(
        command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, errors="replace"
    )
    return result.stdout or f"{command[0]} failed\n" if result.returncode else ""


def lint(build, source, command, folder, tidy):
    """Findings in one source; tidy: options of clang-tidy, or None to skip it. It is also skipped when clang fails."""
    findings = findings_of(command, folder)
    if not findings and tidy is not None:
        findings = findings_of(["clang-tidy", "-p", build, "--quiet", *tidy, source], ROOT)
    return findings


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    all_commands = commands(build)
    sources = list(all_commands)
    tidied = {source: [] for source in sources}
    if sys.argv[2:] in (["--changed"], ["--list"]):
        changed_files = changed(ROOT)
        own = [source for source in sources if os.path.relpath(source, ROOT) in changed_files]
        others = [str(ROOT / file) for file in dependants(tree(ROOT), changed_files)]
        others = [source for source in others if source in all_commands]
        found = own + others
        sources = found[:MAX_COMPILED]
        tidied = {source: WITHOUT_ANALYZER for source in sources[:MAX_TIDIED]}
        tidied |= {source: [] for source in own[:MAX_ANALYZED]}
        if len(found) > MAX_COMPILED:
            print(f"clang: skipping {len(found) - MAX_COMPILED} sources; ./dev lint checks them", file=sys.stderr)
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
