"""What is told of a movie before it is made, against the movie that is then made."""

import json
import unittest
from pathlib import Path

import stillora


class ForecastTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 12, 1280, 720)
        cls.song = cls.shared / "song.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "anoisesrc=c=pink:d=30:a=0.3", "-ac", "2", cls.song)

    def result(self, *arguments):
        return json.loads(self.run_stillora(*arguments, "--json").out.splitlines()[-1])

    def test_the_size_that_is_told_is_that_of_the_movie(self):
        for options in (
            ("--codec", "avc1"),
            ("--codec", "hvc1", "--quality", "360", "--web", "--seconds", "10"),
            ("--codec", "jpeg", "--quality", "480", "--no-silence"),
            ("--codec", "apcn", "--quality", "360", "--reduce-borders"),
            ("--codec", "jpeg", "--quality", "240", "--soundtrack", self.song, "--seconds", "2"),
            ("--quality", "240", "--soundtrack", f"{self.song}@0-3", "--loop"),
        ):
            with self.subTest(options=options):
                arguments = ["create", *self.photos, "--save", self.save, *options]
                plan = self.result(*arguments, "--dry-run")
                self.assertEqual(self.leftovers(self.save), [], "nothing is made for a plan")
                movie = self.result(*arguments)
                self.assertAlmostEqual(plan["estimatedBytes"] / movie["bytes"], 1, delta=0.1)
                self.assertGreater(plan["estimatedSeconds"], 0.1)
                Path(movie["movie"]).unlink()

    def test_all_frames_are_drawn_on_one_picture(self):
        sheet = self.folder / "sheet.png"
        arguments = ["create", *self.photos, "--save", self.save, "--contact-sheet", sheet]
        self.assertEqual(self.result(*arguments, "--dry-run")["contactSheet"], str(sheet))
        # 12 frames of 1280 x 720 in four columns and three rows.
        self.assertEqual([stillora.probe(sheet)["video"][0][side] for side in ("width", "height")], [4 * 600 + 8, 3 * 359 + 8])
        self.assertIn("--contact-sheet goes with --dry-run", self.run_stillora(*arguments, expect=2).err)
        self.assertIn("would replace the photo", self.run_stillora(*arguments, sheet, "--dry-run", expect=2).err)
        self.assertEqual(self.leftovers(self.save), [])

    def test_a_document_is_planned_too(self):
        self.run_stillora("document", "new", self.folder / "Trip", *self.photos, "--quality", "360")
        arguments = ["document", "render", self.folder / "Trip", "--save", self.save]
        plan = self.result(*arguments, "--dry-run")
        self.assertEqual((plan["dryRun"], plan["title"], plan["height"], len(plan["order"])), (True, "Trip", 360, 12))
        self.assertEqual(self.leftovers(self.save), [])
        self.assertAlmostEqual(plan["estimatedBytes"] / self.result(*arguments)["bytes"], 1, delta=0.1)


if __name__ == "__main__":
    unittest.main()
