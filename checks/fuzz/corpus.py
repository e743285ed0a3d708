#!/usr/bin/env python3
"""The fuzzer's corpus: corpus/TARGET.tar.xz has the inputs of a target.

usage: corpus.py unpack FOLDER          writes each input as FOLDER/TARGET/INPUT; there is no FOLDER yet
       corpus.py add TARGET FILE...     adds inputs to a target, which may be new
       corpus.py pack FOLDER            makes the corpus what FOLDER has, and prints the targets that have changed

An archive depends on its inputs only: they are sorted, and have no owner and no time. One whose inputs are unchanged
is not written again.
"""

import io
import pathlib
import sys
import tarfile

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
SUFFIX = ".tar.xz"


def read(archive):
    """name -> bytes."""
    with tarfile.open(archive, "r:xz") as tar:
        return {member.name: tar.extractfile(member).read() for member in tar}


def write(archive, inputs):
    """Returns whether the archive had other inputs."""
    if archive.exists() and read(archive) == inputs:
        return False
    with tarfile.open(archive, "w:xz", format=tarfile.USTAR_FORMAT, preset=9) as tar:
        for name, data in sorted(inputs.items()):
            member = tarfile.TarInfo(name)  # with zeros for owner and time
            member.size = len(data)
            tar.addfile(member, io.BytesIO(data))
    return True


def named(files):
    """name -> bytes."""
    return {file.name: file.read_bytes() for file in files}


def archives(corpus):
    """target -> archive."""
    return {file.name.removesuffix(SUFFIX): file for file in sorted(corpus.glob(f"*{SUFFIX}"))}


def unpack(corpus, folder):
    folder.mkdir(parents=True)
    for target, archive in archives(corpus).items():
        (folder / target).mkdir()
        for name, data in read(archive).items():
            (folder / target / name).write_bytes(data)


def add(corpus, target, files):
    archive = corpus / f"{target}{SUFFIX}"
    before = read(archive) if archive.exists() else {}
    write(archive, before | named(files))


def pack(corpus, folder):
    """Returns the targets whose archives were written or removed."""
    targets = {path.name: named(path.iterdir()) for path in sorted(folder.iterdir())}
    targets = {target: inputs for target, inputs in targets.items() if inputs}
    if not targets:
        raise SystemExit(f"corpus: there are no inputs in {folder}")
    changed = [target for target, inputs in targets.items() if write(corpus / f"{target}{SUFFIX}", inputs)]
    for target, archive in archives(corpus).items():
        if target not in targets:
            archive.unlink()
            changed.append(target)
    return changed


def main():
    match sys.argv[1:]:
        case ["unpack", folder]:
            unpack(CORPUS, pathlib.Path(folder))
        case ["add", target, file, *more]:
            add(CORPUS, target, [pathlib.Path(name) for name in (file, *more)])
        case ["pack", folder]:
            for target in pack(CORPUS, pathlib.Path(folder)):
                print(target)
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    main()
