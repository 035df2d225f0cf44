"""Documents changed from a shell: remove, move, sort and set."""

import fcntl
import json
import os
import plistlib
import shutil
import subprocess
import unittest

import stillora

FAILED, USAGE, BAD_INPUT = 1, 2, 3


class DocumentEditTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 5)
        for number, photo in enumerate(cls.photos, 1):
            photo.rename(photo.with_name(f"img{number}.jpg"))
        cls.photos = [cls.shared / "photos" / f"img{number}.jpg" for number in range(1, 6)]
        cls.sounds = [cls.shared / f"{name}.wav" for name in ("low", "high")]
        for sound, hertz in zip(cls.sounds, (200, 800)):
            stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"sine={hertz}:duration=6", sound)

    def setUp(self):
        super().setUp()
        self.document = self.folder / "Rome.stillora"
        self.run_stillora("document", "new", self.document, *self.photos, *self.sounds)

    def do(self, verb, *arguments, expect=0, **options):
        return self.run_stillora("document", verb, self.document, *arguments, expect=expect, **options)

    def listing(self):
        return json.loads(self.do("list", "--json", expect=(0, BAD_INPUT)).out)

    def names(self, kind="photos"):
        return [os.path.basename(item["path"] or "?") for item in self.listing()[kind]]

    def numbers(self):
        """The photos' order, by the numbers in their names."""
        return [int(name.removeprefix("img").removesuffix(".jpg")) for name in self.names()]

    def files(self):
        return self.leftovers(self.document / "Resources")

    def settings(self):
        return plistlib.loads((self.document / "Document.plist").read_bytes())["settings"]

    def assertRefused(self, result, *words):
        self.assertEqual(result.out, "")
        self.assertTrue(result.err.startswith("stillora: "), result.err)
        for word in words:
            self.assertIn(word, result.err)

    # remove

    def test_items_are_removed_with_their_files_by_numbers_ranges_and_names(self):
        result = self.do("remove", "p1", "3-4", "s2")
        self.assertEqual(result.out, f"{self.document}\n")
        self.assertEqual(result.err, "stillora: 3 photos removed\nstillora: 1 sound removed\n")
        self.assertEqual(self.numbers(), [2, 5])
        self.assertEqual(self.names("soundtracks"), ["low.wav"])
        self.assertEqual(self.files(), ["Photos/img2.jpg", "Photos/img5.jpg", "Soundtracks/low.wav"])
        self.do("remove", "img5.jpg", "low.wav")
        self.assertEqual(self.files(), ["Photos/img2.jpg"])
        self.do("check")

    def test_an_item_named_twice_is_removed_once(self):
        result = json.loads(self.do("remove", "--json", "p2-3", "p2", "img2.jpg").out)
        self.assertEqual((result["ok"], result["document"], result["photos"], result["soundtracks"]),
                         (True, str(self.document), 2, 0))
        self.assertEqual(self.numbers(), [1, 4, 5])

    def test_a_file_stays_as_long_as_an_item_needs_it(self):
        twice = self.folder / "Twice.stillora"
        self.run_stillora("document", "new", twice, self.photos[0], self.photos[0])
        copies = self.leftovers(twice / "Resources")
        self.assertEqual(copies, ["Photos/img1.jpg"])
        self.run_stillora("document", "remove", twice, "p1")
        self.assertEqual(self.leftovers(twice / "Resources"), copies)
        self.run_stillora("document", "check", twice)
        self.run_stillora("document", "remove", twice, "p1")
        self.assertEqual(self.leftovers(twice / "Resources"), [])

    def test_what_is_not_there_is_refused_and_nothing_changes(self):
        before = (self.document / "Document.plist").read_bytes()
        for words, reason in ((["p6"], "there is no p6 in"), (["p0"], "there is no p0 in"), (["s1-3"], "which has 2 sounds"),
                              (["p1", "p4-9"], "which has 5 photos"), (["p4-2"], "ends before it starts"),
                              (["img9.jpg"], "there is no img9.jpg in"), (["p99999999999999999999"], "there is no p9999"),
                              ([""], "there is no")):
            with self.subTest(words):
                self.assertRefused(self.do("remove", *words, expect=BAD_INPUT), reason)
        self.assertRefused(self.do("remove", expect=USAGE), "no photos or sounds were given")
        self.assertEqual((self.document / "Document.plist").read_bytes(), before)
        self.assertEqual(len(self.files()), 7)

    def test_a_name_of_more_than_one_is_refused_with_their_numbers(self):
        other = self.folder / "other"
        other.mkdir()
        os.link(self.photos[1], other / "img1.jpg")
        self.do("add", other / "img1.jpg")
        self.assertEqual(self.names()[-1], "img1-2.jpg")
        self.assertRefused(self.do("remove", "img1", expect=BAD_INPUT), "img1 stands for more than one", "p1, p6")
        self.do("remove", "img1.jpg")
        self.assertEqual(self.names()[-1], "img1-2.jpg", "the name of the file in the document comes first")

    def test_odd_names_are_found_after_two_hyphens(self):
        odd = self.folder / "odd"
        odd.mkdir()
        names = [b"-o.jpg", b"caf\xe9.jpg", b"two\nlines.jpg"]
        # The same file would be copied once.
        for number, name in enumerate(names):
            shutil.copyfile(self.photos[number], os.path.join(os.fsencode(odd), name))
        self.do("add", odd)
        self.assertEqual(len(self.names()), 8)
        self.do("remove", "--", *names)
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])

    def test_damaged_items_and_missing_files_can_be_removed(self):
        (self.document / "Resources/Photos/img2.jpg").unlink()
        saved = plistlib.loads((self.document / "Document.plist").read_bytes())
        saved["photos"][3] = b"no item"
        (self.document / "Document.plist").write_bytes(plistlib.dumps(saved))
        self.do("check", expect=BAD_INPUT)
        self.do("remove", "p2", "p4")
        self.assertEqual(self.numbers(), [1, 3, 5])
        self.assertIn("Photos/img4.jpg", self.files(), "whose file it was is not known")

    # move

    def test_photos_are_moved_to_any_place(self):
        for arguments, order in ((["p5", "--first"], [5, 1, 2, 3, 4]), (["p1", "--last"], [1, 2, 3, 4, 5]),
                                 (["p4-5", "--before", "p2"], [1, 4, 5, 2, 3]), (["p1", "--after", "img5.jpg"], [4, 5, 1, 2, 3]),
                                 (["p5", "p1", "--first"], [3, 4, 5, 1, 2]), (["p2", "--before", "p3"], [3, 4, 5, 1, 2]),
                                 (["p1", "--after", "p5"], [4, 5, 1, 2, 3])):
            with self.subTest(arguments):
                self.do("move", *arguments)
                self.assertEqual(self.numbers(), order)
        self.do("move", "s2", "--first")
        self.assertEqual(self.names("soundtracks"), ["high.wav", "low.wav"])
        self.do("check")

    def test_moves_that_mean_nothing_are_refused(self):
        for arguments, code, word in ((["p1"], USAGE, "--before, --after, --first and --last"),
                                      (["p1", "--first", "--last"], USAGE, "move needs one of"),
                                      (["--first"], USAGE, "no photos or sounds were given"),
                                      (["p1", "s1", "--first"], BAD_INPUT, "lists of their own"),
                                      (["p1", "--before", "s1"], BAD_INPUT, "s1 is in the other one"),
                                      (["p1-3", "--before", "p2"], BAD_INPUT, "p2 is to be moved itself"),
                                      (["p1", "--before", "p2-3"], BAD_INPUT, "p2-3 is more than one"),
                                      (["p1", "--after", "p9"], BAD_INPUT, "there is no p9")):
            with self.subTest(arguments):
                self.assertRefused(self.do("move", *arguments, expect=code), word)
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])

    # sort

    def test_photos_are_sorted_by_name_and_back(self):
        self.do("move", "p5", "p2", "--first")
        self.do("sort", "--by", "given", "--reverse")
        self.assertEqual(self.numbers(), [4, 3, 1, 2, 5])
        self.do("sort")
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])
        self.do("sort", "--by=name", "--reverse")
        self.assertEqual(self.numbers(), [5, 4, 3, 2, 1])
        self.assertRefused(self.do("sort", "--by", "size", expect=USAGE), '--by takes name, date, given, not "size"')
        self.assertRefused(self.do("sort", "date", expect=USAGE), "date is another argument")

    def test_photos_are_sorted_by_date_as_create_does(self):
        """None tells when it was taken, so that all go by the times of their files, which the copies keep."""
        times = {1: 300, 2: 100, 3: 500, 4: 200, 5: 400}
        for number, seconds in times.items():
            os.utime(self.document / f"Resources/Photos/img{number}.jpg", (seconds, seconds))
        result = self.do("sort", "--by", "date")
        self.assertEqual(self.numbers(), [2, 4, 1, 5, 3])
        self.assertIn("times of their files", result.err)
        (self.document / "Resources/Photos/img4.jpg").write_bytes(b"no picture")
        result = self.do("sort", "--by", "date", "--reverse")
        self.assertIn("1 photo that cannot be read comes last", result.err)
        self.assertEqual(self.numbers(), [3, 5, 1, 2, 4])

    # set

    def test_settings_are_changed_and_taken_back(self):
        for key, value, saved, kept, usual in (
                ("seconds", "2.5", "secondsPerPhoto", 2.5, 4), ("quality", "1080p", "quality", 1080, 0),
                ("quality", "smallest", "quality", -1, 0), ("codec", "hevc", "codec", "hvc1", "avc1"),
                ("loop", "on", "loopsSoundtracks", True, False), ("silence", "off", "fillsSilence", False, True),
                ("reduce-borders", "on", "reducesBorders", True, False), ("title", "Our summer", "title", "Our summer", None),
                ("watermark", "off", "drawsWatermark", False, None), ("fit-music", "on", "fitsMusic", True, False)):
            with self.subTest(key):
                result = json.loads(self.do("set", key, value, "--json").out)
                self.assertEqual((result["settings"][saved], self.settings()[saved]), (kept, kept))
                self.do("set", key)
                self.assertEqual(self.settings().get(saved), usual)
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])

    def test_settings_that_contradict_each_other_are_told(self):
        self.do("set", "fit-music", "on")
        self.assertRefused(self.do("set", "loop", "on", expect=BAD_INPUT), "fit-music leaves nothing to loop")
        self.assertFalse(self.settings()["loopsSoundtracks"])
        result = self.do("set", "seconds", "3")
        self.assertIn("do not share the length of the music any more", result.err)
        self.assertFalse(self.settings()["fitsMusic"])
        self.assertEqual(self.do("set", "seconds", "3").err, "")

    def test_wrong_settings_are_refused_by_their_names(self):
        for arguments, words in ((["quality", "nonsense"], ["stillora: quality takes auto, ", 'not "nonsense"']),
                                 (["seconds", "0"], ["stillora: seconds takes a number"]),
                                 (["codec", "avc2"], ["stillora: codec takes ", "did you mean avc1?"]),
                                 (["loop", "yes"], ['stillora: loop takes on or off, not "yes"']),
                                 (["title", "a/b"], ['the title "a/b" holds']),
                                 (["s1", "9"], ["stillora: s1 takes START-END"]),
                                 (["s1", "5-2"], ["ends before it starts"]),
                                 (["sceonds", "3"], ["there is no setting sceonds", "did you mean seconds?"]),
                                 (["p1", "1-2"], ["there is no setting p1"]), ([], ["no setting was given"]),
                                 (["title", "a", "b"], ["b is another argument"])):
            with self.subTest(arguments):
                self.assertRefused(self.do("set", *arguments, expect=USAGE), *words)

    def test_the_part_of_a_sound_is_changed(self):
        self.do("set", "s2", "1-0:03")
        low, high = self.listing()["soundtracks"]
        self.assertTrue(low["whole"])
        self.assertEqual((high["whole"], high["start"], high["end"]), (False, 1, 3))
        self.do("set", "low.wav", "2-")
        self.assertEqual(self.listing()["soundtracks"][0]["start"], 2)
        self.assertEqual(self.listing()["soundtracks"][0]["end"], 6)
        self.do("set", "s1-2")
        self.assertEqual([sound["whole"] for sound in self.listing()["soundtracks"]], [True, True])
        self.assertRefused(self.do("set", "s1", "5-9", expect=BAD_INPUT), "low.wav")
        self.assertRefused(self.do("set", "s3", "1-2", expect=BAD_INPUT), "there is no s3")
        self.assertRefused(self.do("set", "none.wav", "1-2", expect=BAD_INPUT), "there is no none.wav")

    def test_a_setting_that_cannot_be_used_can_be_set_anew(self):
        saved = plistlib.loads((self.document / "Document.plist").read_bytes())
        saved["settings"].update(codec="foo", quality="high", later="kept")
        (self.document / "Document.plist").write_bytes(plistlib.dumps(saved))
        self.do("set", "codec", "avc1")
        self.assertEqual(self.settings()["codec"], "avc1")
        self.assertEqual(self.settings()["quality"], "high", "of which nothing was said")
        self.assertEqual(len(self.listing()["settingFaults"]), 1)
        self.do("set", "quality")
        self.assertEqual((self.settings()["quality"], self.settings()["later"]), (0, "kept"))
        self.do("check")

    # all

    def test_changes_are_what_a_movie_is_made_of(self):
        self.do("remove", "p4-5", "s2")
        self.do("move", "p3", "--first")
        for key, value in (("seconds", "1"), ("quality", "240"), ("title", "Short"), ("s1", "0-2")):
            self.do("set", key, value)
        movie = self.made_movie(self.do("render", "--save", self.save))
        self.assertEqual(movie.name, "Short.mov")
        plain = self.made_movie(self.create("--seconds", "1", "--quality", "240", "--title", "Plain", self.photos[2],
                                            *self.photos[:2], f"{self.sounds[0]}@0-2"))
        for kind in "va":
            self.assertEqual(stillora.packet_hashes(movie, kind), stillora.packet_hashes(plain, kind))

    def test_a_change_waits_for_that_of_another_program(self):
        folder = os.open(self.document, os.O_RDONLY)
        fcntl.flock(folder, fcntl.LOCK_EX)
        process = subprocess.Popen([str(stillora.STILLORA), "document", "remove", str(self.document), "p1"],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=self.environment(), text=True)
        self.addCleanup(process.kill)
        self.assertIn("waiting for another program", process.stderr.readline())
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])
        os.close(folder)
        process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.numbers(), [2, 3, 4, 5])

    def test_many_changes_at_once_lose_nothing(self):
        commands = [["document", "remove", self.document, f"img{number}.jpg"] for number in (2, 3, 4)]
        commands += [["document", "set", self.document, "title", "Many"], ["document", "set", self.document, "s1", "1-2"]]
        processes = [subprocess.Popen([str(stillora.STILLORA), *map(str, command)], stdout=subprocess.DEVNULL,
                                      stderr=subprocess.DEVNULL, env=self.environment()) for command in commands]
        self.assertEqual([process.wait(timeout=stillora.DEADLINE) for process in processes], [0] * len(commands))
        self.assertEqual(self.numbers(), [1, 5])
        self.assertEqual(self.settings()["title"], "Many")
        self.assertFalse(self.listing()["soundtracks"][0]["whole"])

    def test_thousands_of_photos_are_moved_in_no_time(self):
        many = self.folder / "Many.stillora"
        names = f"{self.photos[0]}\n{self.photos[1]}\n" * 1500
        (self.folder / "names").write_text(names)
        self.run_stillora("document", "new", many, "--files-from", self.folder / "names")
        result = self.run_stillora("document", "move", many, "p1001-3000", "--first", "--json")
        self.assertEqual(json.loads(result.out)["photos"], 2000)
        self.run_stillora("document", "remove", many, "p2-3000")
        listing = json.loads(self.run_stillora("document", "list", "--json", many).out)
        self.assertEqual([os.path.basename(photo["path"]) for photo in listing["photos"]], ["img1.jpg"])
        self.assertEqual(self.leftovers(many / "Resources"), ["Photos/img1.jpg"])

    def test_a_document_that_cannot_be_written_stays_as_it_is(self):
        prefix = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
        self.document.chmod(0o555)
        self.addCleanup(self.document.chmod, 0o755)
        self.assertRefused(self.do("remove", "p1", expect=FAILED, prefix=prefix), str(self.document))
        self.assertEqual(self.numbers(), [1, 2, 3, 4, 5])
        self.assertEqual(len(self.files()), 7)


if __name__ == "__main__":
    unittest.main(verbosity=2)
