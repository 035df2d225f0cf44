"""Lists of names: --files-from and --null of the commands that take many files."""

import json
import os
import pty
import subprocess
import unittest
from pathlib import Path

import stillora

USAGE, BAD_INPUT = 2, 3


class NamesTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 4)

    def run_with(self, text, *arguments, expect=0, folder=None):
        """Runs the command line with `text` on its standard input."""
        result = subprocess.run([os.fsencode(stillora.STILLORA), *map(os.fsencode, arguments)],
                                input=text, capture_output=True, cwd=folder or self.folder, env=self.environment(),
                                timeout=stillora.DEADLINE)
        result.out = result.stdout.decode("utf-8", "surrogateescape")
        result.err = result.stderr.decode("utf-8", "surrogateescape")
        self.assertEqual(result.returncode, expect, result.err)
        return result

    def order(self, result):
        """The photos of a plan, by their names."""
        return [Path(path).name for path in self.plan(result)["order"]]

    def plan(self, result):
        return json.loads(result.out.splitlines()[-1])

    def dry_run(self, text, *arguments, **options):
        return self.run_with(text, "create", "--dry-run", "--json", *arguments, **options)

    def test_names_follow_those_of_the_command_line_in_their_order(self):
        names = [photo.name for photo in self.photos]
        text = f"{names[2]}\r\n\r\n{names[0]}\n".encode()
        result = self.dry_run(text, names[3], "--files-from", "-", folder=self.photos[0].parent)
        self.assertEqual(self.order(result), [names[3], names[2], names[0]])
        listed = self.folder / "names.txt"
        listed.write_bytes(text)
        result = self.dry_run(b"", "--files-from", listed, names[3], folder=self.photos[0].parent)
        self.assertEqual(self.order(result), [names[3], names[2], names[0]], "relative to the current folder")

    def test_sounds_and_their_parts_and_folders_stand_in_a_list_too(self):
        sound = self.folder / "tone.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=4", sound)
        text = f"{self.photos[0].parent}\n{sound}@1-3\n".encode()
        plan = self.plan(self.dry_run(text, "--files-from=-"))
        self.assertEqual(plan["photos"], 4)
        self.assertEqual([(piece["start"], piece["seconds"]) for piece in plan["sounds"][:1]], [(1, 2)])

    def test_no_name_is_an_option_and_any_name_can_be_told(self):
        folder = self.folder / "odd"
        folder.mkdir()
        odd = [b"-o.jpg", b"--help", b"two\nlines.jpg", b"caf\xe9.jpg", b"back\rward.jpg", b"end.jpg\r"]
        for name in odd:
            os.link(self.photos[0], os.path.join(os.fsencode(folder), name))
        result = self.run_with(b"\0".join(odd), "info", "--json", "-0", "--files-from", "-", folder=folder)
        self.assertEqual(len(result.out.splitlines()), len(odd))
        self.assertTrue(all(json.loads(line)["ok"] for line in result.out.splitlines()))
        result = self.run_with(b"-o.jpg\n--help\n", "info", "--json", "--files-from", "-", folder=folder)
        self.assertEqual([json.loads(line)["path"] for line in result.out.splitlines()], ["-o.jpg", "--help"])

    def test_documents_are_filled_from_a_list(self):
        text = "".join(f"{photo}\n" for photo in reversed(self.photos)).encode()
        self.run_with(text, "document", "new", "Rome", "--files-from", "-")
        self.run_with(f"{self.photos[1]}\0".encode(), "document", "add", "Rome", "-0", "--files-from", "-")
        listing = json.loads(self.run_stillora("document", "list", "--json", self.folder / "Rome").out)
        names = [photo["title"] for photo in listing["photos"]]
        self.assertEqual(names, [photo.stem for photo in [*reversed(self.photos), self.photos[1]]])

    def test_thousands_of_names_are_taken(self):
        text = f"{self.photos[0]}\n{self.photos[1]}\n".encode() * 2500
        self.assertEqual(len(self.order(self.dry_run(text, "--files-from", "-"))), 5000)

    def test_a_list_that_cannot_be_used_is_refused_with_the_reason(self):
        for arguments in (["create"], ["document", "new", "New"], ["info"]):
            with self.subTest(arguments):
                result = self.run_with(b"", *arguments, "--files-from", "missing.txt", expect=BAD_INPUT)
                self.assertEqual(result.err, "stillora: the list missing.txt cannot be read: No such file or directory\n")
                result = self.run_with(b"\n", *arguments, "--files-from", "-", expect=BAD_INPUT)
                self.assertEqual(result.err, "stillora: there is no name in the list standard input\n")
                self.run_with(b"", *arguments, "x", "-0", expect=USAGE)
        result = self.run_with(b"\n", "create", "--json", "--files-from", "-", expect=BAD_INPUT)
        self.assertEqual(json.loads(result.out)["error"], "there is no name in the list standard input")
        self.assertFalse((self.folder / "New.stillora").exists())

    def test_nothing_is_asked_where_the_names_come_from_the_terminal(self):
        """Of a list that was typed there is nobody left to answer: its end was the end of standard input."""
        bad = self.folder / "bad.jpg"
        bad.write_bytes(b"no picture")
        arguments = ["create", "--save", self.save, "--quality", "240"]

        def said(typed, *more):
            pid, terminal = pty.fork()
            if pid == 0:
                os.execve(stillora.STILLORA, [os.fspath(stillora.STILLORA), *map(os.fspath, arguments), *more],
                          self.environment(TERM="dumb"))
            os.write(terminal, typed)
            seen = b""
            try:
                while chunk := os.read(terminal, 4096):
                    seen += chunk
                    if chunk.endswith(b"[Y/n] "):
                        os.write(terminal, b"n\n")
            except OSError:
                pass
            os.close(terminal)
            return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), seen.decode()

        status, text = said(f"{self.photos[0]}\n{bad}\n".encode() + b"\x04", "--files-from", "-")
        self.assertEqual(status, BAD_INPUT, text)
        self.assertNotIn("leave it out?", text)
        self.assertEqual(self.leftovers(self.save), [])
        _, text = said(b"", os.fspath(self.photos[0]), os.fspath(bad))
        self.assertIn("leave it out?", text, "control: without a list it is asked")


if __name__ == "__main__":
    unittest.main(verbosity=2)
