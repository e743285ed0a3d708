#!/usr/bin/env python3
"""Checks that the C++ code in each document is a verbatim part of an example that is built."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
BLOCK = re.compile(r"^```cpp\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def main():
    examples = ["\n" + path.read_text(encoding="utf-8") for path in (ROOT / "docs" / "examples").rglob("*.cpp")]
    shown = [
        (document.relative_to(ROOT), code)
        for document in [ROOT / "README.md", *(ROOT / "docs").rglob("*.md")]
        for code in BLOCK.findall(document.read_text(encoding="utf-8"))
    ]
    wrong = [document for document, code in shown if not any("\n" + code in example for example in examples)]
    for document in wrong:
        print(f"{document}: code that is in no file below docs/examples", file=sys.stderr)
    print(f"{len(shown)} pieces of code in documents")
    return 1 if wrong or not shown else 0


if __name__ == "__main__":
    sys.exit(main())
