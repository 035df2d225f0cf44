"""What the tests of the window share: a desk for the process, photos, and programs that end with the test."""

import os
import shutil
import sys
import tempfile
import unittest
import wave
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from desk import Desk  # noqa: E402

# Before anything looks for a screen or a bus.
DESK = Desk()
unittest.addModuleCleanup(DESK.close)

from PIL import Image  # noqa: E402

from person import wait_until  # noqa: E402
from program import Program  # noqa: E402


def photo(file, color, size=(320, 180), taken=None):
    exif = Image.Exif()
    if taken:
        exif[0x8769] = {0x9003: taken}
    Image.new("RGB", size, color).save(file, quality=90, exif=exif)


def tone(file, seconds, rate=8000):
    with wave.open(str(file), "wb") as sound:
        sound.setparams((1, 2, rate, 0, "NONE", ""))
        # A square wave of 200 Hz.
        half = rate // 400
        sound.writeframes((b"\x00\x20" * half + b"\x00\xe0" * half) * (seconds * rate // (2 * half)))


class TestCase(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(dir=os.environ["HOME"]))
        self.photos = self.folder / "Summer"
        self.photos.mkdir()
        for name, color in (("a", "red"), ("b", "lime"), ("c", "blue"), ("d", "yellow")):
            photo(self.photos / f"{name}.jpg", color)
        self.programs = []
        self.addCleanup(self.clear_away)

    def clear_away(self):
        for each in self.programs:
            each.close()
        for left in (Path(os.environ["XDG_STATE_HOME"]), Path(os.environ["HOME"], "Movies")):
            shutil.rmtree(left, ignore_errors=True)

    def start(self, *files, **environment):
        self.programs.append(Program(*files, environment=environment))
        return self.programs[-1]

    def select(self, window, name):
        window.click(wait_until(lambda: window.cell(name), f"the photo {name}"))
