"""The output of the benchmark programs, compared with the goals."""
import json

from goals import ACCEPTED


def parsed(text, program):
    """Returns the parsed lines of a program. Raises ValueError for a line that is not JSON."""
    lines = []
    for line in text.splitlines():
        try:
            lines.append(json.loads(line))
        except json.JSONDecodeError as error:
            raise ValueError(f"{program}: not a line of figures: {line!r}") from error
    return lines


def excess(line):
    """Returns a line's figure relative to its bound: 1.0 is at the bound, more is worse."""
    if line["bound"] == "atLeast":
        return line["goal"] / line["median"] if line["median"] else float("inf")
    if line["goal"] == 0:
        return 1.0 if line["median"] <= 0 else float("inf")
    return line["median"] / line["goal"]


def with_bound(lines):
    return [line for line in lines if "goal" in line]


def with_goal(lines, number):
    return [line for line in with_bound(lines) if line["goalNumber"] == number]


def name_of(line):
    return f"{line['bench']} {line['case']} {line.get('ratio') or line.get('side')}"


def number(value):
    if value == 0:
        return "0"
    return f"{value:.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def value_of(line):
    unit = "" if "ratio" in line else f" {line['unit']}/{line['per']}"
    return number(line["median"]) + unit


def gated(line):
    """Returns the line with the bound that the gate applies."""
    return {**line, "goal": ACCEPTED.get(name_of(line), line["goal"])}


def missed(lines, margin):
    """Returns the lines that exceed the gate's bounds by more than the margin, worst first."""
    bad = [line for line in map(gated, with_bound(lines)) if excess(line) > 1 + margin]
    return sorted(bad, key=excess, reverse=True)
