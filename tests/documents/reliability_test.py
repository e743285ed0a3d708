#!/usr/bin/env python3
"""Tests of the pages that a full run of a check writes: reliability_test.py SOURCE_FOLDER."""
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop(1)).resolve()
sys.path.insert(0, str(SOURCE / "checks"))
import reliability  # noqa: E402  pylint: disable=wrong-import-position

SUMMARY = """# Reliability

| Check | What it tries | Date | Commit | Duration | Result |
|---|---|---|---|---|---|
| [killed](reliability/killed.md) | deaths | 2026-01-01 | aaaaaaa | 3 min | held |
| [soak](reliability/soak.md) | many messages | 2026-01-02 | bbbbbbb |  | held |

The end.
"""
PAGE = """# soak

Does it leak?

## Last run

`./dev check soak` held on 2026-01-02 at bbbbbbb, 9 s.

A remark.

| Figure | Value | Bound |
|---|---|---|
| messages | 7 messages |  |
"""
RUN = reliability.Run("soak", "2026-02-03", "ccccccc", "18 s")


class Pages(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="reliability-")
        self.addCleanup(folder.cleanup)
        self.pages = reliability.Pages(pathlib.Path(folder.name) / "summary.md", pathlib.Path(folder.name))
        self.pages.summary.write_text(SUMMARY, encoding="utf-8")
        self.pages.page("soak").write_text(PAGE, encoding="utf-8")

    def page(self):
        return self.pages.page("soak").read_text(encoding="utf-8")

    def row(self):
        return self.pages.summary.read_text(encoding="utf-8").split("\n")[5]

    def test_a_run_that_held_replaces_the_figures_and_the_remarks_of_the_last_run(self):
        self.pages.keep(RUN, [("messages", "8 messages", "all"), ("lost", "0 messages", "")])
        self.assertEqual(
            self.page(),
            PAGE[: PAGE.index("`./dev")]
            + "`./dev check soak` held on 2026-02-03 at ccccccc, 18 s.\n\n"
            + "| Figure | Value | Bound |\n|---|---|---|\n| messages | 8 messages | all |\n| lost | 0 messages |  |\n",
        )

    def test_a_run_changes_only_its_row_and_keeps_what_the_check_tries(self):
        self.pages.keep(RUN, [])
        row = "| [soak](reliability/soak.md) | many messages | 2026-02-03 | ccccccc | 18 s | held |"
        before = SUMMARY.split("\n")
        self.assertEqual(self.pages.summary.read_text(encoding="utf-8").split("\n"), [*before[:5], row, *before[6:]])

    def test_a_failed_run_is_reported_above_the_figures_of_the_last_run_that_held(self):
        self.pages.keep_failure(RUN, "exit code 1")
        failed = "**Failed** on 2026-02-03 at ccccccc, 18 s: exit code 1. The figures are older.\n\n"
        table = PAGE.index("| Figure |")
        self.assertEqual(self.page(), PAGE[:table] + failed + PAGE[table:])
        self.assertEqual(
            self.row(), "| [soak](reliability/soak.md) | many messages | 2026-02-03 | ccccccc | 18 s | **failed** |"
        )

    def test_only_the_newest_failure_is_reported(self):
        self.pages.keep_failure(RUN, "exit code 1")
        self.pages.keep_failure(RUN, "exit code 2")
        self.assertEqual(self.page().count("**Failed**"), 1)
        self.assertIn("exit code 2", self.page())

    def test_a_run_that_held_removes_the_report_of_a_failure(self):
        self.pages.keep(RUN, [("messages", "8 messages", "all")])
        before = self.page()
        self.pages.keep_failure(RUN, "exit code 1")
        self.pages.keep(RUN, [("messages", "8 messages", "all")])
        self.assertEqual(self.page(), before)
        self.assertTrue(self.row().endswith("| held |"))

    def test_a_check_that_never_held_has_no_figures(self):
        self.pages.page("soak").write_text("# soak\n\nDoes it leak?\n", encoding="utf-8")
        self.pages.keep_failure(RUN, "exit code 1")
        self.assertEqual(
            self.page(),
            "# soak\n\nDoes it leak?\n\n## Last run\n\n`./dev check soak` has not held yet.\n\n"
            "**Failed** on 2026-02-03 at ccccccc, 18 s: exit code 1.\n",
        )

    def test_a_check_without_a_description_or_a_row_is_named(self):
        self.assertEqual(self.pages.missing("soak"), "")
        self.assertIn("no description of the check killed", self.pages.missing("killed"))
        self.pages.page("new").write_text("# new\n", encoding="utf-8")
        self.assertIn("no row for the check new", self.pages.missing("new"))


