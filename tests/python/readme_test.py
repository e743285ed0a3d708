"""Runs the programs of the module's README with a receiver."""

import os
import subprocess
import sys
import unittest

import readme
from tvservice.local import LocalReceiver


class Readme(unittest.TestCase):
    def test_shows_what_its_programs_print(self):
        programs = [(text, output) for text, output in readme.examples() if output is not None]
        self.assertEqual(len(programs), 3)
        for text, output in programs:
            with self.subTest(text), LocalReceiver() as receiver:
                environment = {**os.environ, "RUNTIME_DIRECTORY": receiver.folder}
                command = [sys.executable, "-B", "-"]
                ran = subprocess.run(
                    command, input=text, env=environment, text=True, check=True, stdout=subprocess.PIPE
                )
                self.assertEqual(ran.stdout, output)


if __name__ == "__main__":
    unittest.main()
