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
READER = BIN / "stillora-file-reader"
# For what is to happen at once, on a machine that has much else to do.
AT_ONCE = 5


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


def places_open_in(pid):
    found = set()
    for entry in Path(f"/proc/{pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):
            found.add(os.readlink(entry))
    return found


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
        process.wait(timeout=AT_ONCE)
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

    def test_the_reader_gives_up_the_same(self):
        # As long as there are photos to be read there is a reader.
        photos = stillora.pictures(self.folder / "photos", 4, 2400, 1600) * 50
        process = subprocess.Popen([STILLORA, "info", *photos], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, env=self.environment())
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        reader = wait_until(lambda: children(process.pid), "the reader runs")[0]
        wait_until(lambda: "\nSeccomp:\t2" in Path(f"/proc/{reader}/status").read_text(), "the reader is confined")
        self.assertIn("\nNoNewPrivs:\t1", Path(f"/proc/{reader}/status").read_text())
        limits = Path(f"/proc/{reader}/limits").read_text()
        self.assertRegex(limits, r"(?m)^Max core file size +0 +0 ")
        # What a sanitizer watches with has no such limit.
        if not stillora.is_sanitized(READER):
            self.assertRegex(limits, r"(?m)^Max address space +\d+ +\d+ ")

    def test_the_reader_ends_with_the_program(self):
        process, reader = self.start("info", self.file("hang.jpg"))
        self.assertTrue(is_running(reader))
        process.kill()
        wait_until(lambda: not is_running(reader), "the reader has ended")

    def test_the_reader_gets_nothing_by_which_others_are_reached(self):
        process, reader = self.start("info", self.file("hang.jpg"), SSH_AUTH_SOCK="/agent", DISPLAY=":0", SECRET="x")

        def places():
            return places_open_in(reader)

        # Nothing but what it is asked over, and the files that it is asked about; once its libraries are loaded.
        photo = str(self.folder / "hang.jpg")
        wait_until(lambda: photo in places(), "the reader has the photo")
        names = {entry.partition(b"=")[0].decode() for entry in Path(f"/proc/{reader}/environ").read_bytes().split(b"\0")}
        self.assertIn("LC_ALL", names)
        self.assertTrue(names.isdisjoint({"SSH_AUTH_SOCK", "DISPLAY", "SECRET"}), names)
        self.assertEqual({place for place in places() if not place.startswith("socket:")}, {"/dev/null", photo})

    def test_a_movie_that_the_reader_crashes_over_is_not_handed_out(self):
        photo = stillora.picture(self.folder / "good.png", 640, 480)
        for title in ("crash", "nonsense"):
            with self.subTest(title):
                result = self.create(photo, "--title", title, expect=1,
                                     environment=self.environment(STILLORA_FILE_READER=PRETENDED))
                self.assertIn(f"{title}.mov: cannot be read: ", result.err)
                self.assertEqual(self.leftovers(self.save), [])

    def test_a_sound_that_the_reader_crashes_over_leaves_nothing(self):
        music = self.folder / "crash.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=1", music)
        for command in ("convert", "trim"):
            with self.subTest(command):
                result = self.run_stillora(command, music, "--range", "0-0.5", "-o", self.folder / "out.m4a", expect=3,
                                           environment=self.environment(STILLORA_FILE_READER=PRETENDED))
                self.assertIn(f"{music}: cannot be read: ", result.err)
                self.assertEqual([path.name for path in self.folder.glob("*.m4a")], [])

    @unittest.skipIf(len(os.sched_getaffinity(0)) < 2, "one processor looks at one file at a time")
    def test_files_are_looked_at_while_the_one_before_is(self):
        files = [self.file(name) for name in ("hang1.jpg", "hang2.jpg")]
        process, reader = self.start("info", *files)
        wait_until(lambda: {str(file) for file in files} <= places_open_in(reader), "both are read")

    @unittest.skipIf(stillora.build_setting("STILLORA_SANITIZE"), "a sanitizer keeps what nobody calls")
    def test_the_client_loads_nothing_that_decodes(self):
        for program in (STILLORA, BIN.parent / "client" / "libstillora-client.so"):
            with self.subTest(program.name):
                loaded = stillora.run("ldd", program).decode()
                self.assertIn("libc.so", loaded)
                self.assertNotRegex(loaded, r"lib(av|sw|turbojpeg|lcms|x26|heif|webp|vips)")

    def assertToldOnce(self, *words, **environment):
        photos = [self.file(f"good{number}.jpg") for number in range(3)]
        sound, product = self.file("good.mp3"), self.folder / "new.m4a"
        for arguments in (["create", "--save", self.save, *photos], ["info", *photos],
                          ["document", "new", self.folder / "new", *photos], ["convert", sound, "-o", product],
                          ["trim", sound, "--range", "0-1", "-o", product], ["waveform", sound, "-o", product],
                          ["frame", photos[0], "-o", product]):
            with self.subTest(" ".join(map(str, arguments))):
                result = self.run_stillora(*arguments, expect=4, environment=self.environment(**environment))
                self.assertEqual(len(result.err.splitlines()), 1, result.err)
                for word in words:
                    self.assertIn(word, result.err)
                self.assertNotIn("good", result.err)
                self.assertFalse(product.exists())
                self.assertEqual(self.leftovers(self.save), [])
                self.assertFalse((self.folder / "new.stillora").exists())

    def test_without_the_program_one_sentence_says_so_for_all_photos(self):
        self.assertToldOnce("/nowhere/reader", STILLORA_FILE_READER="/nowhere/reader")

    def test_a_program_of_another_version_is_told_once(self):
        self.assertToldOnce(str(PRETENDED), "9.8.7", "installed together",
                            STILLORA_FILE_READER=PRETENDED, STILLORA_PRETENDED_VERSION="9.8.7")


if __name__ == "__main__":
    unittest.main()
