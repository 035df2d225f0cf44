#!/usr/bin/env python3
"""Tests of what may be run once more."""

import tempfile
import unittest
from pathlib import Path

from second_try import MOST, may_be_tried_again

FAILED = '<testcase name="a" status="fail"><failure message="{}"/><system-out>{}</system-out></testcase>'
PASSED = '<testcase name="b" status="run"><system-out>no AddressSanitizer report</system-out></testcase>'


class SecondTryTest(unittest.TestCase):
    def may(self, *tests):
        with tempfile.TemporaryDirectory() as folder:
            results = Path(folder, "results.xml")
            results.write_text(f"<testsuite>{''.join(tests)}</testsuite>")
            return may_be_tried_again(results)

    def test_what_failed_by_itself_may(self):
        self.assertTrue(self.may(PASSED, FAILED.format("", "Expected: 1")))
        self.assertTrue(self.may(FAILED.format("Timeout", ""), PASSED))

    def test_what_crashed_may_not_nor_what_failed_beside_it(self):
        crash = FAILED.format("SEGFAULT", "")
        self.assertFalse(self.may(crash))
        self.assertFalse(self.may(FAILED.format("", "Expected: 1"), crash))
        self.assertFalse(self.may(FAILED.format("Subprocess aborted", "")))

    def test_what_a_sanitizer_spoke_of_may_not(self):
        self.assertFalse(self.may(FAILED.format("", "ERROR: AddressSanitizer: heap-use-after-free")))
        self.assertFalse(self.may(FAILED.format("", "A.cpp:3:1: runtime error: signed integer overflow")))

    def test_many_may_not(self):
        failed = FAILED.format("", "Expected: 1")
        self.assertTrue(self.may(*[failed] * MOST))
        self.assertFalse(self.may(*[failed] * (MOST + 1)))

    def test_nothing_may_not(self):
        self.assertFalse(self.may(PASSED))


if __name__ == "__main__":
    unittest.main()
