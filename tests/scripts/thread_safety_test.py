"""What `./dev lint` says about guarded fields that are used without their lock."""

import json
import pathlib
import shutil
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / ".ci"))
import lint_sources

COUNTER = """#include <thread-safety/mutex.h>

#include <condition_variable>

struct Counter {
    int read() { %s }
    int held() TVSA_REQUIRES(mutex) { return count; }

    thread_safety::Mutex mutex;
    thread_safety::RecursiveMutex recursive;
    std::condition_variable changed;
    int count TVSA_GUARDED_BY(mutex) = 0;
    int nested TVSA_GUARDED_BY(recursive) = 0;
};

int read(Counter& counter) { return counter.read(); }
"""
GUARD = "const thread_safety::LockGuard lock(mutex); "
UNIQUE = "thread_safety::UniqueLock lock(mutex); "


class AGuardedField(unittest.TestCase):
    def findings(self, body):
        with tempfile.TemporaryDirectory() as place:
            folder = pathlib.Path(place)
            source = folder / "counter.cpp"
            source.write_text(COUNTER % body, encoding="utf-8")
            include = ROOT / "thread-safety" / "include"
            entry = {
                "directory": place,
                "file": str(source),
                "command": f"c++ -std=c++20 -Wall -Wextra -Werror -I{include} -o counter.o -c {source}",
            }
            (folder / "compile_commands.json").write_text(json.dumps([entry]), encoding="utf-8")
            command, _ = lint_sources.commands(folder)[str(source)]
            return lint_sources.lint(folder, str(source), command, folder, tidy=None)

    def test_is_reported_when_it_is_read_without_the_lock(self):
        self.assertIn("'count' requires holding mutex 'mutex'", self.findings("return count;"))

    def test_is_not_reported_when_it_is_read_with_the_lock(self):
        self.assertEqual(self.findings(GUARD + "return count;"), "")
        self.assertEqual(self.findings(UNIQUE + "return count;"), "")

    def test_is_reported_when_a_lock_has_been_given_back(self):
        self.assertIn("'count' requires holding mutex 'mutex'", self.findings(UNIQUE + "lock.unlock(); return count;"))
        self.assertEqual(self.findings(UNIQUE + "lock.unlock(); lock.lock(); return count;"), "")

    def test_is_reported_when_a_function_is_called_that_requires_the_lock(self):
        self.assertIn("'held' requires holding mutex 'mutex'", self.findings("return held();"))
        self.assertEqual(self.findings(GUARD + "return held();"), "")

    def test_is_reported_in_the_condition_of_a_wait_that_does_not_say_that_it_has_the_lock(self):
        wait = UNIQUE + "changed.wait(lock, [&]() %s { return count > 0; }); return count;"
        self.assertIn("'count' requires holding mutex 'mutex'", self.findings(wait % ""))
        self.assertEqual(self.findings(wait % "TVSA_REQUIRES(mutex)"), "")

    def test_is_reported_when_another_mutex_is_held(self):
        other = "const thread_safety::LockGuard lock(recursive); "
        self.assertIn("'count' requires holding mutex 'mutex'", self.findings(other + "return count;"))
        self.assertEqual(self.findings(other + "return nested;"), "")


if __name__ == "__main__":
    if shutil.which("clang++") is None:
        print("clang++ is not installed")
        sys.exit(77)
    unittest.main()
