"""Writes the document: a table of the goals, the machine, how to repeat the measurement, and all figures."""
import os
import platform
import subprocess

import figures
from goals import GOALS, REMARKS


def machine(compiler):
    model = "unknown CPU"
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as info:
            model = next((line.split(":", 1)[1].strip() for line in info if line.startswith("model name")), model)
    except OSError:
        pass
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=False).stdout
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    return [
        f"- CPU: {os.cpu_count()} x {model}",
        f"- kernel: {platform.system()} {platform.release()}",
        f"- compiler: {(version.splitlines() or [compiler])[0]}, `-O2`",
        f"- load averages at the end: {load}",
    ]


def goal_rows(lines):
    for goal, (what, bound, meaning) in sorted(GOALS.items(), key=lambda item: item[0] or 99):
        own = figures.with_goal(lines, goal)
        label = goal or "growth"
        if not own:
            yield f"| {label} | {what} | {bound} | not measured | | {meaning} |"
            continue
        # The two worst figures relative to their bounds.
        worst = sorted(own, key=figures.excess, reverse=True)[:2]
        shown = "<br>".join(f"{figures.value_of(line)} ({figures.name_of(line)})" for line in worst)
        bad = [line for line in own if figures.excess(line) > 1]
        reached = "yes" if not bad else f"no: {len(bad)} of {len(own)} figures"
        yield f"| {label} | {what} | {bound} | {shown} | {reached} | {meaning} |"


def figure_rows(lines):
    for line in lines:
        if "note" in line:
            continue
        spread = f"{figures.number(line['min'])} to {figures.number(line['max'])}"
        goal = ""
        if "goal" in line:
            goal = ("at least " if line["bound"] == "atLeast" else "at most ") + figures.number(line["goal"])
        what = line.get("ratio") or line["side"]
        yield f"| {line['bench']} | {line['case']} | {what} | {figures.value_of(line)} | {spread} | {goal} |"


def markdown(lines, compiler):
    remarks = [
        f"- **{number or 'growth'}**: {text}"
        for number, text in sorted(REMARKS.items(), key=lambda item: item[0] or 99)
        if any(figures.excess(line) > 1 for line in figures.with_goal(lines, number))
    ]
    notes = [f"- {line['bench']}: {line['note']}" for line in lines if "note" in line]
    parts = [
        "# Benchmarks",
        "",
        "How fast is the receiver, compared with hand-written code (the limit) and with other libraries (the "
        "peers)? The table shows which goals it reaches.",
        "",
        "`./dev bench` writes this file; do not edit it. Both sides of a comparison are measured alternately in the "
        "same run, so the ratios hold on other machines, too. Both sides carry the same records; the receiving side "
        "creates new records and always checks the whole message. The table shows the two worst figures of each "
        "goal; a ratio is that of the medians.",
        "",
        "| Goal | What | Bound | Worst measured | Reached | What it means |",
        "|---|---|---|---|---|---|",
        *goal_rows(lines),
        "",
        "![Figures relative to their bound](benchmarks.svg)",
        "",
    ]
    if remarks:
        parts += ["## Missed goals", "", *remarks, ""]
    if notes:
        parts += ["## Notes", "", *notes, ""]
    parts += [
        "## The machine",
        "",
        *machine(compiler),
        "",
        "## Repeating the measurement",
        "",
        "`./dev bench` measures everything and writes this file; `./dev bench --quick` takes less than two minutes "
        "and only prints; `./dev bench --gate` fails when a figure exceeds its bound by more than 10 % (`--margin`). "
        "For the missed goals above, `bench/report/goals.py` has wider bounds for the gate. Run it on an idle machine.",
        "",
        "## All figures",
        "",
        "| Program | Case | Side or ratio | Median | From, to | Bound |",
        "|---|---|---|---|---|---|",
        *figure_rows(lines),
    ]
    return "\n".join(parts) + "\n"