class Program(unittest.TestCase):
    """Runs checks/run.py with a check that reports one figure."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="reliability-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.page, self.summary = self.root / "docs" / "reliability" / "soak.md", self.root / "docs" / "reliability.md"
        self.page.parent.mkdir(parents=True)
        self.page.write_text(PAGE, encoding="utf-8")
        self.summary.write_text(SUMMARY, encoding="utf-8")
        program = self.root / "checks" / "soak" / "run"
        program.parent.mkdir(parents=True)
        for source in (SOURCE / "checks").glob("*.py"):
            shutil.copy(source, self.root / "checks")
        figure = json.dumps({"figure": "messages", "value": 1234, "unit": "messages", "bound": "all"})
        program.write_text(f"#!/bin/sh\necho '{figure}' >>\"$CHECK_FIGURES\"\n", encoding="utf-8")
        program.chmod(0o755)

    def run_check(self, *arguments):
        command = [sys.executable, "-B", self.root / "checks" / "run.py", *arguments]
        return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)

    def test_a_full_run_writes_its_page_and_its_row(self):
        self.assertEqual(self.run_check("soak").returncode, 0)
        self.assertIn("| messages | 1,234 messages | all |\n", self.page.read_text(encoding="utf-8"))
        self.assertNotIn("bbbbbbb", self.summary.read_text(encoding="utf-8"))

    def test_a_check_gets_its_own_options(self):
        program = self.root / "checks" / "soak" / "run"
        program.write_text('#!/bin/sh\necho "$@"\n', encoding="utf-8")
        self.assertIn("--quick --more 7\n", self.run_check("soak", "--quick", "--", "--more", "7").stdout)

    def test_a_failed_full_run_is_reported_and_fails(self):
        program = self.root / "checks" / "soak" / "run"
        program.write_text("#!/bin/sh\nexit 3\n", encoding="utf-8")
        self.assertEqual(self.run_check("soak").returncode, 1)
        self.assertIn(": exit code 3. The figures are older.", self.page.read_text(encoding="utf-8"))
        self.assertIn("| **failed** |", self.summary.read_text(encoding="utf-8"))

    def test_a_quick_run_and_one_with_options_only_print(self):
        for arguments in (["soak", "--quick"], ["soak", "--", "--more"], ["soak", "--quick", "--", "--more"]):
            with self.subTest(arguments):
                result = self.run_check(*arguments)
                self.assertEqual(result.returncode, 0)
                self.assertIn("messages: 1,234 messages (all)\n", result.stdout)
                self.assertEqual(self.page.read_text(encoding="utf-8"), PAGE)
                self.assertEqual(self.summary.read_text(encoding="utf-8"), SUMMARY)


class Tree(unittest.TestCase):
    def test_every_check_has_its_page_and_its_row(self):
        pages = reliability.Pages(SOURCE / "docs" / "reliability.md", SOURCE / "docs" / "reliability")
        checks = sorted(run.parent.name for run in (SOURCE / "checks").glob("*/run"))
        self.assertTrue(checks)
        self.assertEqual([pages.missing(check) for check in checks], [""] * len(checks))
        self.assertEqual(sorted(page.stem for page in pages.folder.glob("*.md")), checks)


if __name__ == "__main__":
    unittest.main()
