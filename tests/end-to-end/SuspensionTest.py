"""Ctrl-Z at a real terminal: the service stands still with its client, and both go on."""

import os
import pty
import re
import select
import signal
import time
import unittest
from pathlib import Path

import stillora


class Shell:
    """An interactive shell on a terminal of its own, which stops and continues jobs."""

    def __init__(self, environment):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "--noediting", "-i"],
                      environment | {"TERM": "xterm", "PS1": "ready\\n"})
        self.text = ""

    def type(self, keys):
        os.write(self.terminal, keys.encode())

    def wait_for(self, pattern, since=0):
        """Reads until the pattern comes behind the first `since` characters; returns the place behind it."""
        end = time.monotonic() + stillora.DEADLINE
        while not (match := re.compile(pattern).search(self.text, since)):
            assert time.monotonic() < end, f"no {pattern} in {self.text[since:]!r}"
            if select.select([self.terminal], [], [], 0.1)[0]:
                self.text += os.read(self.terminal, 65536).decode(errors="replace")
        return match.end()

    def close(self):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self.terminal)


def state_of(pid):
    """"R", "S", "T" and so on; nothing of a process that is gone."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2][0]
    except (FileNotFoundError, ProcessLookupError):
        return None


def service_below(shell):
    """The service that a child of the shell has started."""
    def children(pid):
        try:
            return [int(c) for c in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
        except (FileNotFoundError, ProcessLookupError):
            return []

    for client in children(shell):
        for service in children(client):
            if os.path.basename(Path(f"/proc/{service}/cmdline").read_bytes().split(b"\0")[0]) == b"stillora-video-creator":
                return client, service
    return None


class SuspensionTest(stillora.TestCase):
    def setUp(self):
        super().setUp()
        photos = stillora.pictures(self.folder / "photos", 8, 1920, 1080)
        for i in range(5):
            for photo in photos:
                os.link(photo, photo.with_name(f"{i}-{photo.name}"))
        self.shell = Shell(self.environment())
        self.addCleanup(self.shell.close)
        self.shell.wait_for("ready")

    def start(self):
        self.shell.type(f"'{stillora.STILLORA}' create '{self.folder}/photos' --codec hvc1 --quality 720 --save '{self.save}'\n")
        self.shell.wait_for(r"Rendering the photos.*[1-9][0-9]?/48")
        return stillora.wait_until(lambda: service_below(self.shell.pid), "the service runs")

    def test_the_service_stands_still_with_its_client_and_goes_on(self):
        client, service = self.start()
        before = len(self.shell.text)
        self.shell.type("\x1a")
        self.shell.wait_for(r"Stopped", before)
        stillora.wait_until(lambda: (state_of(client), state_of(service)) == ("T", "T"), "both are stopped")
        self.assertRegex(self.shell.text[before:], r"\r\x1b\[K(\^Z)?\r?\n", "the line is taken away")
        stopped = self.shell.wait_for("ready", before)
        self.shell.type("fg\n")
        self.shell.wait_for(r"Rendering the photos.*/48", stopped)
        stillora.wait_until(lambda: "T" not in (state_of(client), state_of(service)), "both go on")
        self.shell.wait_for("/save/photos.mov\r\n", stopped)
        self.assertTrue((self.save / "photos.mov").is_file())

    def test_a_stopped_job_can_be_ended_and_leaves_nothing(self):
        client, service = self.start()
        self.shell.type("\x1a")
        stillora.wait_until(lambda: (state_of(client), state_of(service)) == ("T", "T"), "both are stopped")
        self.shell.type("kill %1\n")
        stillora.wait_until(lambda: state_of(client) in (None, "Z") and state_of(service) in (None, "Z"), "both have ended")
        self.assertEqual(self.leftovers(self.save), [])


if __name__ == "__main__":
    unittest.main()
