"""Mutants in what only the compiler sees: the lists of fields and messages, the endian tables. Each is compiled.

A header is put in front of its original for the test that looks at its records, and for the sources that make the
tables. When they compile, which the tests' own static checks mostly prevent, the test is linked anew and run."""
import os
import pathlib
import re
import shlex
import subprocess

from mutant import mutant_at, replaced

_GENRPC = "frame-genrpc/genrpc/include/genrpc/"
_TV = "frame-genrpc/app-tvservice-proxy/include/tvservice/"
_MM = "frame-genrpc/app-mmservice-proxy/include/mmservice/"
# The headers with lists of fields, and the test that looks at what they list.
LISTS = {
    _TV + "core-records.h": "records_test",
    _MM + "records.h": "records_test",
    _TV + "stream-records.h": "stream_records_test",
    _TV + "status-records.h": "status_records_test",
}
TABLES = ["core-records", "stream-records", "status-records", "records", "messages"]
# The tests that look at what comes of each header.
TESTS = {
    **{file: [test] for file, test in LISTS.items()},
    _GENRPC + "table.h": ["records_test", "stream_records_test"],
    _GENRPC + "message.h": ["records_test"],
    _TV + "message-list.h": ["records_test"],
    _MM + "message-list.h": ["records_test"],
}
BY_HAND = [
    (_GENRPC + "table.h", "static_cast<vdl::EndianKind>(sizeof(T))", "static_cast<vdl::EndianKind>(1)"),
    (_GENRPC + "table.h", "cell{vdl::EndianScalar4, std::uintptr_t{0}}", "cell{vdl::EndianScalar2, std::uintptr_t{0}}"),
    (
        _GENRPC + "table.h",
        "cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}",
        "cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobString_t}",
    ),
    (
        _GENRPC + "table.h",
        "cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobUint32_t}",
        "cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}",
    ),
    (_GENRPC + "table.h", "cell{vdl::EndianSequence, E::table()}", "cell{vdl::EndianNested, E::table()}"),
    (_GENRPC + "table.h", "entryOf(field.offset,", "entryOf(field.offset + 1,"),
    (_GENRPC + "table.h", "entryOf(0, CellOf<Sequence<E>>::cell)", "entryOf(4, CellOf<Sequence<E>>::cell)"),
    (_GENRPC + "message.h", "offset += sizes[i]", "offset += sizes[0]"),
    (_GENRPC + "message.h", "count == 0 ? 1 :", "count == 0 ? 0 :"),
    (_GENRPC + "message.h", "0xFFFFFFFF, 0x1CCD7773, messageId, 0", "0xFFFFFFFF, 0x1CCD7773, messageId, 1"),
    (_GENRPC + "message.h", "0xFFFFFFFF, 0x1CCD7774, messageId, 1", "0xFFFFFFFF, 0x1CCD7775, messageId, 1"),
    (_GENRPC + "message.h", "{vdl::EndianNested, &ListTable<E>::table}", "{vdl::EndianNested, E::table()}"),
    (_TV + "message-list.h", "0x28671236", "0x28671235"),
    (_TV + "message-list.h", "tvServiceInfoReq, 0x2867123D)", "tvServiceInfoReq, 0x2867123D, (std::uint32_t, x))"),
    (_TV + "message-list.h", "Request, SetCasService,", "Notification, SetCasService,"),
    (
        _TV + "message-list.h",
        "(tvservice::NotifyOadStatus_t, status), (std::string, text)",
        "(std::string, text), (tvservice::NotifyOadStatus_t, status)",
    ),
    (_MM + "message-list.h", "0x28671237", "0x28671238"),
]


def _lists(root, file):
    """(operator, text, what becomes of it) for a header's fields."""
    text = (root / file).read_text(encoding="utf-8")
    for found in re.finditer(r"#define \w+_FIELDS\(FIELD\)(?:.*\\\n)*.*\n", text):
        fields = re.findall(r"FIELD\((?:[\w:<>]+), \w+\)", found[0].replace("_FIELDS(FIELD)", ""))
        for left, right in zip(fields, fields[1:]):
            changed = found[0].replace(left, "\0").replace(right, left).replace("\0", right)
            yield "fields swapped", found[0], changed, f"{left} and {right}"
        for field in fields:
            yield "field left out", found[0], found[0].replace(field, ""), field
            if "std::int32_t" in field:
                narrower = field.replace("std::int32_t", "std::uint16_t")
                yield "another type", found[0], found[0].replace(field, narrower), field


