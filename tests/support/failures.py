#!/usr/bin/env python3
"""usage: failures.py RESULTS...
Prints which tests failed in JUnit files of ctest, each with the end of what it said. A file that is not there has none."""

import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

LINES = 60


def failures(results):
    """(name, end of what it said) of each test that failed."""
    for test in ElementTree.parse(results).getroot().iter("testcase"):
        if test.get("status") == "fail":
            said = (test.findtext("system-out") or "").splitlines()
            yield test.get("name"), said[-LINES:]


if __name__ == "__main__":
    for path in filter(Path.exists, map(Path, sys.argv[1:])):
        for name, said in failures(path):
            print(f"failed: {name} ({path})", *said, sep="\n    ")
