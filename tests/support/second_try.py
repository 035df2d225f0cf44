#!/usr/bin/env python3
"""usage: second_try.py RESULTS
Whether the tests that failed in a JUnit file of ctest may be run once more, alone: on a machine under load a deadline
can pass. Not where one crashed or a sanitizer spoke, as no load does that, and not where many failed. Exits with 0 if
they may."""

import sys
import xml.etree.ElementTree as ElementTree

MOST = 5
TRUE_FAULTS = ("Sanitizer", "runtime error:", "Subprocess aborted", "SEGFAULT", "Exception:", "core dumped", "_FORTIFY_")


def may_be_tried_again(results):
    failed = [test for test in ElementTree.parse(results).getroot().iter("testcase") if test.get("status") == "fail"]
    texts = [ElementTree.tostring(test, encoding="unicode") for test in failed]
    return 0 < len(failed) <= MOST and not any(fault in text for fault in TRUE_FAULTS for text in texts)


if __name__ == "__main__":
    sys.exit(0 if may_be_tried_again(sys.argv[1]) else 1)
