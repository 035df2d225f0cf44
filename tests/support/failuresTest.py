#!/usr/bin/env python3
"""Tests of what is told of tests that failed."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from failures import LINES

PROGRAM = Path(__file__).with_name("failures.py")
RESULTS = """<testsuite>
<testcase name="good" status="run"><system-out>all is well</system-out></testcase>
<testcase name="off" status="disabled"><system-out/></testcase>
<testcase name="bad" status="fail"><failure message=""/><system-out>{}</system-out></testcase>
<testcase name="mute" status="fail"><failure message="Timeout"/></testcase>
</testsuite>"""


class FailuresTest(unittest.TestCase):
    def told(self, said):
        with tempfile.TemporaryDirectory() as folder:
            results = Path(folder, "results.xml")
            results.write_text(RESULTS.format(said))
            ran = subprocess.run([sys.executable, "-B", PROGRAM, Path(folder, "none.xml"), results], capture_output=True,
                                 text=True, check=True)
            return ran.stdout.replace(f" ({results})", "").splitlines()

    def test_names_each_with_what_it_said(self):
        self.assertEqual(self.told("1 is not 2\nat line 3"),
                         ["failed: bad", "    1 is not 2", "    at line 3", "failed: mute"])

    def test_tells_the_end_of_much(self):
        told = self.told("\n".join(map(str, range(LINES + 10))))
        self.assertEqual(told[1], "    10")
        self.assertEqual(told[LINES], f"    {LINES + 9}")


if __name__ == "__main__":
    unittest.main()
