"""The program that reads files for the command line: what a stranger's file does to it, and how it ends."""

import contextlib
import os
import signal
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import BIN, STILLORA, wait_until

PRETENDED = BIN / "pretended_reader"


def children(pid):
    """The processes that a process has started."""
    found = []
    for task in Path(f"/proc/{pid}/task").glob("*/children"):
        try:
            found += map(int, task.read_text().split())
        except OSError:
            pass
    return found


def is_running(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


class ReaderTest(stillora.TestCase):
    def file(self, name):
        path = self.folder / name
        path.write_bytes(b"x")
        return path

    def start(self, *arguments, **environment):
        """`stillora`, while its reader hangs over a file; and the reader's number."""
        process = subprocess.Popen([STILLORA, *map(str, arguments)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=self.environment(STILLORA_FILE_READER=PRETENDED, **environment))
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        readers = wait_until(lambda: children(process.pid), "the reader runs")
        self.assertEqual(len(readers), 1)
        return process, readers[0]

    def assertStopped(self, signals, status, *arguments):
        process, reader = self.start(*arguments)
        for number in signals:
            process.send_signal(number)
        process.wait(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, status)
        wait_until(lambda: not is_running(reader), "the reader has ended")

    def test_a_photo_that_its_reader_crashes_over_is_named_and_the_others_are_read(self):
        photos = [self.file(name) for name in ("good1.jpg", "crash.jpg", "good2.jpg", "leave.jpg", "nonsense.jpg")]
        result = self.create(*photos, expect=3, environment=self.environment(STILLORA_FILE_READER=PRETENDED))
        self.assertIn(f"{photos[1]}: cannot be read: the program that reads it ended by signal 11", result.err)
        self.assertIn(f"{photos[3]}: cannot be read: the program that reads it ended with exit status 7", result.err)
        self.assertIn(f"{photos[4]}: cannot be read: what its reader says of it makes no sense", result.err)
        self.assertNotIn("good", result.err)

    def test_the_first_signal_ends_a_check_that_hangs(self):
        hang = self.file("hang.jpg")
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number.name):
                self.assertStopped([number], 128 + number, "create", "--save", self.save, hang)
        self.assertEqual(self.leftovers(self.save), [])

    def test_a_second_signal_ends_a_check_that_hangs(self):
        self.assertStopped([signal.SIGTERM, signal.SIGTERM], 143, "create", self.file("hang.jpg"))

    def test_a_signal_ends_the_check_of_a_sound_that_hangs(self):
        for command in ("waveform", "convert"):
            with self.subTest(command):
                self.assertStopped([signal.SIGINT], 130, command, self.file("hang.mp3"), "-o", self.folder / "out.m4a")

    def test_the_reader_ends_with_the_program(self):
        process, reader = self.start("info", self.file("hang.jpg"))
        self.assertTrue(is_running(reader))
        process.kill()
        wait_until(lambda: not is_running(reader), "the reader has ended")

    def test_the_reader_gets_nothing_by_which_others_are_reached(self):
        process, reader = self.start("info", self.file("hang.jpg"), SSH_AUTH_SOCK="/agent", DISPLAY=":0", SECRET="x")

        def places():
            found = set()
            for entry in Path(f"/proc/{reader}/fd").iterdir():
                with contextlib.suppress(FileNotFoundError):
                    found.add(os.readlink(entry))
            return found

        # Nothing but what it is asked over, and the files that it is asked about; once its libraries are loaded.
        photo = str(self.folder / "hang.jpg")
        wait_until(lambda: photo in places(), "the reader has the photo")
        names = {entry.partition(b"=")[0].decode() for entry in Path(f"/proc/{reader}/environ").read_bytes().split(b"\0")}
        self.assertIn("LC_ALL", names)
        self.assertTrue(names.isdisjoint({"SSH_AUTH_SOCK", "DISPLAY", "SECRET"}), names)
        self.assertEqual({place for place in places() if not place.startswith("socket:")}, {"/dev/null", photo})

    def test_without_the_program_every_photo_is_refused_with_the_reason(self):
        photo = self.file("photo.jpg")
        result = self.create(photo, expect=3, environment=self.environment(STILLORA_FILE_READER="/nowhere/reader"))
        self.assertIn(f"{photo}: ", result.err)
        self.assertIn("/nowhere/reader", result.err)


if __name__ == "__main__":
    unittest.main()
