"""The copy of the tree in which the product's sources are rewritten with their mutants."""
import shutil
import subprocess

import places
import points
from mutant import mutant_at

GENRPC = "frame-genrpc/genrpc/include/genrpc/"
ADAPTER = "tvservice-adapter/src/tvservice-adapter.cpp"
# What is mutated, by the source that is parsed for it.
UNITS = {
    "tvservice-adapter/src/resource-manager.cpp": ["tvservice-adapter/src/resource-manager.cpp"],
    ADAPTER: [
        ADAPTER,
        *(
            GENRPC + name
            for name in (
                "client-list.h",
                "flat-region.h",
                "flat-types.h",
                "flatten.h",
                "message.h",
                "proxy.h",
                "send.h",
            )
        ),
    ],
    "tvservice-adapter/src/client-news.cpp": ["tvservice-adapter/src/client-news.cpp"],
    "tvservice-adapter/src/ovshell.cpp": ["tvservice-adapter/src/ovshell.cpp"],
    "frame-genrpc/app-tvservice-proxy/src/app-tvservice-proxy-main.cpp": [
        "frame-genrpc/app-tvservice-proxy/src/app-tvservice-proxy-main.cpp"
    ],
    "frame-genrpc/app-mmservice-proxy/src/app-mmservice-proxy-main.cpp": [
        "frame-genrpc/app-mmservice-proxy/src/app-mmservice-proxy-main.cpp"
    ],
    "frame-genrpc/genrpc/src/log.cpp": ["frame-genrpc/genrpc/src/log.cpp"],
    GENRPC + "json.h": [GENRPC + "json.h"],
}
INCLUDES = [
    "tvservice-adapter/include",
    "tvservice-adapter/src",
    "frame-genrpc/genrpc/include",
    "frame-genrpc/app-tvservice-proxy/include",
    "frame-genrpc/app-mmservice-proxy/include",
    "frame-genrpc/app-tvservice-proxy/src",
    "frame-genrpc/app-mmservice-proxy/src",
    "platform/contract",
    "thread-safety/include",
]
# The compiler's own headers for the syntax tree, which its library does not bring along.
BUILTIN = "/usr/lib/llvm-14/lib/clang/14.0.6/include"


def write(path, data):
    """Only what changed, so that nothing is built again for nothing."""
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def remove_others(copy, names):
    """Files that the tree no longer has, which the build would find."""
    for path in {path for path in copy.rglob("*") if path.is_file()} - {copy / name for name in names}:
        path.unlink()


def files(root):
    names = (
        subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=root,
            stdout=subprocess.PIPE,
            check=True,
        )
        .stdout.decode()
        .split("\0")
    )
    return [name for name in names if name and (root / name).is_file()]


def make(root, copy):
    """The mutants, all of which the copy has in it."""
    flags = ["-std=c++20", "-x", "c++", *(f"-I{root / folder}" for folder in INCLUDES), "-isystem", BUILTIN]
    mutants = []
    rewritten = {}
    for unit, names in UNITS.items():
        parsed = points.parse(root / unit, flags)
        for name in names:
            source = points.Source(root, name, parsed, len(mutants))
            mutants += source.mutants
            rewritten[name] = source.rewritten()
    for name in sorted({file for file, _, _ in places.PLACES}):
        original = (root / name).read_text(encoding="utf-8")
        made, text = places.apply(name, rewritten.get(name, original), len(mutants))
        for old, new in made:
            mutants.append(
                mutant_at(len(mutants), name, original, old, "by hand", f"{new} for {old}".replace("\\\n", " "))
            )
        rewritten[name] = text
    names = files(root)
    for name in names:
        write(copy / name, rewritten[name].encode() if name in rewritten else (root / name).read_bytes())
        shutil.copymode(root / name, copy / name)
    remove_others(copy, names)
    return mutants


def build(folder, programs):
    tree, made = folder / "tree", folder / "made"
    # -w: what is odd about the rewritten sources is no news.
    flags = f"-w -fpermissive -Wno-narrowing -include {tree}/checks/mutation/mutation.h"
    subprocess.run(
        [
            "cmake",
            "-S",
            tree,
            "-B",
            made,
            "-G",
            "Ninja",
            "-DCMAKE_BUILD_TYPE=Debug",
            "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
            f"-DCMAKE_CXX_FLAGS={flags}",
            f"-DCMAKE_CXX_COMPILER_LAUNCHER={shutil.which('ccache') or ''}",
        ],
        stdout=subprocess.DEVNULL,
        check=True,
    )
    subprocess.run(["cmake", "--build", made, "-j2", "--target", *programs], check=True)
