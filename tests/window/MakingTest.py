#!/usr/bin/python3
"""A movie that is being made: it is cancelled, asked about, told of, and shown."""

import os
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from case import TestCase  # noqa: E402

from desktop import HeldService, OtherProgram, Services  # noqa: E402
from person import wait_until  # noqa: E402


class MakingTest(TestCase):
    def setUp(self):
        super().setUp()
        self.service = HeldService(self.folder)
        self.window = self.start(self.photos, STILLORA_VIDEO_CREATOR=str(self.service.program))
        self.window.see_photos("a", "b", "c", "d")

    def make(self):
        wait_until(lambda: self.window.can("Make Movie"), "photos to make a movie of")
        self.window.press("Control+Return")
        self.window.see("dialog", "Make Movie")
        self.window.see_dialog_in_front()
        self.window.press("Return")
        wait_until(self.service.process, "the service that waits")

    def movies(self):
        return [file for file in Path(os.environ["HOME"]).rglob("Summer*.m*")]

    def test_cancel_leaves_nothing_and_the_next_movie_is_made(self):
        self.make()
        self.window.click(self.window.see("push button", "Cancel"))
        wait_until(lambda: self.window.can("Make Movie"), "the end of the work")
        self.assertIsNone(self.window.find("progress bar", "Progress of the movie"))
        self.assertEqual(self.movies(), [])

        desktop = Services()
        self.make()
        other = OtherProgram()
        other.come_to_front()
        wait_until(lambda: not self.window.is_in_front(), "the other window in front")
        self.service.let_go()
        wait_until(lambda: desktop.of("Notify"), "a notification")
        self.assertEqual(desktop.of("Notify")[0][3:5], ("Your movie is ready", self.movies()[0].name))
        other.close()
        wait_until(self.window.is_in_front, "the window in front again")
        self.window.click(self.window.see("push button", "Show in Folder"))
        wait_until(lambda: desktop.of("ShowItems"), "the file manager to be asked")
        self.assertEqual(desktop.of("ShowItems"), [([self.movies()[0].as_uri()], "")])

    def test_closing_asks_while_a_movie_is_made(self):
        self.make()
        self.window.press("Control+w")
        self.window.click(self.window.see("push button", "Go On"))
        wait_until(lambda: not self.window.find("push button", "Go On"), "the question to go")
        self.window.press("Control+w")
        self.window.click(self.window.see("push button", "Stop and Close"))
        self.window.see_end()
        self.assertEqual(self.movies(), [])
        self.assertIsNone(self.service.process())

    def test_nothing_is_asked_where_the_desktop_ends_it(self):
        self.make()
        self.window.close()
        self.assertEqual(self.movies(), [])
        self.assertIsNone(self.service.process())
        self.start().see_photos("a", "b", "c", "d")


if __name__ == "__main__":
    unittest.main()