def mutants(root, first):
    """The mutants with the text of their header: [(mutant, header's text)]."""
    made = []

    def add(file, old, new, operator, change):
        text = (root / file).read_text(encoding="utf-8")
        changed = replaced(file, text, old, new)
        made.append((mutant_at(first + len(made), file, text, old, operator, change), changed))

    for file in LISTS:
        for operator, old, new, change in _lists(root, file):
            add(file, old, new, operator, change)
    for file, old, new in BY_HAND:
        add(file, old, new, "by hand", f"{new} for {old}")
    return made


class Compiler:
    """Builds a test over a header that is not the tree's."""

    def __init__(self, made, folder):
        self.made = made
        self.folder = folder
        self.commands = {}
        for test in sorted({test for tests in TESTS.values() for test in tests}):
            lines = subprocess.run(
                ["ninja", "-t", "commands", test], cwd=made, stdout=subprocess.PIPE, text=True, check=True
            ).stdout.splitlines()
            wanted = [line for line in lines if re.search(rf" -c \S+/({'|'.join([test, *TABLES])})\.cpp$", line)]
            link = next(line for line in lines if f" -o bin/{test} " in line)
            self.commands[test] = wanted, link

    def baseline(self, root, files):
        """The tests have to compile and pass with the headers as they are, put in front of themselves."""
        for test in self.commands:
            headers = {file: (root / file).read_text(encoding="utf-8") for file in files if test in TESTS[file]}
            if headers and (killer := self._killed_by(test, headers, test)):
                raise SystemExit(f"mutation: {killer} refuses {test} over headers as they are: {', '.join(headers)}")

    def killer(self, mutant, text):
        killers = (self._killed_by(test, {mutant.file: text}, str(mutant.number)) for test in TESTS[mutant.file])
        return next(filter(None, killers), None)

    def _killed_by(self, test, headers, name):
        place = self.folder / name
        for file, text in headers.items():
            header = place / "include" / pathlib.Path(file).parent.name / pathlib.Path(file).name
            header.parent.mkdir(parents=True, exist_ok=True)
            header.write_text(text, encoding="utf-8")
        compiles, link = self.commands[test]
        objects = []
        for command in sorted(compiles, key=lambda line: test not in line):
            words = [word for word in shlex.split(command) if not word.endswith("ccache")]
            output = place / f"{len(objects)}.o"
            words[words.index("-o") + 1] = str(output)
            for option in ("-MD", "-MT", "-MF"):
                at = words.index(option)
                del words[at : at + (1 if option == "-MD" else 2)]
            words.insert(1, f"-I{place / 'include'}")
            # Static checks of the test, which comes first, refuse most: no code is made before they have passed.
            for stage in ([["-fsyntax-only"]] if not objects else []) + [[]]:
                if subprocess.run(words + stage, cwd=self.made, stderr=subprocess.DEVNULL, check=False).returncode != 0:
                    return "the compiler"
            objects.append(str(output))
        program = place / test
        words = shlex.split(link.replace(": && ", "").split(" && ")[0])
        own = next(i for i, word in enumerate(words) if word.endswith(f"{test}.cpp.o"))
        words[own : own + 1] = objects
        words[words.index("-o") + 1] = str(program)
        if subprocess.run(words, cwd=self.made, stderr=subprocess.DEVNULL, check=False).returncode != 0:
            return "the linker"
        path = {**os.environ, "LD_LIBRARY_PATH": str(self.made / "lib")}
        failed = (
            subprocess.run(
                [program, "--gtest_brief=1"],
                env=path,
                timeout=120,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                check=False,
            ).returncode
            != 0
        )
        program.unlink()
        return test if failed else None
