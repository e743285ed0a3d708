"""Prints each test that a run of ctest skipped and the reason: skipped.py JUNIT_FILE"""

import sys
import xml.etree.ElementTree as xml


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


def main():
    for name, why in skipped(sys.argv[1]):
        print(f"{name}: {why}")


if __name__ == "__main__":
    main()
