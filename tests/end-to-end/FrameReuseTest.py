"""Frames that a movie made lately has are copied, and the movie is the same as if all were made."""

import json
import os
import shutil
import unittest
from pathlib import Path

import jsonschema
import stillora

ROOT = Path(__file__).resolve().parents[2]
OUTPUT = jsonschema.Draft202012Validator(json.loads((ROOT / "data/schemas/output-1.schema.json").read_text()))


class FrameReuseTest(stillora.TestCase):
    COUNT = 12

    def setUp(self):
        super().setUp()
        self.photos = stillora.pictures(self.folder / "photos", self.COUNT, 640, 480)

    @staticmethod
    def settings(options):
        usual = {"--quality": "240", "--seconds": "0.5"}
        return [word for name, value in usual.items() if name not in options for word in (name, value)]

    def made(self, photos, *options):
        """The last event of `create --json`."""
        said = self.create(*photos, *self.settings(options), *options, "--json")
        event = json.loads(said.out.splitlines()[-1])
        OUTPUT.validate(event)
        return event

    def assertSameAsFresh(self, event, photos, *options):
        fresh = self.made(photos, *options, "--fresh")
        self.assertEqual((fresh["reusedFrames"], fresh["frameSource"]), (0, None))
        for kind in "va":
            self.assertEqual(stillora.packet_hashes(event["movie"], kind), stillora.packet_hashes(fresh["movie"], kind))
        self.assertEqual(stillora.hold_times(event["movie"]), stillora.hold_times(fresh["movie"]))
        os.remove(fresh["movie"])

    def test_the_same_again_is_copied_whole(self):
        for codec in ("avc1", "jpeg", "apcn"):
            with self.subTest(codec=codec):
                first = self.made(self.photos, "--codec", codec)
                self.assertEqual(first["reusedFrames"], 0)
                again = self.made(self.photos, "--codec", codec, "--seconds", "1")
                self.assertEqual((again["reusedFrames"], again["frameSource"]), (self.COUNT, first["movie"]))
                self.assertNotEqual(again["movie"], first["movie"])
                self.assertSameAsFresh(again, self.photos, "--codec", codec, "--seconds", "1")

    def test_a_changed_photo_is_made_anew(self):
        first = self.made(self.photos)
        # Of the same name, length and time.
        before = self.photos[4].stat()
        other = stillora.picture(self.folder / "other.jpg", 640, 480, 7).read_bytes()
        self.assertLess(len(other), before.st_size)
        self.photos[4].write_bytes(other + bytes(before.st_size - len(other)))
        os.utime(self.photos[4], ns=(before.st_atime_ns, before.st_mtime_ns))
        again = self.made(self.photos)
        self.assertEqual(again["reusedFrames"], self.COUNT - 1)
        self.assertNotEqual(stillora.frame(again["movie"], 4), stillora.frame(first["movie"], 4))
        self.assertSameAsFresh(again, self.photos)

    def test_moved_added_and_removed_photos(self):
        added = stillora.picture(self.folder / "added.png", 640, 480, 3)
        order = [self.photos[9], *self.photos[1:5], added, *self.photos[6:9], self.photos[0], self.photos[0]]
        for codec in ("avc1", "jpeg"):
            with self.subTest(codec=codec):
                options = ("--no-watermark", "--codec", codec)
                self.made(self.photos, *options)
                again = self.made(order, *options)
                self.assertEqual(again["reusedFrames"], len(order) - 1)
                self.assertSameAsFresh(again, order, *options)
                # All go to a neighbour's place.
                again = self.made(self.photos[1:], *options)
                self.assertEqual(again["reusedFrames"], self.COUNT - 1)
                self.assertSameAsFresh(again, self.photos[1:], *options)

    def test_frames_with_another_watermark_are_made(self):
        self.made(self.photos, "--watermark")
        again = self.made(self.photos, "--no-watermark")
        self.assertEqual(again["reusedFrames"], 1, "of twelve, the first, the last and nine in the middle carry it")
        self.assertSameAsFresh(again, self.photos, "--no-watermark")

    def test_a_movie_that_is_not_there_as_it_was_gives_nothing(self):
        first = Path(self.made(self.photos)["movie"])
        with open(first, "ab") as movie:
            movie.write(b"more")
        second = Path(self.made(self.photos)["movie"])
        os.remove(second)
        third = self.made(self.photos)
        self.assertEqual(third["reusedFrames"], 0)
        # The same under another name is not looked for.
        shutil.move(third["movie"], self.save / "moved.mov")
        self.assertEqual(self.made(self.photos)["reusedFrames"], 0)

    def test_frames_that_do_not_fit_are_not_kept(self):
        other = self.made(self.photos, "--codec", "jpeg")
        wanted = self.made(self.photos)
        # As if the movie had those frames that it was wanted for.
        records = {record.read_bytes().split(b"\0")[1].decode(): record
                   for record in (self.home / ".cache/stillora/frames").iterdir()}
        mark, movie, state, *_ = records[other["movie"]].read_bytes().split(b"\0")
        keys = records[wanted["movie"]].read_bytes().split(b"\0")[3:]
        records[wanted["movie"]].write_bytes(b"\0".join([mark, movie, state, *keys]))
        again = self.made(self.photos)
        self.assertEqual((again["reusedFrames"], again["frameSource"], again["faults"]), (0, None, []))
        self.assertSameAsFresh(again, self.photos)
        self.assertEqual(sorted(path.name for path in self.save.iterdir() if path.suffix == ".mov"),
                         sorted(Path(made["movie"]).name for made in (other, wanted, again)))

    def test_odd_places(self):
        save = self.save / os.fsdecode(b"a: 0+1@2,\xff\n'")
        options = [*self.settings(()), "--save", save, "--json"]
        made = [json.loads(self.run_stillora("create", *self.photos, *options).out.splitlines()[-1]) for _ in range(2)]
        self.assertEqual([event["reusedFrames"] for event in made], [0, self.COUNT])

    def test_few_photos_and_sound(self):
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=d=2", self.folder / "song.wav")
        photos = [*self.photos[:2], self.folder / "song.wav"]
        self.made(photos)
        again = self.made(photos, "--seconds", "2")
        self.assertEqual(again["reusedFrames"], 6, "each stands for three of the five that the service wants")
        self.assertSameAsFresh(again, photos, "--seconds", "2")

    def test_a_movie_for_the_web_copies_and_is_not_copied_of(self):
        first = self.made(self.photos, "--seconds", "2")
        web = self.made(self.photos, "--seconds", "2", "--web")
        self.assertEqual(web["frameSource"], first["movie"])
        self.assertSameAsFresh(web, self.photos, "--seconds", "2", "--web")
        os.remove(first["movie"])
        self.assertEqual(self.made(self.photos, "--seconds", "2")["reusedFrames"], 0)

    def test_a_person_is_told(self):
        first = self.made(self.photos)
        said = self.create(*self.photos, *self.settings(()))
        self.assertIn(f"12 of 12 frames copied from {first['movie']}; --fresh makes them anew", said.err)
        self.assertNotIn("copied", self.create(*self.photos, *self.settings(()), "--fresh").err)

    def test_a_document_is_rendered_again_at_once(self):
        self.run_stillora("document", "new", self.folder / "Trip", *self.photos, "--quality", "240")
        render = ("document", "render", self.folder / "Trip.stillora", "--save", self.save, "--json")
        self.run_stillora(*render)
        again = json.loads(self.run_stillora(*render).out.splitlines()[-1])
        self.assertEqual(again["reusedFrames"], self.COUNT)
        self.assertEqual(json.loads(self.run_stillora(*render, "--fresh").out.splitlines()[-1])["reusedFrames"], 0)


if __name__ == "__main__":
    unittest.main()
