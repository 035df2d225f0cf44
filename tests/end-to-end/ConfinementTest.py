"""What the service can still do once it has confined itself: what it was told of, and nothing else."""

import os
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import Service, file_list, hold_times, wait_until


class ConfinementTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)
        cls.has_landlock = stillora.knows_landlock()

    def confined(self, readable, writable, **environment):
        """A service, for one client, that was told of these files."""
        return Service.connected(self, files=file_list(readable, writable), **environment)

    def status(self, process):
        lines = Path(f"/proc/{process}/status").read_text().splitlines()
        return dict(line.split(":\t", 1) for line in lines if ":\t" in line)

    def test_a_movie_is_made_with_what_is_given(self):
        with self.confined(self.photos, [self.save, self.temporary]) as service:
            movie = service.client.request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(hold_times(movie)), 6)
            self.assertEqual(movie.parent, self.save)

    def test_a_photo_that_is_not_given_is_not_read(self):
        if not self.has_landlock:
            self.skipTest("this kernel cannot keep a process from files")
        with self.confined(self.photos[1:], [self.save, self.temporary]) as service:
            service.client.request(self.photos, self.save, self.temporary)
            wait_until(lambda: "could not instantiate image source" in service.said(), "the photo is refused")
            self.assertIn(self.photos[0].name.replace(" ", "%20"), service.said())
        self.assertEqual(self.leftovers(self.save), [])

    def test_every_service_gives_up_privileges_calls_core_dumps_and_memory_without_end(self):
        with Service.listening(self) as listening, self.confined([], []) as confined:
            client = listening.connect()
            for service in (listening, confined):
                status = self.status(service.process.pid)
                self.assertEqual((status["NoNewPrivs"], status["Seccomp"]), ("1", "2"))
                limits = Path(f"/proc/{service.process.pid}/limits").read_text()
                self.assertRegex(limits, r"(?m)^Max core file size +0 +0 ")
                if not stillora.is_sanitized(stillora.SERVICE):
                    self.assertRegex(limits, r"(?m)^Max address space +\d+ +\d+ ")
            client.close()

    def test_the_service_of_the_command_is_confined(self):
        # In place of the service: it notes what it was given, and is the service.
        notes = self.folder / "notes"
        stand_in = self.folder / "stand-in"
        stand_in.write_text(f"""#!/bin/bash
            {{ echo "$@"; tr '\\0' '\\n' </proc/self/fd/4; env; }} >{notes}
            exec {stillora.SERVICE} "$@"
        """)
        stand_in.chmod(0o755)
        self.create(*self.photos, environment=self.environment(
            STILLORA_VIDEO_CREATOR=stand_in, SSH_AUTH_SOCK="/door", DBUS_SESSION_BUS_ADDRESS="unix:path=/door",
            SECRET_TOKEN="secret", LANGUAGE="de"))
        lines = notes.read_text().splitlines()
        self.assertIn("--files 4", lines[0])
        self.assertEqual([line[1:] for line in lines if line.startswith("r/")], [str(photo) for photo in self.photos])
        job, = [line[1:] for line in lines if line.startswith("w/")]
        self.assertEqual(Path(job).parent.parent, self.save)
        self.assertIn(f"TMPDIR={job}/temporary", lines)
        self.assertIn("LANGUAGE=de", lines)
        for secret in ("SSH_AUTH_SOCK", "DBUS_SESSION_BUS_ADDRESS", "SECRET_TOKEN"):
            self.assertEqual([line for line in lines if line.startswith(secret)], [])

    def test_a_want_of_memory_is_told_and_leaves_nothing(self):
        if stillora.is_sanitized(stillora.SERVICE):
            self.skipTest("a sanitizer takes terabytes")
        limited = self.folder / "limited"
        # From too little to start up to too little for the encoder, in kilobytes of address space.
        for limit in (200_000, 250_000, 300_000, 400_000):
            limited.write_text(f'#!/bin/bash\nulimit -c 0; ulimit -v {limit}; exec {stillora.SERVICE} "$@"\n')
            limited.chmod(0o755)
            result = self.create(*self.photos, "--quality", "240", expect=(0, 1, 3, 4),
                                 environment=self.environment(STILLORA_VIDEO_CREATOR=limited))
            if result.returncode != 0:
                self.assertRegex(result.err, "memory|thread|error while loading shared libraries|could not read")
                # Some of the C library's wants GLib tells in words and aborts; nothing ends without a word.
                self.assertNotIn("signal 11", result.err)
                self.assertEqual(self.leftovers(self.save), [], result.err)

    def test_a_list_that_cannot_be_read_is_refused(self):
        result = subprocess.run([stillora.SERVICE, "--files", "77"], capture_output=True, text=True,
                                env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 1)
        self.assertIn("the list of files in descriptor 77 cannot be read", result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
