"""What the fuzzer starts from."""

import collections
import pathlib
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "checks" / "fuzz"))
import seeds


class Seeds(unittest.TestCase):
    def test_every_kind_of_input_has_some_and_each_a_name_of_its_own(self):
        kinds = sorted(file.stem for file in (ROOT / "tests" / "golden").glob("*.json"))
        names = collections.Counter((target, name) for target, name, _ in seeds.seeds(kinds))
        self.assertEqual([seed for seed, number in names.items() if number > 1], [])
        others = (
            "channel-list distribution encode endian-tables frames handshake json packets shell-lines table-sections "
            "tls-before tls-inside uris"
        )
        self.assertEqual({target for target, _ in names}, {*kinds, *others.split()})


if __name__ == "__main__":
    unittest.main()
