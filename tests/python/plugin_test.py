"""Tests the fixtures for pytest by running it."""

import functools
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

import readme


@functools.lru_cache(maxsize=None)
def python_with_pytest():
    """Returns this interpreter or the system's, for which packages of the system install pytest; or None."""
    for python in (sys.executable, "/usr/bin/python3"):
        command = [python, "-B", "-c", "import pytest"]
        if shutil.which(python) and subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode == 0:
            return python
    return None


class Plugin(unittest.TestCase):
    def run_pytest(self, text):
        """Runs pytest on a file of tests. Returns the exit code and the output."""
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder) / "test_example.py"
            file.write_text(text, encoding="utf-8")
            command = [python_with_pytest(), "-B", "-m", "pytest", "-p", "tvservice.pytest_plugin"]
            command += ["-p", "no:cacheprovider"]
            ran = subprocess.run([*command, file], cwd=folder, capture_output=True, text=True, check=False)
        return ran.returncode, ran.stdout + ran.stderr

    def test_runs_the_tests_of_the_readme(self):
        tests = [text for text, output in readme.examples() if output is None]
        self.assertEqual(len(tests), 1)
        code, output = self.run_pytest(tests[0])
        self.assertEqual(code, 0, output)
        self.assertIn("1 passed", output)

    def test_gives_each_test_a_receiver_of_its_own(self):
        code, output = self.run_pytest(
            "import pytest\n"
            "@pytest.mark.parametrize('number', [1, 2])\n"
            "def test_plays(receiver, number):\n"
            "    assert receiver.play('0:0', 'dvb://1.1.1').id == 'control-1'\n"
        )
        self.assertEqual(code, 0, output)

    def test_shows_the_logs_when_a_test_fails(self):
        code, output = self.run_pytest(
            "import pytest\n"
            "@pytest.fixture\n"
            "def receiver_environment():\n"
            "    return {'TVSA_LOG': 'service=info'}\n"
            "def test_fails(receiver):\n"
            "    receiver.play('0:0', 'dvb://1.1.1')\n"
            "    assert False\n"
        )
        self.assertEqual(code, 1, output)
        self.assertRegex(output, r"logs of the receiver(?s:.*)---- tvserviced ----(?s:.*)dvb://1\.1\.1")

    def test_fails_a_test_whose_receiver_dies(self):
        code, output = self.run_pytest(
            "def test_kills(receiver):\n"
            "    receiver.processes['mmserviced'].kill()\n"
            "    receiver.processes['mmserviced'].wait()\n"
        )
        self.assertEqual(code, 1, output)
        self.assertIn("mmserviced had ended unexpectedly", output)


if __name__ == "__main__":
    if python_with_pytest() is None:
        print("pytest is not installed")
        sys.exit(77)
    unittest.main()
