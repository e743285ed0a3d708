"""Reads random messages that the services' code generates, and compares the contents.

Environment: TVCTL and GENERATOR, the programs; COUNT, the number of messages.
"""

import collections
import json
import os
import subprocess
import unittest

import golden
from codec import Codec


class GeneratedMessages(unittest.TestCase):
    def test_have_the_content_that_the_decoder_reads(self):
        codec = Codec(golden.schema_of(os.environ["TVCTL"]))
        count = int(os.environ["COUNT"])
        seen = collections.Counter()
        with subprocess.Popen([os.environ["GENERATOR"], str(count)], stdout=subprocess.PIPE) as generator:
            for line in generator.stdout:
                entry = json.loads(line)
                service, message, order = entry["service"], entry["message"], entry["order"]
                seen[service, message, order] += 1
                content = codec.decode(service, message, bytes.fromhex(entry["bytes"]), order)
                if content != entry["content"]:
                    self.assertEqual(content, entry["content"], f"{service} {message}, {order}: {entry['bytes']}")
        self.assertEqual(generator.returncode, 0)
        self.assertEqual(seen.total(), count)
        every = {(*message, order) for message in codec.messages() for order in ("little", "big")}
        self.assertEqual(set(seen), every)


if __name__ == "__main__":
    unittest.main()
