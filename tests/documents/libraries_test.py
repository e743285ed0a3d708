#!/usr/bin/env python3
"""docs/design.md and the build agree on which library of the host platform uses which: libraries_test.py ROOT"""
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(sys.argv.pop()).resolve()


def documented():
    """What each library uses, as the table of the layers says: a set of names, or None for "all but ..."."""
    text = (ROOT / "docs" / "design.md").read_text(encoding="utf-8")
    section = text.split("### Layers of the host platform", 1)[1].split("\n## ", 1)[0]
    result = {}
    for names, uses in re.findall(r"^\| (`[^|]*`) \|[^|]*\| ([^|]*)\|$", section, re.MULTILINE):
        for name in re.findall(r"`([a-z-]+)`", names):
            result[name] = uses.strip()
    return result


def built():
    """What each library uses, as its CMakeLists.txt says."""
    result = {}
    for path in (ROOT / "platform" / "src").glob("*/CMakeLists.txt"):
        lists = re.findall(r"\bUSES\s+([a-z\s-]*)", path.read_text(encoding="utf-8"))
        result[path.parent.name] = {name for names in lists for name in names.split()}
    return result


class Libraries(unittest.TestCase):
    def test_the_document_names_every_library(self):
        self.assertEqual(set(documented()), set(built()))

    def test_the_document_names_what_each_library_uses(self):
        libraries = built()
        for name, text in documented().items():
            with self.subTest(name):
                used = set(re.findall(r"[a-z-]+", text))
                if text.startswith("all but "):
                    used = set(libraries) - {name} - (used - {"all", "but", "and"})
                self.assertEqual(used, libraries[name])


if __name__ == "__main__":
    unittest.main()
