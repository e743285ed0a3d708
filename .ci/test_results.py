"""Tells what a run of ctest did not pass.

test_results.py skipped JUNIT_FILE    prints each skipped test and the reason
test_results.py failed JUNIT_FILE     prints the end of what each failed test printed
"""

import re
import sys
import xml.etree.ElementTree as xml

# Where googletest, a sanitizer or Python begins to say what is wrong.
FAILURE = re.compile(r": Failure$|^==\d+==ERROR|^WARNING: ThreadSanitizer|: runtime error: |^Traceback|^(FAIL|ERROR): ")
# Whoever sees only the end of a log shall see why a test failed: a few of them fit on a page.
LINES_OF_A_FAILURE, LONGEST_LINE = 30, 500


def reason(output):
    """GoogleTest prints the reason after the line with the source location; other tests print it as their last line."""
    lines = [line.strip() for line in output.splitlines() if line.strip()]
    for location, text in zip(lines, lines[1:]):
        if location.endswith(": Skipped") and not text.startswith("["):
            return text
    output_lines = [line for line in lines if not line.startswith("[")]
    return output_lines[-1] if output_lines else "gives no reason"


def skipped(junit):
    """Yields (name, reason). A test whose program is missing was not run either, but counts as failed."""
    for test in xml.parse(junit).iter("testcase"):
        marker = test.find("skipped")
        if test.get("status") == "disabled":
            yield test.get("name"), "disabled"
        elif marker is not None and marker.get("message", "").startswith("SKIP_"):
            yield test.get("name"), reason(test.findtext("system-out") or "")


def failed(junit):
    """Yields (name, output)."""
    for test in xml.parse(junit).iter("testcase"):
        if test.find("failure") is not None:
            yield test.get("name"), test.findtext("system-out") or ""


def shortened(output):
    """What a test expected and how it ended: lines around its failures, or its last ones."""
    lines = [line for line in output.splitlines() if line.strip()]
    failures = [number for number, line in enumerate(lines) if FAILURE.search(line)]
    first = failures[0] if failures else len(lines) - LINES_OF_A_FAILURE
    return [line[:LONGEST_LINE] for line in lines[max(first, 0) :][:LINES_OF_A_FAILURE]]


def main():
    what, junit = sys.argv[1:]
    if what == "skipped":
        for name, why in skipped(junit):
            print(f"{name}: {why}")
    else:
        for name, output in failed(junit):
            print(f"---- {name}", *shortened(output), sep="\n  ")


if __name__ == "__main__":
    main()
