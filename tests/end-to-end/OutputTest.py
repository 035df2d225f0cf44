"""What --json writes, against the schema that is installed for programs that read it."""

import json
import os
import unittest
from pathlib import Path

import jsonschema
import stillora

SCHEMA = Path(__file__).resolve().parents[2] / "data/schemas/output-1.schema.json"


class OutputTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.schema = json.loads(SCHEMA.read_text())
        cls.photos = stillora.pictures(cls.shared / "photos", 3, 640, 360)
        cls.song = cls.shared / "song.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=d=3", cls.song)
        cls.other_song = cls.shared / "other.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=f=300:d=3", cls.other_song)
        cls.bad = cls.shared / "bad.jpg"
        cls.bad.write_bytes(b"no picture")
        cls.damaged = cls.shared / "damaged.jpg"
        whole = cls.photos[0].read_bytes()
        cls.damaged.write_bytes(whole[:len(whole) // 2])

    def kinds(self, *arguments, expect=0):
        """Runs a command, and returns the names of what its lines are; each must be exactly one thing."""
        lines = self.run_stillora(*arguments, "--json", expect=expect).out.splitlines()
        self.assertNotEqual(lines, [])
        return [self.kind(json.loads(line)) for line in lines]

    def kind(self, value):
        names = [entry["$ref"].split("/")[-1] for entry in self.schema["anyOf"]]
        fitting = [name for name in names if self.fits(name, value)]
        self.assertEqual(len(fitting), 1, f"{json.dumps(value)} is {fitting}")
        return fitting[0]

    def fits(self, name, value):
        schema = {"$ref": f"#/$defs/{name}", "$defs": self.schema["$defs"]}
        return jsonschema.Draft202012Validator(schema).is_valid(value)

    def test_the_schema_is_one(self):
        jsonschema.Draft202012Validator.check_schema(self.schema)
        for name, definition in self.schema["$defs"].items():
            self.assertIs(definition["additionalProperties"], False, name)

    def test_a_member_that_is_missing_or_not_known_is_noticed(self):
        facts = json.loads(self.run_stillora("info", self.photos[0], "--json").out)
        self.assertTrue(self.fits("photoFacts", facts))
        for name in facts:
            self.assertFalse(self.fits("photoFacts", {k: v for k, v in facts.items() if k != name}), name)
        self.assertFalse(self.fits("photoFacts", {**facts, "more": 1}))

    def test_movies_and_plans(self):
        made = self.kinds("create", *self.photos, self.song, self.damaged, "--save", self.save)
        self.assertEqual(made[-1], "movie")
        self.assertEqual(set(made[:-1]), {"check", "progress"})
        self.assertEqual(self.kinds("create", *self.photos, self.bad, "--skip-bad", "--save", self.save)[-1], "movie")
        for options in ([], [self.song, "--loop"], ["--quality", "240", "--contact-sheet", self.folder / "sheet.png"]):
            self.assertEqual(self.kinds("create", *self.photos, "--dry-run", *options)[-1], "plan")
        for expect, arguments in ((3, [self.bad]), (3, ["/no/such.jpg"]), (1, [*self.photos, "--save", "/proc/no"])):
            self.assertEqual(self.kinds("create", *arguments, expect=expect)[-1], "failedMovie")

    def test_sounds_of_which_nothing_is_heard_are_told_with_the_reason(self):
        said = self.run_stillora("create", *self.photos, self.song, self.other_song, "--seconds", "0.2", "--dry-run",
                                 "--json")
        plan = json.loads(said.out.splitlines()[-1])
        self.assertEqual(plan["leftOut"], [str(self.other_song)])
        self.assertEqual(plan["unheardSounds"], [{
            "path": str(self.other_song),
            "reason": "is not heard: the sounds before it last until the pictures end"}])

    def test_files(self):
        movie = self.save / "Movie.mov"
        self.run_stillora("create", *self.photos, "-o", movie)
        self.assertEqual(self.kinds("info", self.photos[0], self.damaged, self.song, movie, self.bad, expect=3),
                         ["photoFacts", "photoFacts", "soundFacts", "movieFacts", "failedFile"])
        self.assertEqual(self.kinds("waveform", self.song, "-o", self.folder / "a.png"), ["waveform"])
        self.assertEqual(self.kinds("waveform", self.bad, "-o", self.folder / "a.png", expect=3), ["waveform"])
        self.assertEqual(self.kinds("convert", self.song, "-o", self.folder / "a.m4a"), ["sound"])
        self.assertEqual(self.kinds("trim", self.folder / "a.m4a", "--range", "1-2", "-o", self.folder / "b.m4a"), ["sound"])
        self.assertEqual(self.kinds("trim", self.bad, "--range", "1-2", "-o", self.folder / "c.m4a", expect=3), ["sound"])
        self.assertEqual(self.kinds("apps", self.photos[0], expect=(0, 1)), ["applications"])

    def test_documents(self):
        trip = self.folder / "Trip.stillora"
        rows = [
            (["new", trip, *self.photos[:2], self.song], "filledDocument"),
            (["add", trip, self.photos[2], self.damaged], "filledDocument"),
            (["list", trip], "documentList"),
            (["move", trip, "p2", "--first"], "changedDocument"),
            (["sort", trip], "changedDocument"),
            (["set", trip, "title", "Rome"], "setDocument"),
            (["set", trip, "s1", "0-2"], "changedDocument"),
            (["list", trip], "documentList"),
            (["remove", trip, "p1"], "changedDocument"),
            (["render", trip, "--save", self.save], "movie"),
            (["render", trip, "--dry-run"], "plan"),
        ]
        for arguments, kind in rows:
            with self.subTest(arguments=arguments[0]):
                self.assertEqual(self.kinds("document", *arguments)[-1], kind)
        self.assertEqual(self.kinds("document", "check", trip)[-1], "documentCheck")
        os.remove(next((trip / "Resources/Photos").iterdir()))
        self.assertEqual(self.kinds("document", "list", trip, expect=3), ["documentList"])
        self.assertEqual(self.kinds("document", "check", trip, expect=3)[-1], "documentCheck")
        self.assertEqual(self.kinds("document", "move", trip, "p9", "--first", expect=3), ["failedDocument"])
        for command in ("list", "check"):
            self.assertEqual(self.kinds("document", command, self.folder / "None", expect=3), ["failedDocument"])
            self.assertEqual(self.run_stillora("document", command, self.folder / "None", expect=3).out, "")

    def test_settings_and_the_computer(self):
        self.assertEqual(self.kinds("settings"), ["settings"])
        for key, value in (("save", self.save), ("quality", "1080"), ("seconds", "2.5"), ("watermark", "off"), ("language", "fr")):
            self.run_stillora("set", key, value)
        self.assertEqual(self.kinds("settings"), ["settings"])
        self.assertEqual(self.kinds("doctor", expect=(0, 1)), ["doctor"])


if __name__ == "__main__":
    unittest.main()
