"""Reads and writes messages, based only on the schema that `tvctl schema --json` prints.

    codec = Codec(json.loads(text))
    codec.decode("tvservice", "TvServiceAudioReq", data, "little")
    codec.encode("tvservice", "TvServiceAudioReq", {"request": {...}}, "big")

The content of a message is a dictionary of its arguments; a record is a dictionary of its fields. Strings are text;
bytes that are not UTF-8 become lone surrogates, so that nothing is lost.
"""

import struct

SCHEMA_VERSION = 1

_ORDERS = {"little": "<", "big": ">"}
_SCALARS = {(1, True): "b", (1, False): "B", (2, True): "h", (2, False): "H", (4, True): "i", (4, False): "I"}
# Kinds of two words: a count or length, and a pointer.
_POINTERS = ("string", "stringList", "uint32List", "sequence")


class SchemaError(ValueError):
    """This codec does not support the schema."""


class WireError(ValueError):
    """An error in a message's bytes or content, with the path of the field."""

    def __init__(self, problem):
        super().__init__(problem)
        self.problem = problem
        self.path = []

    def inside(self, step):
        self.path.insert(0, step)
        return self

    def __str__(self):
        path = "".join(f"[{step}]" if isinstance(step, int) else f".{step}" for step in self.path).lstrip(".")
        return f"{path}: {self.problem}" if path else self.problem


class _Field:
    def __init__(self, entry, layout_of):
        self.name = entry["name"]
        self.kind = entry["kind"]
        size = entry["size"]
        self.layout = layout_of(entry["record"]) if "record" in entry else None
        if self.kind == "scalar":
            self.codes = _SCALARS.get((size, entry["signed"]), "")
        elif self.kind == "flag":
            self.codes = "I"
        elif self.kind == "record":
            self.codes = self.layout.codes
        elif self.kind in _POINTERS:
            self.codes = "II"
        else:
            raise SchemaError(f"field {self.name}: unknown kind {self.kind}")
        if struct.calcsize("<" + self.codes) != size:
            raise SchemaError(f"field {self.name}: a {self.kind} of {size} bytes")


class _Layout:
    """A record, or the arguments of a message: its fields, and its words in both byte orders."""

    def __init__(self, name, entries, size, layout_of):
        self.fields = []
        end = 0
        for entry in entries:
            if entry["offset"] != end:
                raise SchemaError(f"{name}: field {entry['name']} is at {entry['offset']}, not at {end}")
            self.fields.append(_Field(entry, layout_of))
            end += entry["size"]
        if not entries:
            end = 1  # one byte 0
        if end != size:
            raise SchemaError(f"{name}: its fields take {end} bytes, its size is {size}")
        self.size = size
        self.codes = "".join(field.codes for field in self.fields) if entries else "x"
        self.structs = {order: struct.Struct(sign + self.codes) for order, sign in _ORDERS.items()}


class Codec:
    def __init__(self, schema):
        if schema.get("version") != SCHEMA_VERSION:
            raise SchemaError(f"schema version {schema.get('version')}, expected {SCHEMA_VERSION}")
        self.schema = schema
        self._records = {record["name"]: record for service in schema["services"] for record in service["records"]}
        self._layouts = {}
        self._messages = {
            (service["name"], message["name"]): _Layout(
                message["name"], message["arguments"], message["size"], self._layout_of
            )
            for service in schema["services"]
            for message in service["messages"]
        }
        for name in self._records:  # including those that no message contains
            self._layout_of(name)

    def messages(self):
        """Returns the pairs (service, message)."""
        return list(self._messages)

    def layout(self, service, message):
        if (service, message) not in self._messages:
            raise WireError(f"the service {service} has no message {message}")
        return self._messages[service, message]

    def decode(self, service, message, data, order):
        return _Reader(data, order).message(self.layout(service, message))

    def encode(self, service, message, content, order, writer=None):
        return (writer or Writer)(order).message(self.layout(service, message), content)

    def _layout_of(self, name):
        if name not in self._layouts:
            if name not in self._records:
                raise SchemaError(f"there is no record {name}")
            record = self._records[name]
            self._layouts[name] = _Layout(name, record["fields"], record["size"], self._layout_of)
        return self._layouts[name]


