"""Tests which sources `./dev lint --changed` checks."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / ".ci"))
import lint_sources


class ATree(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.tree = pathlib.Path(temporary.name)
        for name in [name for name in os.environ if name.startswith("GIT_")]:  # set by a git hook that runs this test
            del os.environ[name]
        self.git("init", "-q", "-b", "main")
        self.write("lib/include/lib/base.h", "")
        self.write("lib/include/lib/queue.h", "#include <lib/base.h>\n")
        self.write("lib/src/queue.cpp", '#include "detail.h"\n#include <lib/queue.h>\n')
        self.write("lib/src/detail.h", "")
        self.write("app/detail.h", "")
        self.write("app/names.h.in", "")
        self.write("app/main.cpp", '#include "detail.h"\n#include <app/names.h>\n#include <vector>\n')
        self.write("notes.md", "")
        self.commit()

    def git(self, *arguments):
        identity = ["-c", "user.name=name", "-c", "user.email=mail"]
        subprocess.run(["git", *identity, *arguments], cwd=self.tree, check=True, stdout=subprocess.DEVNULL)

    def write(self, name, text):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def commit(self):
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "all")

    def dependants(self, *files):
        return lint_sources.dependants(lint_sources.tree(self.tree), files)

    def test_finds_files_that_include_a_header_indirectly(self):
        self.assertEqual(self.dependants("lib/include/lib/base.h"), ["lib/include/lib/queue.h", "lib/src/queue.cpp"])

    def test_lists_the_files_nearest_to_a_header_first(self):
        self.write("app/base_test.cpp", "#include <lib/base.h>\n")
        self.assertEqual(
            self.dependants("lib/include/lib/base.h"),
            ["app/base_test.cpp", "lib/include/lib/queue.h", "lib/src/queue.cpp"],
        )

    def test_resolves_a_quoted_header_to_the_one_beside_the_file(self):
        self.assertEqual(self.dependants("lib/src/detail.h"), ["lib/src/queue.cpp"])

    def test_finds_files_that_include_a_generated_header(self):
        self.assertEqual(self.dependants("app/names.h.in"), ["app/main.cpp"])

    def test_counts_changes_since_the_branch_left_the_main_branch(self):
        self.git("checkout", "-q", "-b", "branch")
        for file in ("app/main.cpp", "lib/src/detail.h"):
            self.write(file, "int x;\n")
            self.commit()
        self.git("checkout", "-q", "main")
        self.write("app/detail.h", "int y;\n")
        self.commit()
        self.git("checkout", "-q", "branch")
        self.assertEqual(lint_sources.changed(self.tree), {"app/main.cpp", "lib/src/detail.h"})

    def test_counts_changes_of_the_main_branch_from_the_commit_before(self):
        for file in ("app/main.cpp", "lib/src/detail.h"):
            self.write(file, "int x;\n")
            self.commit()
        self.assertEqual(lint_sources.changed(self.tree), {"lib/src/detail.h"})

    def test_counts_everything_as_changed_in_the_first_commit(self):
        self.assertIn("lib/src/queue.cpp", lint_sources.changed(self.tree))

    def test_counts_uncommitted_new_and_deleted_files(self):
        self.git("checkout", "-q", "-b", "branch")
        self.write("notes.md", "text\n")
        self.commit()
        self.write("app/main.cpp", "int x;\n")
        self.write("app/new.cpp", "")
        (self.tree / "app/detail.h").unlink()
        self.assertEqual(lint_sources.changed(self.tree), {"notes.md", "app/main.cpp", "app/new.cpp", "app/detail.h"})

    def test_counts_a_file_that_has_moved_only_when_it_differs(self):
        self.git("checkout", "-q", "-b", "branch")
        self.git("mv", "lib/src/queue.cpp", "lib/src/moved.cpp")
        self.git("mv", "app/main.cpp", "app/changed.cpp")
        self.write("app/changed.cpp", (self.tree / "app/changed.cpp").read_text() + "int x;\n")
        self.commit()
        self.assertEqual(lint_sources.changed(self.tree), {"app/changed.cpp"})

    def commands(self, command):
        entries = [{"directory": "/build", "file": "/a.cpp", "command": command}]
        self.write("compile_commands.json", json.dumps(entries))
        return lint_sources.commands(self.tree)

    def test_passes_the_build_options_to_clang_without_an_output(self):
        found = self.commands('/usr/bin/ccache /usr/bin/c++ -DA=\\"b\\" -Werror -o a.o -c /a.cpp')
        words = ["clang++", "-fsyntax-only", "-Wthread-safety", '-DA="b"', "-Werror", "/a.cpp"]
        self.assertEqual(found, {"/a.cpp": (words, "/build")})


if __name__ == "__main__":
    unittest.main()
