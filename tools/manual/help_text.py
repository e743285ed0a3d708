"""The parts of what a program prints with --help."""

import dataclasses
import os
import re
import subprocess

ITEM = re.compile(r"  (\S.*?)(?:  +(\S.*))?")
CONTINUED = re.compile(r" {8,}(\S.*)")
COMMANDS = re.compile(r"\w.*:")
USAGE = "Usage: "


class HelpError(Exception):
    """A help text that does not have the expected form."""


@dataclasses.dataclass
class Item:
    """An option, an argument or a command. names: "-h,--help", or "--target TEXT=frame-host"."""

    names: str
    text: str

    def options(self):
        """The option's names: ["-h", "--help"]."""
        return self.names.split(" ", 1)[0].split(",")

    def takes_value(self):
        """Whether a value follows the option: then its type follows its name, in capital letters."""
        return re.match(r"\S+ [A-Z]+\b", self.names) is not None


@dataclasses.dataclass
class Help:
    """synopsis: the program's words. commands: the items of a list after the options. notes: the paragraphs there."""

    name: str
    synopsis: str = ""
    description: list = dataclasses.field(default_factory=list)
    arguments: list = dataclasses.field(default_factory=list)
    options: list = dataclasses.field(default_factory=list)
    commands: list = dataclasses.field(default_factory=list)
    notes: list = dataclasses.field(default_factory=list)


def paragraphs(lines):
    """Joins the lines of each paragraph. Empty lines end one."""
    text = "\n".join(lines).strip()
    return [" ".join(part.split("\n")) for part in re.split(r"\n\n+", text) if part]


def parse_items(lines):
    """Parses "  NAMES  TEXT" lines. A long list of names has its text on the next line."""
    items = []
    for line in lines:
        if continued := CONTINUED.fullmatch(line):
            if not items:
                raise HelpError(f"a text without a name: {line!r}")
            items[-1].text = f"{items[-1].text} {continued[1]}".strip()
        elif item := ITEM.fullmatch(line):
            items.append(Item(item[1], item[2] or ""))
        else:
            raise HelpError(f"neither a name nor a text: {line!r}")
    return items


def take_block(lines):
    """Removes the lines up to the first empty one and returns them."""
    block = []
    while lines and lines[0]:
        block.append(lines.pop(0))
    return block


def parse(name, text):
    """Returns the Help of a program's --help."""
    lines = text.splitlines()
    result = Help(name)
    usage = next((at for at, line in enumerate(lines) if line.startswith(USAGE)), None)
    if usage is None:
        raise HelpError(f"{name} --help has no line {USAGE!r}")
    result.synopsis = lines[usage].removeprefix(USAGE)
    result.description = paragraphs(lines[:usage])
    if result.description and result.description[0].startswith(name + " "):  # more exact than the parser's own
        result.synopsis = result.description.pop(0)
    del lines[: usage + 1]
    notes = []
    while lines:
        if not lines[0]:
            notes.append(lines.pop(0))
        elif lines[0] in ("Positionals:", "Options:"):
            items = result.arguments if lines.pop(0) == "Positionals:" else result.options
            items.extend(parse_items(take_block(lines)))
        elif COMMANDS.fullmatch(lines[0]) and len(lines) > 1 and ITEM.fullmatch(lines[1]):
            lines.pop(0)
            result.commands.extend(parse_items(take_block(lines)))
        else:
            notes.extend(take_block(lines))
    result.notes = paragraphs(notes)
    if not result.description or not result.options:
        raise HelpError(f"{name} --help has no description or no options")
    return result


def help_of(program, *command):
    """Runs a program, or a command of it, with --help."""
    kept = {key: value for key, value in os.environ.items() if not key.startswith("TVSA_")}
    words = [os.path.basename(program), *command]
    # Without the configuration of the user who builds, which may be invalid.
    output = subprocess.run(
        [program, *command, "--help"],
        env={**kept, "TVSA_CONFIG": os.devnull},
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    ).stdout
    return parse(" ".join(words), output)
