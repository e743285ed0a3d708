"""Generates the Python module's messages and results from the schema that `tvctl schema --json` prints."""

import json
import textwrap

HEAD = '"""{what}. Written by ./dev generate; do not edit."""\n\nfrom __future__ import annotations\n\n'
FOLDER = "python/tvservice"

# The type and the default of a field, by its kind; of lists of records and of records, from the record's name.
KINDS = {
    "scalar": ("int", "0"),
    "flag": ("bool", "False"),
    "string": ("str", '""'),
    "stringList": ("List[str]", "dataclasses.field(default_factory=list)"),
    "uint32List": ("List[int]", "dataclasses.field(default_factory=list)"),
    "sequence": ("List[{record}]", "dataclasses.field(default_factory=list)"),
    "record": ("{record}", "dataclasses.field(default_factory={record})"),
}


def files(schema):
    """Returns {file: text}."""
    values = {enumeration["name"]: enumeration["values"] for enumeration in schema["enumerations"]}
    return {f"{FOLDER}/messages.py": messages(schema), f"{FOLDER}/results.py": results(values["results"])}


def messages(schema):
    services = schema["services"]
    text = HEAD.format(what="Messages and their records, with the names of the schema")
    text += "import dataclasses\nfrom typing import Dict, List, Type\n\nfrom .objects import Record\n"
    for service in services:
        for record in service["records"]:
            text += dataclass(record["name"], record["fields"], "")
    for service in services:
        for message in service["messages"]:
            comment = f'{message["direction"]} of {service["name"]}.'
            text += dataclass(message["name"], message["arguments"], comment)
    text += "\n"
    for service in services:
        for direction in ("Request", "Notification"):
            names = [each["name"] for each in service["messages"] if each["direction"] == direction]
            text += f"\n{service['name'].upper()}_{direction.upper()}S: Dict[str, Type[Record]] = {{\n"
            text += "".join(f'    "{name}": {name},\n' for name in names) + "}\n"
    return text


def dataclass(name, fields, comment):
    lines = [f'    """{comment}"""'] if comment else []
    for field in fields:
        kind, default = (part.format(record=field.get("record")) for part in KINDS[field["kind"]])
        lines.append(f"    {field['name']}: {kind} = {default}")
    if comment and fields:
        lines.insert(1, "")
    return f"\n\n@dataclasses.dataclass\nclass {name}(Record):\n" + "\n".join(lines or ["    pass"]) + "\n"


def results(entries):
    text = HEAD.format(what="The results of play and stop requests")
    text += "from enum import IntEnum\nfrom typing import Dict\n\n\nclass Result(IntEnum):\n"
    text += '    """`str(result)` is its name for people."""\n\n'
    constants = [(entry["name"].upper().replace(" ", "_"), entry) for entry in entries]
    for constant, entry in constants:
        text += "".join(f"    # {line}\n" for line in textwrap.wrap(entry["meaning"], 110))
        text += f'    {constant} = {entry["number"]}\n'
    text += "\n    def __str__(self) -> str:\n        return NAMES[self]\n\n\nNAMES: Dict[int, str] = {\n"
    text += "".join(f"    Result.{constant}: {json.dumps(entry['name'])},\n" for constant, entry in constants)
    text += (
        "}\n\n\ndef name_of_result(number: int) -> str:\n"
        '    """The name of a result; "unknown" for a number that is not in the list."""\n'
        '    return NAMES.get(number, "unknown")\n'
    )
    return text
