"""Documents: what is made of one is what `stillora create` makes of the same photos and sounds, wherever it lies."""

import hashlib
import json
import plistlib
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import frame, hold_times, picture, run, wait_until

BAD_INPUT = 3


def packet_hashes(movie):
    """One line for each packet of each stream, its time and the hash of its bytes."""
    return run("ffmpeg", "-v", "error", "-i", movie, "-map", "0", "-c", "copy", "-f", "framehash", "-")


def file_hash(file):
    """Of all but the title, which is the name that was asked for; titles of one length take the same room."""
    title = file.stem.removesuffix("-2").encode()
    return hashlib.sha256(file.read_bytes().replace(title, b"*" * len(title))).hexdigest()


class DocumentTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.album = cls.shared / "album"
        cls.album.mkdir()
        for number, (name, width, height) in enumerate(
                [("img1.jpg", 1600, 1200), ("img2.png", 900, 1600), ("img10.webp", 2000, 1000), ("img11.jpg", 1280, 720),
                 ("img12.jpg", 1024, 1024), ("img13.tiff", 1500, 1000)]):
            picture(cls.album / name, width, height, number)
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=9.7:sample_rate=44100", "-ac", "2",
            cls.album / "a song.mp3")
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=frequency=330:duration=31.1234567:sample_rate=48000",
            cls.album / "b.wav")

    def setUp(self):
        super().setUp()
        # Of its own, since the originals are deleted.
        self.originals = self.folder / "Rome"
        shutil.copytree(self.album, self.originals)
        self.elsewhere = self.folder / "else where" / "Ünterwegs v1.2.stillora"
        self.elsewhere.parent.mkdir()

    def environment(self, **changes):
        # Movies of one moment, so that they may be the same to the byte.
        return super().environment(**{"SOURCE_DATE_EPOCH": "1000000000", **changes})

    def document(self, *arguments, **options):
        return self.run_stillora("document", *arguments, **options)

    def rendered(self, document, *options):
        return self.made_movie(self.document("render", document, "--save", self.save, *options))

    def assertSameMovie(self, rendered, created):
        self.assertEqual(packet_hashes(rendered), packet_hashes(created))
        self.assertEqual(file_hash(rendered), file_hash(created), "the packets are the same, but not the file")

    def moved(self, document):
        """The document elsewhere, and the originals gone."""
        shutil.move(document, self.elsewhere)
        shutil.rmtree(self.originals)
        return self.elsewhere

    def test_a_document_that_was_moved_gives_the_movie_that_create_makes_of_the_originals(self):
        songs = ["--soundtrack", self.originals / "a song.mp3", "--soundtrack", self.originals / "b.wav"]
        created = self.made_movie(self.create("--seconds", "3", "--quality", "480", "--title", "Created in Rome", *songs,
                                              self.originals))
        document = self.folder / "Trip.stillora"
        result = self.document("new", document, self.originals, "--seconds", "3", "--quality", "480")
        self.assertEqual(result.out, f"{document}\n")
        rendered = self.rendered(self.moved(document))
        self.assertEqual(rendered.name, "Ünterwegs v1.2.mov")
        self.assertEqual(len(hold_times(rendered)), 6)
        self.assertSameMovie(rendered, created)
        self.assertEqual(self.leftovers(self.save), ["Created in Rome.mov", "Ünterwegs v1.2.mov"])

    def test_every_setting_and_selection_gives_the_movie_that_create_makes(self):
        cases = {
            "loop": (["--seconds", "4", "--loop", "--reduce-borders"], ["a song.mp3@1.5-6"]),
            "fit": (["--fit-music", "--quality", "360"], ["b.wav@2.5-", "a song.mp3@-4"]),
            "codec": (["--codec", "jpeg", "--quality", "240", "--seconds", "1.3", "--no-silence"], []),
            "parts of one file": (["--seconds", "2"], ["b.wav@1-3.25", "b.wav@20-", "b.wav@1-3.25"]),
        }
        for name, (settings, sounds) in cases.items():
            with self.subTest(name):
                photos = sorted(self.originals.glob("img1*.*"))
                songs = [part for sound in sounds for part in ("--soundtrack", self.originals / sound)]
                created = self.made_movie(self.create(*settings, "--title", f"Created for {name}", *songs, *photos))
                document = self.folder / f"Rendered of {name}.stillora"
                self.document("new", document, *photos[:2], *settings)
                self.document("add", document, *photos[2:], *[self.originals / sound for sound in sounds])
                moved = document.rename(self.elsewhere.parent / document.name)
                self.assertSameMovie(self.rendered(moved), created)

    def test_the_frames_are_the_photos_in_their_order(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals / "img11.jpg", self.originals / "img1.jpg", "--seconds", "1")
        movie = self.rendered(document, "--quality", "360")
        wanted = []
        for name in ("img11.jpg", "img1.jpg"):
            file = self.folder / "frame.png"
            self.run_stillora("frame", self.originals / name, "-o", file, "--quality", "360")
            wanted.append(run("ffmpeg", "-v", "error", "-i", file, "-vf", "scale=32:18", "-frames:v", "1", "-f", "rawvideo",
                              "-pix_fmt", "rgb24", "-"))
        for index in range(2):
            shown = frame(movie, index * 3)
            own, other = (sum(abs(a - b) for a, b in zip(shown, wanted[i])) / len(shown) for i in (index, 1 - index))
            # The encoder changes these gaudy colours by about ten steps.
            self.assertLess(own, 16)
            self.assertGreater(other, 3 * own)

    def test_photos_are_added_in_the_order_that_is_asked_for(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals, "--sort", "name", "--reverse")
        (self.folder / "more/inside").mkdir(parents=True)
        shutil.copy(self.originals / "img1.jpg", self.folder / "more/inside/last.jpg")
        self.document("add", document, self.folder / "more", "--recursive")
        listing = json.loads(self.document("list", document, "--json").out)["photos"]
        self.assertEqual([Path(photo["path"]).name for photo in listing],
                         ["img13.tiff", "img12.jpg", "img11.jpg", "img10.webp", "img2.png", "img1.jpg", "last.jpg"])

    def test_the_title_of_the_document_or_of_the_command_names_the_movie(self):
        document = self.folder / "Trip.stillora"
        photos = sorted(self.originals.glob("*.jpg"))
        self.document("new", document, *photos, "--title", "Our Trip", "--seconds", "1", "--quality", "240")
        self.assertEqual(self.rendered(document).name, "Our Trip.mov")
        self.assertEqual(self.rendered(document).name, "Our Trip-2.mov")
        self.assertEqual(self.rendered(document, "--title", "Other").name, "Other.mov")

    def test_settings_can_differ_for_one_movie(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals, "--fit-music", "--quality", "480")
        before = (document / "Document.plist").read_bytes()
        movie = self.rendered(document, "--seconds", "0.5", "--quality", "240", "--codec", "jpeg")
        facts = stillora.probe(movie)["video"][0]
        self.assertEqual((facts["width"], facts["height"], facts["codec_name"]), (320, 240, "mjpeg"))
        self.assertEqual(hold_times(movie)[1], (0.5, 0.5))
        self.assertEqual((document / "Document.plist").read_bytes(), before)

    def test_a_half_copied_document_is_refused_and_tells_what_is_missing(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals, "--quality", "240", "--seconds", "1")
        (document / "Resources/Photos/img2.png").unlink()
        (document / "Resources/Soundtracks/b.wav").unlink()
        for command in (["check"], ["list"], ["render", "--save", self.save]):
            result = self.document(command[0], document, *command[1:], expect=BAD_INPUT)
            self.assertIn("Photos/img2.png: is missing", result.err)
            self.assertIn("Soundtracks/b.wav: is missing", result.err)
        self.assertEqual(self.leftovers(self.save), [])
        self.assertEqual(len(hold_times(self.rendered(document, "--skip-bad"))), 5)

    def test_a_property_list_that_another_program_wrote_is_read(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals, "--seconds", "1", "--quality", "240")
        first = self.rendered(document)
        file = document / "Document.plist"
        content = plistlib.loads(file.read_bytes())
        content["chapters"] = [{"name": "One", "from": 0}]
        file.write_bytes(plistlib.dumps(content, fmt=plistlib.FMT_XML))
        self.assertSameMovie(self.rendered(document), first)
        self.document("add", document, self.originals / "img1.jpg")
        written = plistlib.loads(file.read_bytes())
        self.assertEqual(written["chapters"], content["chapters"])
        self.assertEqual(written["photos"][:6], content["photos"])
        self.assertEqual(written["settings"], content["settings"])
        self.assertEqual(len(written["photos"]), 7)

    def test_settings_that_cannot_be_used_are_told_and_not_rendered_with(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals / "img1.jpg", "--seconds", "1", "--quality", "240")
        file = document / "Document.plist"
        content = plistlib.loads(file.read_bytes())
        content["settings"]["codec"] = "mp4v"
        file.write_bytes(plistlib.dumps(content, fmt=plistlib.FMT_BINARY))
        for command in (["check"], ["render", "--quiet", "--save", self.save]):
            result = self.document(command[0], document, *command[1:], expect=BAD_INPUT)
            self.assertIn('the setting "codec" is "mp4v", which is no codec', result.err)
        self.assertEqual(self.leftovers(self.save), [])
        self.rendered(document, "--skip-bad")
        self.assertEqual(plistlib.loads(file.read_bytes()), content)

    def test_a_document_of_a_newer_version_is_left_alone(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals)
        file = document / "Document.plist"
        content = plistlib.loads(file.read_bytes())
        content["formatVersion"] = 2
        file.write_bytes(plistlib.dumps(content, fmt=plistlib.FMT_BINARY))
        before = self.leftovers(document), file.read_bytes()
        for command in (["list"], ["check"], ["render"], ["add", self.originals / "img1.jpg"]):
            result = self.document(command[0], document, *command[1:], expect=BAD_INPUT)
            self.assertIn("was made by a newer version of this program", result.err)
            self.assertEqual(result.out, "")
        self.assertEqual((self.leftovers(document), file.read_bytes()), before)

    def test_ctrl_c_leaves_nothing_behind(self):
        # A source that takes long to copy: many names, and a file system that stores each.
        many = stillora.pictures(self.folder / "many", 300, 1600, 1200)
        before = self.leftovers()
        for name, arguments in (("new", ["new", self.folder / "Long.stillora"]),):
            process = subprocess.Popen([stillora.STILLORA, "document", *arguments, *many], env=self.environment(),
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            wait_until(lambda: list(self.folder.glob(".stillora-new-*")) or process.poll() is not None, "it begins")
            process.send_signal(signal.SIGINT)
            out, err = process.communicate(timeout=stillora.DEADLINE)
            self.assertEqual(process.returncode, 128 + signal.SIGINT, err)
            self.assertEqual(out, b"")
            self.assertIn(b"nothing was left behind", err)
            self.assertEqual(self.leftovers(), before)

    def test_what_a_killed_process_left_is_cleaned_up_by_the_next(self):
        many = stillora.pictures(self.folder / "many", 100, 1600, 1200)
        process = subprocess.Popen([stillora.STILLORA, "document", "new", self.folder / "Long.stillora", *many],
                                   env=self.environment(), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        wait_until(lambda: list(self.folder.glob(".stillora-new-*")), "it begins")
        process.kill()
        process.communicate()
        self.assertFalse((self.folder / "Long.stillora").exists())
        self.document("new", self.folder / "Trip.stillora", self.originals)
        self.assertEqual(list(self.folder.glob(".stillora-new-*")), [])

    def test_a_full_disk_leaves_the_document_as_it_was(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals / "img1.jpg")
        before = self.leftovers(document), (document / "Document.plist").read_bytes()
        large = self.folder / "large.wav"
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "anullsrc=r=48000:cl=stereo", "-t", "20", large)
        # A limit on the size of files is refused in the same way as a full disk.
        result = self.document("add", document, large, expect=1, prefix=["prlimit", "--fsize=1000000"])
        self.assertIn("large.wav", result.err)
        self.assertEqual((self.leftovers(document), (document / "Document.plist").read_bytes()), before)

    def test_json_tells_the_movie(self):
        document = self.folder / "Trip.stillora"
        self.document("new", document, self.originals, "--seconds", "1", "--quality", "240")
        result = self.document("render", document, "--save", self.save, "--json")
        last = json.loads(result.out.splitlines()[-1])
        self.assertEqual((last["event"], last["ok"], last["movie"]), ("result", True, str(self.save / "Trip.mov")))
        self.assertEqual(result.err.count("\n"), 2, "what is heard, and what was made")


if __name__ == "__main__":
    unittest.main(verbosity=2)
