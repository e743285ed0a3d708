#!/usr/bin/env python3
"""Writes the golden messages: golden.py TVCTL FOLDER, for instance

    tests/decoder/golden.py build/release/bin/tvctl tests/golden

There is one file per message, SERVICE-MESSAGE.json. "values" are contents with their bytes in both byte orders, to be
read and written exactly so. "accepted" bytes must be read, although the system itself writes other bytes.
"""

import json
import pathlib
import subprocess
import sys

from codec import Codec, Writer

TEXTS = ["", "\0", "a\0b", " ", "Grüße, 世界 \U0001f4fa", 'quote" back\\slash\nline', "x" * 255]


class UnsetStrings(Writer):
    def string_words(self, data):
        return 0, 0


class UnsetStringsWithALength(Writer):
    def string_words(self, data):
        return 5, 0


class UnusualFlags(Writer):
    words = [2, 0x80000000, 0x00000100, 0xFFFFFFFF]

    def __init__(self, order):
        super().__init__(order)
        self.flags = 0

    def flag_word(self, value):
        self.flags += 1
        return self.words[self.flags % len(self.words)] if value else 0


class Maker:
    """Makes contents for a layout: all zero and empty, unless a subclass overrides it."""

    def __init__(self):
        self.count = 0  # number of fields filled so far

    def content(self, layout):
        return {field.name: self.field(field) for field in layout.fields}

    def field(self, field):
        self.count += 1
        if field.kind == "record":
            return self.content(field.layout)
        if field.kind == "sequence":
            return [self.content(field.layout) for _ in range(self.length(field))]
        if field.kind == "stringList":
            return [self.string() for _ in range(self.length(field))]
        if field.kind == "uint32List":
            return [self.scalar("I") for _ in range(self.length(field))]
        if field.kind == "string":
            return self.string()
        if field.kind == "flag":
            return self.flag()
        return self.scalar(field.codes)

    def length(self, _field):
        return 0

    def string(self):
        return ""

    def flag(self):
        return False

    def scalar(self, _code):
        return 0


class Typical(Maker):
    """No two values of a message are equal, so that swapped fields are detected."""

    def length(self, _field):
        return 2

    def string(self):
        self.count += 1
        return f"text {self.count}"

    def flag(self):
        return self.count % 2 == 0

    def scalar(self, code):
        self.count += 1
        value = {"b": 0x10, "h": 0x1100, "i": 0x11223300}[code.lower()] + self.count
        return -value if code.islower() and self.count % 3 == 0 else value


class Smallest(Maker):
    def length(self, _field):
        return 1

    def scalar(self, code):
        return {"b": -0x80, "h": -0x8000, "i": -0x80000000}.get(code, 0)


class Largest(Maker):
    def length(self, _field):
        return 3

    def string(self):
        return "\U0010ffff"

    def flag(self):
        return True

    def scalar(self, code):
        return {"b": 0x7F, "h": 0x7FFF, "i": 0x7FFFFFFF, "B": 0xFF, "H": 0xFFFF, "I": 0xFFFFFFFF}[code]


class Texts(Maker):
    def length(self, field):
        return 1 if field.kind == "sequence" else len(TEXTS)

    def string(self):
        self.count += 1
        return TEXTS[self.count % len(TEXTS)]


class Long(Maker):
    def length(self, field):
        return {"sequence": 17, "stringList": 100, "uint32List": 300}[field.kind]

    def scalar(self, _code):
        self.count += 1
        return self.count % 100

    def string(self):
        self.count += 1
        return "y" * (self.count % 7)


MAKERS = {
    "empty": Maker,
    "typical": Typical,
    "smallest": Smallest,
    "largest": Largest,
    "texts": Texts,
    "long lists": Long,
}


def schema_of(tvctl):
    return json.loads(subprocess.run([tvctl, "schema", "--json"], check=True, capture_output=True).stdout)


def kinds_of(layout):
    return {field.kind for field in layout.fields}.union(
        *(kinds_of(field.layout) for field in layout.fields if field.layout)
    )


def values_of(codec, service, message):
    """Yields (name, content) of the values that differ from all previous ones."""
    seen = []
    for name, maker in MAKERS.items():
        content = maker().content(codec.layout(service, message))
        if content not in seen:
            seen.append(content)
            yield name, content


def accepted_of(codec, service, message):
    """Yields (name, content, writer) of forms that are read although the system never writes them."""
    layout = codec.layout(service, message)
    kinds = kinds_of(layout)
    if kinds & {"string", "stringList"}:
        yield "unset strings", Smallest().content(layout), UnsetStrings
        yield "unset strings with a length", Smallest().content(layout), UnsetStringsWithALength
    if "flag" in kinds:
        yield "unusual flags", Largest().content(layout), UnusualFlags


def line(name, content, encode):
    text = [
        f' {{"name": {json.dumps(name)},',
        f'  "content": {json.dumps(content, ensure_ascii=False)},',
        f'  "little": "{encode("little").hex()}",',
        f'  "big": "{encode("big").hex()}"}}',
    ]
    return "\n".join(text)


def file_text(codec, service, message):
    def encoder(content, writer=None):
        return lambda order: codec.encode(service, message, content, order, writer)

    values = [line(name, content, encoder(content)) for name, content in values_of(codec, service, message)]
    accepted = [
        line(name, content, encoder(content, writer)) for name, content, writer in accepted_of(codec, service, message)
    ]
    lists = ((key, ",\n".join(lines)) for key, lines in (("values", values), ("accepted", accepted)))
    members = [f'"{key}": [\n{text}\n]' if text else f'"{key}": []' for key, text in lists]
    return f'{{"service": "{service}", "message": "{message}",\n' + ",\n".join(members) + "}\n"


def files(codec):
    """Returns the name and text of each golden file."""
    return {f"{service}-{message}.json": file_text(codec, service, message) for service, message in codec.messages()}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    for name, text in files(Codec(schema_of(sys.argv[1]))).items():
        (pathlib.Path(sys.argv[2]) / name).write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
