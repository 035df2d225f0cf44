#!/usr/bin/python3
"""Files that come from other programs: pasted, and dropped."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from case import TestCase, photo, tone  # noqa: E402

from desktop import OtherProgram  # noqa: E402
from person import wait_until  # noqa: E402


class TransferTest(TestCase):
    def test_files_are_pasted_and_dropped_where_they_are_let_go(self):
        photo(self.folder / "new one.jpg", "white")
        tone(self.folder / "song.wav", 2)
        window = self.start()
        window.see("label", "Drop Photos Here")
        other = OtherProgram()
        self.addCleanup(other.close)

        def see_photos(*names):
            wait_until(lambda: (other.serve(), window.photos() == list(names))[1], lambda: f"{names}, but {window.photos()}")

        left, top, width, height = window.place(window.see("label", "Drop Photos Here"))
        other.drop(window.window("Stillora").id, left + width / 2, top + height / 2, self.photos)
        see_photos("a", "b", "c", "d")

        left, top, width, height = window.place(window.cell("c"))
        other.drop(window.window("Stillora").id, left + 12, top + height / 2, self.folder / "new one.jpg")
        see_photos("a", "b", "new one", "c", "d")
        window.press("Control+z")
        see_photos("a", "b", "c", "d")

        other.copy(self.folder / "new one.jpg", self.folder / "song.wav")
        window.press("Control+v")
        see_photos("a", "b", "c", "d", "new one")
        window.see("slider", contains="song begins")


if __name__ == "__main__":
    unittest.main()
