"""Names the tests that a run of ctest skipped, one a line, with the reason that each gave: skipped.py JUNIT_FILE"""

import sys
import xml.etree.ElementTree as xml


def reason(output):
    """What GoogleTest's skipped test says is below the line that names its place; others say it at their end."""
    lines = [line.strip() for line in output.splitlines() if line.strip()]
    for place, text in zip(lines, lines[1:]):
        if place.endswith(": Skipped") and not text.startswith("["):
            return text
    said = [line for line in lines if not line.startswith("[")]
    return said[-1] if said else "gives no reason"


def skipped(junit):
    """name, reason. A test whose program is missing was not run either, but has failed."""
    for test in xml.parse(junit).iter("testcase"):
        marker = test.find("skipped")
        if test.get("status") == "disabled":
            yield test.get("name"), "disabled"
        elif marker is not None and marker.get("message", "").startswith("SKIP_"):
            yield test.get("name"), reason(test.findtext("system-out") or "")


def main():
    for name, why in skipped(sys.argv[1]):
        print(f"{name}: {why}")


if __name__ == "__main__":
    main()
