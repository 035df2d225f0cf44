"""A screen that nobody looks at, and what stands on it."""

import mmap
import os
import struct
import subprocess
import tempfile
import time
from pathlib import Path

import gi

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf, GLib  # noqa: E402

import mark  # noqa: E402

WIDTH, HEIGHT = 640, 360


class Screen:
    """An X server of its own, whose screen lies in a file that can be read at any time at no cost."""

    def __init__(self, folder):
        self.folder = Path(tempfile.mkdtemp(prefix="screen-", dir=folder))
        ours, theirs = os.pipe()
        # Without access control, as a player may have to run as another user; it listens to nothing but its own socket.
        self.process = subprocess.Popen(
            ["Xvfb", "-displayfd", str(theirs), "-screen", "0", f"{WIDTH}x{HEIGHT}x24", "-fbdir", str(self.folder), "-ac",
             "-nolisten", "tcp", "-noreset", "-br"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=[theirs])
        os.close(theirs)
        with os.fdopen(ours) as answer:
            number = answer.readline().strip()
        if not number:
            raise RuntimeError("the X server did not start")
        self.display = f":{number}"
        with open(self.folder / "Xvfb_screen0", "rb") as file:
            self.bytes = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        # The file is a window dump: sizes in 32-bit numbers, high byte first, colours of 12 bytes each, pixels.
        header = struct.unpack(">25I", self.bytes[:100])
        size, bits, row_bytes, colours = header[0], header[11], header[12], header[19]
        assert (header[4], header[5], bits) == (WIDTH, HEIGHT, 32), header
        self.pixels, self.row_bytes = size + 12 * colours, row_bytes

    def close(self):
        self.process.terminate()
        self.process.wait()

    def luminance(self, x, y):
        # Blue, green, red; green is close enough to what the eye sees.
        return self.bytes[self.pixels + y * self.row_bytes + 4 * x + 1]

    def mark(self):
        return mark.mark_in_picture(self.luminance, 0, 0, WIDTH, HEIGHT)

    def save(self, file):
        rows = []
        for y in range(HEIGHT):
            row = self.bytes[self.pixels + y * self.row_bytes:self.pixels + y * self.row_bytes + 4 * WIDTH]
            colours = bytearray(3 * WIDTH)
            colours[0::3], colours[1::3], colours[2::3] = row[2::4], row[1::4], row[0::4]
            rows.append(bytes(colours))
        data = GLib.Bytes.new(b"".join(rows))
        picture = GdkPixbuf.Pixbuf.new_from_bytes(data, GdkPixbuf.Colorspace.RGB, False, 8, WIDTH, HEIGHT, 3 * WIDTH)
        picture.savev(str(file), "png", [], [])

    def watch(self, is_over, deadline, kept=None):
        """Samples of (seconds, mark) until `is_over()`, and the time at which it was.

        @param kept  if given, the beginning of the names of files that hold each photo as it stood on the screen
        """
        samples = []
        end = time.monotonic() + deadline
        while not is_over():
            now = time.monotonic()
            if now > end:
                raise TimeoutError(f"not over after {deadline} s")
            seen = self.mark()
            if kept and seen and samples and samples[-1][1] == seen:
                file = Path(f"{kept} {seen}.png")
                if not file.exists():
                    self.save(file)
            samples.append((now, seen))
            time.sleep(0.01)
        return samples, time.monotonic()

    def shows(self, wanted, before, deadline=5, hold=0.3):
        """Waits until the screen shows a mark and goes on to; another one than that of `before` in between is a fault.

        @return None, or what is wrong
        """
        end = time.monotonic() + deadline
        since = fault = None
        while True:
            now = time.monotonic()
            seen = self.mark()
            if seen == wanted:
                since = since or now
                if now - since > hold:
                    return fault
            else:
                if seen is not None and (seen != before or since):
                    fault = f"photo {seen} was shown"
                since = None
            if now > end:
                return f"photo {seen} is shown" if seen else "no photo is shown"
            time.sleep(0.01)
