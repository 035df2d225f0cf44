#!/usr/bin/python3
"""Documents with a name: saved, opened, found again, and changed by another program meanwhile."""

import json
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from case import TestCase  # noqa: E402

import program  # noqa: E402
from person import wait_until  # noqa: E402


class DocumentsTest(TestCase):
    def setUp(self):
        super().setUp()
        self.rome = self.folder / "rome.stillora"
        self.window = self.start(self.photos)
        self.window.see_photos("a", "b", "c", "d")
        self.window.press("Control+Shift+s")
        self.name_file("rome")
        self.see_title("rome")

    def name_file(self, name):
        self.window.see_dialog_in_front()
        self.window.write(self.folder / name)
        self.window.press("Return")

    def see_title(self, name):
        wait_until(lambda: self.window.find("frame", f"{name} – Stillora"), lambda: f"{name} in the title")

    def document(self, *arguments):
        return program.subprocess.run([program.BIN / "stillora", "document", *map(str, arguments)], check=True,
                                      stdout=program.subprocess.PIPE, text=True).stdout

    def order(self, document):
        return "".join(Path(item["path"]).stem[0] for item in json.loads(self.document("list", document, "--json"))["photos"])

    def move(self, name, keys):
        self.select(self.window, name)
        self.window.press(keys)

    def see_question(self):
        self.window.see("label", contains="Another program has changed")

    def test_what_another_program_changed_is_not_overwritten(self):
        window = self.window
        self.document("move", self.rome, "p4", "--first")
        self.move("b", "Alt+Home")
        self.see_question()
        self.assertEqual(self.order(self.rome), "dabc")
        window.click(window.see("push button", "Keep Both"))
        self.see_title("rome-2")
        second = self.folder / "rome-2.stillora"
        self.assertEqual((self.order(self.rome), self.order(second)), ("dabc", "bacd"))

        self.document("move", second, "p4", "--first")
        self.move("c", "Alt+Home")
        self.see_question()
        window.click(window.see("push button", "Take the Other"))
        window.see_photos("d", "b", "a", "c")
        window.press("Control+z")
        window.see_photos("c", "b", "a", "d")
        wait_until(lambda: self.order(second) == "cbad", lambda: f"it to be saved, but {self.order(second)}")

        self.document("move", second, "p4", "--first")
        self.move("a", "Alt+Home")
        self.see_question()
        window.click(window.see("push button", "Keep Mine"))
        wait_until(lambda: self.order(second) == "acbd", lambda: f"mine to be saved, but {self.order(second)}")

    def test_documents_are_opened_by_name_and_among_the_recent_ones(self):
        window = self.window
        self.move("d", "Alt+Home")
        wait_until(lambda: self.order(self.rome) == "dabc", "the order on the disk")
        window.press("Control+n")
        window.see("label", "Drop Photos Here")
        window.press("F10")
        window.choose("Open Recent", "rome")
        self.see_title("rome")
        window.see_photos("d", "a", "b", "c")

        self.document("new", self.folder / "paris", self.photos / "c.jpg", self.photos / "a.jpg")
        window.press("Control+Alt+o")
        window.see_dialog_in_front()
        # The first sign of a path brings the entry for it.
        window.press("slash")
        self.name_file("paris.stillora")
        self.see_title("paris")
        window.see_photos("c", "a")


if __name__ == "__main__":
    unittest.main()
