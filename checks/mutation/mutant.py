"""A change of the product's sources, and where it stands."""
import dataclasses


@dataclasses.dataclass
class Mutant:
    number: int
    file: str
    line: int
    text: str  # of the line
    operator: str
    change: str

    @property
    def name(self):
        return f"{self.file}: {self.operator}: {self.change}"

    def __str__(self):
        return f"{self.file}:{self.line}: {self.operator}: {self.change}"


def mutant_at(number, file, text, old, operator, change):
    """The mutant of the line in which the file's text first has old."""
    line = text.count("\n", 0, text.index(old)) + 1
    return Mutant(number, file, line, text.split("\n")[line - 1].strip(), operator, change)


def replaced(file, text, old, new):
    """The file's text with new in the one place where it has old."""
    if text.count(old) != 1:
        raise SystemExit(f"mutation: this is {text.count(old)} times in {file}, not once:\n{old}")
    return text.replace(old, new)
