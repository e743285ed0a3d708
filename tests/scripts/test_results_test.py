"""Tests the report of `./dev test` about skipped and failed tests."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / ".ci"))
import test_results

GTEST = r"""Running main() from gtest_main.cc
[ RUN      ] Shell.IsOfAnotherUser
shell_test.cpp:12: Skipped
only root can be another user

[  SKIPPED ] Shell.IsOfAnotherUser (0 ms)
[  PASSED  ] 0 tests.

  YOU HAVE 1 DISABLED TEST
"""
PROJECT = r"""cmake_minimum_required(VERSION 3.25)
project(results NONE)
enable_testing()
add_test(NAME passes COMMAND sh -c "echo fine")
add_test(NAME fails COMMAND false)
add_test(NAME returns COMMAND sh -c "echo looked; echo no compiler; exit 77")
set_tests_properties(returns PROPERTIES SKIP_RETURN_CODE 77)
add_test(NAME prints COMMAND cat "${CMAKE_CURRENT_SOURCE_DIR}/gtest.txt")
set_tests_properties(prints PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
add_test(NAME is-silent COMMAND sh -c "exit 77")
set_tests_properties(is-silent PROPERTIES SKIP_RETURN_CODE 77)
add_test(NAME is-off COMMAND true)
set_tests_properties(is-off PROPERTIES DISABLED ON)
add_test(NAME has-no-program COMMAND /none)
"""
FAILED = r"""[ RUN      ] Pictures.AreShown
much that it did before
pictures_test.cpp:12: Failure
Value of: picture
  Actual: false

[  FAILED  ] Pictures.AreShown (0 ms)
"""


class Results(unittest.TestCase):
    def test_shows_what_a_failed_test_expected(self):
        self.assertEqual(
            test_results.shortened(FAILED),
            [
                "pictures_test.cpp:12: Failure",
                "Value of: picture",
                "  Actual: false",
                "[  FAILED  ] Pictures.AreShown (0 ms)",
            ],
        )

    def test_shows_the_end_of_what_a_test_printed_that_names_no_failure(self):
        lines = [f"line {number}" for number in range(100)]
        self.assertEqual(test_results.shortened("\n".join(lines)), lines[-test_results.LINES_OF_A_FAILURE :])
        self.assertEqual(test_results.shortened("killed\n"), ["killed"])

    def test_names_each_skipped_test_and_its_reason(self):
        with tempfile.TemporaryDirectory() as temporary:
            folder = pathlib.Path(temporary)
            (folder / "CMakeLists.txt").write_text(PROJECT, encoding="utf-8")
            (folder / "gtest.txt").write_text(GTEST, encoding="utf-8")
            subprocess.run(["cmake", "-S", folder, "-B", folder], stdout=subprocess.DEVNULL, check=True)
            subprocess.run(
                ["ctest", "--test-dir", folder, "--output-junit", "test.xml"], capture_output=True, check=False
            )
            self.assertEqual(
                dict(test_results.skipped(folder / "test.xml")),
                {
                    "returns": "no compiler",
                    "prints": "only root can be another user",
                    "is-silent": "gives no reason",
                    "is-off": "disabled",
                },
            )
            self.assertEqual([name for name, _ in test_results.failed(folder / "test.xml")], ["fails"])


if __name__ == "__main__":
    unittest.main()
