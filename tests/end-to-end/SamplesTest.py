"""What ./run makes without arguments: a movie of the sample photos and music."""

import os
import shutil
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import hold_times, probe, run

SOURCE = Path(__file__).resolve().parents[2]
SAMPLES = SOURCE / "data/samples"


class SamplesTest(stillora.TestCase):
    def run_of_a_clone(self):
        """./run in a clone whose build is done, and what it printed."""
        clone = self.folder / "clone"
        (clone / "packaging").mkdir(parents=True)
        (clone / "build/release").mkdir(parents=True)
        shutil.copy(SOURCE / "run", clone)
        (clone / "data").symlink_to(SOURCE / "data")
        (clone / "build/release/bin").symlink_to(stillora.BIN)
        build = clone / "packaging/build"
        build.write_text("#!/bin/sh\n")
        build.chmod(0o755)
        result = subprocess.run([clone / "run"], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 0, result.stderr)
        return Path(result.stdout.rstrip("\n"))

    def test_the_samples_make_a_movie_with_music_to_its_end(self):
        movie = self.run_of_a_clone()
        count = len(list((SAMPLES / "photos").iterdir()))
        self.assertEqual(hold_times(movie), [(2.5 * i, 2.5) for i in range(count)])
        facts = probe(movie)
        self.assertEqual(facts["video"][0]["height"], 1080)
        self.assertAlmostEqual(float(facts["audio"][0]["duration"]), 2.5 * count, places=2)

    def test_every_photo_reaches_from_the_top_to_the_bottom_of_that_movie(self):
        # Photos are never enlarged, so a smaller one would stand in a black frame.
        for photo in sorted((SAMPLES / "photos").iterdir()):
            width, height, orientation = map(int, run("exiftool", "-s3", "-n", "-ImageWidth", "-ImageHeight", "-Orientation",
                                                      photo).split())
            self.assertGreaterEqual(width if orientation >= 5 else height, 1080, os.fspath(photo))

    def test_the_samples_are_small(self):
        self.assertLess(sum(file.stat().st_size for file in SAMPLES.rglob("*") if file.is_file()), 1_000_000)


if __name__ == "__main__":
    unittest.main(verbosity=2)
