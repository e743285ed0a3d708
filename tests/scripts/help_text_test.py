"""Tests what manual pages and completion take from a help text and from a document."""

import pathlib
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "manual"))
import help_text
import roff

TEXT = """tool [OPTIONS] VERB

Does one thing.
And another.
Usage: tool [OPTIONS]

Positionals:
  NAME TEXT ...               What to do it with

Options:
  -h,--help                   Print this help message and exit
  --count UINT:UINT in [1 - 1000000000] Excludes: --once
                              How often
  --once Excludes: --count    The same as --count 1

Verbs (see below):
  run  runs it
  stop  stops it

Exit codes: 0 done,
1 not done
"""


class HelpText(unittest.TestCase):
    def test_has_all_parts(self):
        parsed = help_text.parse("tool", TEXT)
        self.assertEqual(parsed.synopsis, "tool [OPTIONS] VERB")
        self.assertEqual(parsed.description, ["Does one thing. And another."])
        self.assertEqual([(one.names, one.text) for one in parsed.arguments], [("NAME TEXT ...", "What to do it with")])
        self.assertEqual([one.options() for one in parsed.options], [["-h", "--help"], ["--count"], ["--once"]])
        self.assertEqual([one.takes_value() for one in parsed.options], [False, True, False])
        self.assertEqual(parsed.options[1].text, "How often")
        self.assertEqual([(one.names, one.text) for one in parsed.commands], [("run", "runs it"), ("stop", "stops it")])
        self.assertEqual(parsed.notes, ["Exit codes: 0 done, 1 not done"])

    def test_without_its_form_is_an_error(self):
        for text in ("", TEXT.replace("Usage: ", "How: "), TEXT.replace("  -h,--help", "-h,--help")):
            with self.assertRaises(help_text.HelpError):
                help_text.parse("tool", text)


class Roff(unittest.TestCase):
    def test_takes_a_line_literally(self):
        self.assertEqual(roff.escape(".TH \\n --x"), "\\&.TH \\en \\-\\-x")
        self.assertEqual(
            roff.inline("see `--x` in [the list](a.md#x), **now**"), "see \\fB\\-\\-x\\fR in the list, \\fBnow\\fR"
        )

    def test_has_each_block_of_a_document(self):
        title, pieces = roff.document("# Title\n\nA\nparagraph.\n\n1. one\n2. two\n\n## More\n\n```\n.x\n\ny\n```\n")
        self.assertEqual(title, "Title")
        self.assertEqual(
            pieces,
            [".PP", "A paragraph.", ".TP", "1.", "one", ".TP", "2.", "two", ".SH MORE"]
            + [".PP", ".nf", ".RS", "\\&.x", "", "y", ".RE", ".fi"],
        )

    def test_names_the_columns_of_a_table(self):
        _, pieces = roff.document("# T\n\n| A | B | C |\n|---|---|---|\n| `a` | b | |\n")
        self.assertEqual(pieces, [".TP", "\\fBa\\fR", "B: b"])
        _, pieces = roff.document("# T\n\n| A | B |\n|---|---|\n| a | b |\n")
        self.assertEqual(pieces, [".TP", "a", "b"])


if __name__ == "__main__":
    unittest.main()
