"""Tests of the archives of the fuzzer's corpus."""

import os
import pathlib
import sys
import tarfile
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "checks" / "fuzz"))
import corpus


def write(folder, inputs):
    for name, data in inputs.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def content(folder):
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


class Corpus(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.temporary = pathlib.Path(temporary.name)
        self.archives, self.folder = self.temporary / "archives", self.temporary / "folder"
        self.archives.mkdir()
        write(self.folder, {"a/1": b"one", "a/2": b"\0\xff", "b/1": b""})

    def unpacked(self):
        folder = self.temporary / "unpacked"
        corpus.unpack(self.archives, folder)
        return content(folder)

    def test_unpacks_what_was_packed(self):
        corpus.pack(self.archives, self.folder)
        self.assertEqual(self.unpacked(), {"a/1": b"one", "a/2": b"\0\xff", "b/1": b""})

    def test_makes_the_same_archive_of_inputs_in_another_order(self):
        one, other = self.temporary / "one", self.temporary / "other"
        corpus.write(one, {"1": b"one", "2": b"two"})
        corpus.write(other, {"2": b"two", "1": b"one"})
        self.assertEqual(one.read_bytes(), other.read_bytes())

    def test_makes_the_same_archive_at_another_time(self):
        corpus.pack(self.archives, self.folder)
        again = self.temporary / "again"
        again.mkdir()
        os.utime(self.folder / "a" / "1", (1, 1))
        corpus.pack(again, self.folder)
        self.assertEqual(content(again), content(self.archives))

    def test_writes_only_archives_whose_inputs_have_changed(self):
        corpus.pack(self.archives, self.folder)
        unchanged = self.archives / "b.tar.xz"
        os.utime(unchanged, (1, 1))
        write(self.folder, {"a/3": b"three"})
        self.assertEqual(corpus.pack(self.archives, self.folder), ["a"])
        self.assertEqual(unchanged.stat().st_mtime, 1)

    def test_removes_the_archive_of_a_target_without_inputs(self):
        corpus.pack(self.archives, self.folder)
        (self.folder / "b" / "1").unlink()
        self.assertEqual(corpus.pack(self.archives, self.folder), ["b"])
        self.assertEqual(self.unpacked(), {"a/1": b"one", "a/2": b"\0\xff"})

    def test_fails_to_pack_a_folder_without_inputs(self):
        corpus.pack(self.archives, self.folder)
        (self.temporary / "empty").mkdir()
        with self.assertRaises(SystemExit):
            corpus.pack(self.archives, self.temporary / "empty")
        self.assertEqual(len(self.unpacked()), 3)

    def test_keeps_the_other_inputs_when_one_is_added(self):
        corpus.pack(self.archives, self.folder)
        write(self.temporary, {"crash": b"boom"})
        corpus.add(self.archives, "a", [self.temporary / "crash"])
        corpus.add(self.archives, "c", [self.temporary / "crash"])
        self.assertEqual(
            self.unpacked(), {"a/1": b"one", "a/2": b"\0\xff", "a/crash": b"boom", "b/1": b"", "c/crash": b"boom"}
        )


class CorpusOfTheTree(unittest.TestCase):
    def test_is_packed_without_owners_and_times(self):
        for target, archive in corpus.archives(corpus.CORPUS).items():
            with self.subTest(target), tarfile.open(archive) as tar:
                members = tar.getmembers()
                self.assertEqual([member.name for member in members], sorted(member.name for member in members))
                self.assertEqual({(m.uid, m.gid, m.uname, m.gname, m.mtime) for m in members}, {(0, 0, "", "", 0)})


if __name__ == "__main__":
    unittest.main()
