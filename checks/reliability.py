"""Keeps the results of checks: a row for each check in docs/reliability.md, and its figures at the end of
docs/reliability/CHECK.md. A full run of a check writes only these; people write the rest of both files."""
import dataclasses
import pathlib

LAST_RUN = "## Last run"


@dataclasses.dataclass(frozen=True)
class Run:
    check: str
    date: str
    commit: str
    duration: str


@dataclasses.dataclass(frozen=True)
class Pages:
    summary: pathlib.Path
    folder: pathlib.Path

    def page(self, check):
        return self.folder / f"{check}.md"

    def missing(self, check):
        """Returns what a person must write before the check can keep figures; empty if nothing is missing."""
        if not self.page(check).is_file():
            return f"{self.page(check)}: no description of the check {check}"
        if row_of(self.summary.read_text(encoding="utf-8"), check) is None:
            return f"{self.summary}: no row for the check {check}"
        return ""

    def keep(self, run, figures):
        """figures: a (name, value, bound) for each figure of a run that held."""
        self._write(run, page_after(self._text(run), run, figures), "held")

    def keep_failure(self, run, problem):
        self._write(run, page_after_failure(self._text(run), run, problem), "**failed**")

    def _text(self, run):
        return self.page(run.check).read_text(encoding="utf-8")

    def _write(self, run, page, result):
        summary = summary_after(self.summary.read_text(encoding="utf-8"), run, result)
        self.page(run.check).write_text(page, encoding="utf-8")
        self.summary.write_text(summary, encoding="utf-8")


def page_after(page, run, figures):
    """Returns the page with its last run replaced by a run that held."""
    description = page.partition(f"{LAST_RUN}\n")[0].rstrip("\n")
    rows = [f"| {name} | {value} | {bound} |" for name, value, bound in figures]
    return (
        "\n".join(
            [
                description,
                "",
                LAST_RUN,
                "",
                f"`./dev check {run.check}` held on {run.date} at {run.commit}, {run.duration}.",
                "",
                "| Figure | Value | Bound |",
                "|---|---|---|",
                *rows,
            ]
        )
        + "\n"
    )


def page_after_failure(page, run, problem):
    """Returns the page with a failed run above the figures, which stay those of the last run that held."""
    description, _, last = page.partition(f"{LAST_RUN}\n")
    text, bar, rows = last.partition("| Figure |")
    parts = [part for part in text.strip("\n").split("\n\n") if part and not part.startswith("**Failed**")]
    parts = parts or [f"`./dev check {run.check}` has not held yet."]
    parts.append(f"**Failed** on {run.date} at {run.commit}, {run.duration}: {problem}.")
    if rows:
        parts[-1] += " The figures are older."
        parts.append((bar + rows).rstrip("\n"))
    return "\n\n".join([description.rstrip("\n"), LAST_RUN, *parts]) + "\n"


def row_of(summary, check):
    """Returns the number of the line with the check's row, or None."""
    starts = [number for number, line in enumerate(summary.split("\n")) if line.startswith(f"| [{check}](")]
    return starts[0] if starts else None


def summary_after(summary, run, result):
    """Returns the summary with the run in the check's row. The description in the row does not change."""
    lines = summary.split("\n")
    number = row_of(summary, run.check)
    cells = lines[number].split(" | ")
    lines[number] = " | ".join([*cells[:2], run.date, run.commit, run.duration, f"{result} |"])
    return "\n".join(lines)
