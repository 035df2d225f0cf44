"""The sample photos that the build paints."""

import json
import unittest

import stillora
from stillora import run


def paint(number, folder):
    """One of the samples by its number."""
    run(stillora.BIN / "paint-samples", folder, str(number))
    return next(folder.iterdir())


class SamplesTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photo = paint(2, cls.shared / "painted")

    def test_a_sample_is_a_photo_as_a_camera_writes_it(self):
        facts = json.loads(run("exiftool", "-json", "-n", self.photo))[0]
        self.assertEqual(facts["MIMEType"], "image/jpeg")
        self.assertEqual((facts["ImageWidth"], facts["ImageHeight"], facts["Orientation"]), (4000, 3000, 6))
        self.assertEqual(facts["DateTimeOriginal"], "2023:06:03 11:20:47")

    def test_a_sample_is_the_same_every_time(self):
        self.assertEqual(paint(2, self.folder / "again").read_bytes(), self.photo.read_bytes())

    def test_a_sample_is_no_flat_colour_and_has_its_sky_above(self):
        # ffmpeg turns it upright as its EXIF orientation says.
        pixels = run("ffmpeg", "-v", "error", "-i", self.photo, "-vf", "scale=60:80", "-f", "rawvideo", "-pix_fmt", "rgb24",
                     "-")
        mean = sum(pixels) / len(pixels)
        spread = (sum((p - mean) ** 2 for p in pixels) / len(pixels)) ** 0.5
        self.assertGreater(spread, 25)
        rows = 60 * 12 * 3
        blueness = lambda part: sum(part[2::3]) - sum(part[0::3])
        self.assertGreater(blueness(pixels[:rows]), blueness(pixels[-rows:]))


if __name__ == "__main__":
    unittest.main(verbosity=2)