class _Reader:
    def __init__(self, data, order):
        self.data = data
        self.order = order
        self.next = 0  # where the next block must begin

    def message(self, layout):
        if len(self.data) < layout.size:
            raise WireError(f"the message has {len(self.data)} bytes, its arguments alone take {layout.size}")
        self.next = layout.size
        content = self._record(layout, iter(layout.structs[self.order].unpack_from(self.data)))
        if self.next != len(self.data):
            raise WireError(f"{len(self.data) - self.next} bytes follow the message's last block")
        return content

    def _record(self, layout, words):
        content = {}
        for field in layout.fields:
            try:
                content[field.name] = self._field(field, words)
            except WireError as error:
                raise error.inside(field.name)
        return content

    def _field(self, field, words):
        kind = field.kind
        if kind == "scalar":
            return next(words)
        if kind == "flag":
            return next(words) != 0
        if kind == "record":
            return self._record(field.layout, words)
        count, offset = next(words), next(words)
        if kind == "string":
            return self._string(count, offset)
        if (count == 0) != (offset == 0):
            raise WireError(f"count {count} with {'a null pointer' if offset == 0 else f'a pointer to byte {offset}'}")
        if count == 0:
            return []
        if kind == "uint32List":
            return list(struct.unpack(f"{_ORDERS[self.order]}{count}I", self._block(offset, 4 * count)))
        if kind == "stringList":
            array = struct.iter_unpack(_ORDERS[self.order] + "II", self._block(offset, 8 * count))
            return [self._element(i, self._string, *element) for i, element in enumerate(array)]
        array = field.layout.structs[self.order].iter_unpack(self._block(offset, field.layout.size * count))
        return [self._element(i, self._record, field.layout, iter(element)) for i, element in enumerate(array)]

    @staticmethod
    def _element(index, read, *arguments):
        try:
            return read(*arguments)
        except WireError as error:
            raise error.inside(index)

    def _string(self, length, offset):
        if offset == 0:
            return ""
        block = self._block(offset, length + 1)
        if block[length] != 0:
            raise WireError(f"the string of {length} bytes at byte {offset} is not terminated")
        return block[:length].decode("utf-8", "surrogateescape")

    def _block(self, offset, size):
        if offset != self.next:
            raise WireError(f"its block is at byte {offset}, but the next block begins at byte {self.next}")
        if size > len(self.data) - offset:
            raise WireError(f"its block of {size} bytes at byte {offset} exceeds the message of {len(self.data)} bytes")
        self.next += size
        return self.data[offset : self.next]


class Writer:
    """Builds one message. Subclasses write strings and flags in other valid forms."""

    def __init__(self, order):
        self.order = order
        self.out = bytearray()

    def message(self, layout, content):
        self._records(layout, [content])
        return bytes(self.out)

    def string_words(self, data):
        offset = len(self.out)
        self.out += data + b"\0"
        return len(data), offset

    def flag_word(self, value):
        return 1 if value else 0

    def _reserve(self, size):
        offset = len(self.out)
        self.out += bytes(size)
        return offset

    def _records(self, layout, contents):
        start = self._reserve(layout.size * len(contents))
        for i, content in enumerate(contents):
            words = self._words(layout, content)
            try:
                layout.structs[self.order].pack_into(self.out, start + i * layout.size, *words)
            except struct.error as error:
                raise WireError(str(error))
        return start

    def _words(self, layout, content):
        names = [field.name for field in layout.fields]
        if sorted(content) != sorted(names):
            raise WireError(f"wanted {', '.join(names) or 'nothing'}, got {', '.join(content) or 'nothing'}")
        words = []
        for field in layout.fields:
            try:
                words += self._field(field, content[field.name])
            except WireError as error:
                raise error.inside(field.name)
        return words

    def _field(self, field, value):
        if field.kind == "scalar":
            return (value,)
        if field.kind == "flag":
            return (self.flag_word(value),)
        if field.kind == "record":
            return self._words(field.layout, value)
        if field.kind == "string":
            return self.string_words(self._encoded(value))
        if not value:
            return 0, 0
        if field.kind == "sequence":
            return len(value), self._records(field.layout, value)
        if field.kind == "uint32List":
            offset = len(self.out)
            self.out += struct.pack(f"{_ORDERS[self.order]}{len(value)}I", *value)
            return len(value), offset
        offset = self._reserve(8 * len(value))
        for i, text in enumerate(value):
            words = self.string_words(self._encoded(text))
            struct.pack_into(_ORDERS[self.order] + "II", self.out, offset + 8 * i, *words)
        return len(value), offset

    @staticmethod
    def _encoded(text):
        return text.encode("utf-8", "surrogateescape")
