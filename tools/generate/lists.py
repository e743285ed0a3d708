"""Reads the lists of messages and records from the headers of frame-genrpc."""

import dataclasses
import re


@dataclasses.dataclass
class Argument:
    type: str  # as in the list: "std::vector<tvservice::TvServiceReq_t>"
    name: str


@dataclasses.dataclass
class Message:
    service: str
    direction: str
    name: str
    method: str
    id: int
    arguments: list
    comment: str  # the comment before it, for its declaration in the adapter


@dataclasses.dataclass
class Record:
    service: str
    name: str
    fields: list  # of Argument; types relative to the service's namespace


SCALAR_BYTES = {"std::int32_t": 4, "std::uint32_t": 4, "std::uint16_t": 2, "std::uint8_t": 1, "bool": 4}


class ListError(Exception):
    """A malformed list."""


def _macros(text):
    """The body of each one-parameter macro, with its lines joined."""
    text = text.replace("\\\n", " ")
    return {found[1]: found[2] for found in re.finditer(r"^#define (\w+)\(\w+\)(.*)$", text, re.MULTILINE)}


def _pairs(text):
    """(type, name) of each pair in parentheses."""
    return [Argument(found[1].strip(), found[2]) for found in re.finditer(r"\(\s*([^()]+),\s*(\w+)\s*\)", text)]


_MESSAGE = re.compile(
    r"(?:/\*(?P<comment>.*?)\*/\s*)?MESSAGE\(\s*(?P<service>\w+),\s*(?P<direction>\w+),\s*(?P<name>\w+),"
    r"\s*(?P<method>\w+),\s*(?P<id>0x[0-9A-F]{8})(?P<arguments>(?:,\s*\([^()]*\))*)\s*\)"
)


class Service:
    """The lists of one service. folder: its proxy's folder, which contains include/NAME/*.h."""

    def __init__(self, name, folder):
        self.name = name
        self.macros = {}
        self.enums = set()
        for header in sorted((folder / "include" / name).glob("*.h")):
            text = header.read_text(encoding="utf-8")
            self.macros.update(_macros(text))
            self.enums.update(re.findall(r"^enum (\w+) : std::int32_t", text, re.MULTILINE))
        self.records = [record for macro in self._record_lists() for record in self._records(macro)]

    def messages(self, which):
        """The messages of one list, such as "REQUESTS" or "ANSWER"."""
        body = self.macros[f"{self.name.upper()}_{which}"]
        messages = [
            Message(
                found["service"],
                found["direction"],
                found["name"],
                found["method"],
                int(found["id"], 16),
                _pairs(found["arguments"]),
                " ".join((found["comment"] or "").split()),
            )
            for found in _MESSAGE.finditer(body)
        ]
        if len(messages) != len(re.findall(r"MESSAGE\(", body)):
            raise ListError(f"{self.name.upper()}_{which} has a malformed message")
        return messages

    def requests(self):
        return self.messages("REQUESTS")

    def notifications(self):
        if f"{self.name.upper()}_ANSWER" in self.macros:
            return self.messages("ANSWER") + self.messages("NEWS")
        return self.messages("NOTIFICATIONS")

    def _record_lists(self):
        return [name for name, body in self.macros.items() if re.match(r"\s*RECORD\(", body)]

    def _records(self, macro):
        for record, fields in re.findall(r"RECORD\(\w+,\s*(\w+),\s*(\w+)\)", self.macros[macro]):
            yield Record(
                self.name,
                record,
                [
                    Argument(found[0].strip(), found[1])
                    for found in re.findall(r"FIELD\(([^()]+),\s*(\w+)\)", self.macros[fields])
                ],
            )

    def record(self, name):
        return next((record for record in self.records if record.name == name), None)

    def local(self, type_):
        """A type's name inside the service's namespace."""
        return type_.replace(f"{self.name}::", "")

    def is_value(self, type_):
        """Whether an argument of this type is passed by value."""
        return type_ in SCALAR_BYTES or self.local(type_) in self.enums

    def bytes(self, type_):
        """The size of a type's flat form."""
        local = self.local(type_)
        if local in SCALAR_BYTES:
            return SCALAR_BYTES[local]
        if local in self.enums:
            return 4
        if local == "std::string" or local.startswith("std::vector<"):
            return 8
        record = self.record(local)
        if record is None:
            raise ListError(f"{self.name}: {type_} is not a field type")
        return sum(self.bytes(field.type) for field in record.fields)
