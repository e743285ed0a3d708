"""The examples of the module's README, for tests that run them."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def examples():
    """Returns pairs: a program, and the output that follows it, None for a file of tests."""
    blocks = BLOCK.findall((ROOT / "python" / "README.md").read_text(encoding="utf-8"))
    return [
        (text, blocks[i + 1][1] if i + 1 < len(blocks) and blocks[i + 1][0] == "text" else None)
        for i, (kind, text) in enumerate(blocks)
        if kind == "python"
    ]
