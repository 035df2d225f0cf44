"""The command line as a user meets it: what it prints, how it ends, and what it makes of bad input."""

import fcntl
import json
import os
import plistlib
import pty
import shutil
import signal
import struct
import subprocess
import termios
import time
import unittest
import zlib
from pathlib import Path

import stillora
from stillora import hold_times, picture, wait_until

# Root may read and write everything; without these two rights it is as anybody else, and still reaches the programs.
AS_ANYBODY = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []


FAILED, USAGE, BAD_INPUT = 1, 2, 3


def can_mount():
    """Whether a small file system can be mounted for one process alone."""
    probe = ["unshare", "--user", "--map-root-user", "--mount", "mount", "-t", "tmpfs", "none", "/mnt"]
    return subprocess.run(probe, capture_output=True).returncode == 0


def png_claiming(width, height):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(2000))) + chunk(b"IEND", b""))


def bmp_claiming(width, height):
    return (b"BM" + struct.pack("<IHHI", 1024, 0, 0, 54) +
            struct.pack("<IiiHHIIiiII", 40, width, height, 1, 24, 0, 0, 2835, 2835, 0, 0)).ljust(1024, b"\x55")


def services_of(pid):
    """The rendering services that a process's main thread has started, among other programs."""
    def is_service(child):
        try:
            return Path(f"/proc/{child}/comm").read_text().startswith("stillora-video")
        except OSError:
            return False

    return [int(child) for child in Path(f"/proc/{pid}/task/{pid}/children").read_text().split() if is_service(child)]


class CommandLineTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)
        cls.many = stillora.pictures(cls.shared / "many", 150, 1600, 1200)

    def assertNothingMade(self):
        self.assertEqual(self.leftovers(self.save), [])

    def assertRefused(self, result, *words, code=BAD_INPUT):
        """A clear error: its exit code, words on standard error, nothing on standard output and nothing made."""
        self.assertEqual(result.returncode, code, result.err)
        self.assertEqual(result.out, "")
        for word in words:
            self.assertIn(word, result.err)
        self.assertNothingMade()

    # What it prints

    def test_the_movies_path_alone_goes_to_standard_output(self):
        result = self.create("--quality", "240", *self.photos)
        movie = self.made_movie(result)
        self.assertEqual(result.out, f"{movie}\n")
        self.assertEqual(self.leftovers(self.save), [movie.name])
        self.assertEqual(movie.suffix, ".mov")

    def test_quiet_prints_nothing_else(self):
        result = self.create("--quiet", "--quality", "240", *self.photos)
        self.assertEqual(result.err, "")
        self.made_movie(result)

    def test_json_writes_one_object_for_each_update_and_a_last_one_with_the_result(self):
        result = self.create("--json", "--quality", "240", *self.photos)
        objects = [json.loads(line) for line in result.out.splitlines()]
        self.assertGreater(len(objects), 1)
        movies = list(self.save.glob("*.mov"))
        self.assertEqual(len(movies), 1)
        result = objects.pop()
        self.assertEqual((result["event"], result["ok"], result["movie"]), ("result", True, str(movies[0])))
        self.assertEqual((result["skipped"], result["passedOver"]), ([], []))
        checks = [update for update in objects if update["event"] == "check"]
        self.assertEqual(objects[:len(checks)], checks, "photos are checked first")
        self.assertEqual(checks[-1], {"event": "check", "done": 6, "total": 6})
        self.assertEqual(len({check["done"] for check in checks}), len(checks), "each says something new")
        updates = objects[len(checks):]
        self.assertEqual({update["event"] for update in updates}, {"progress"})
        self.assertTrue(all(update["stage"].startswith("VideoCreation") for update in updates))

    def test_json_tells_what_was_left_out_and_why(self):
        folder = self.folder / "Rome"
        (folder / "inner").mkdir(parents=True)
        for photo in self.photos[:2]:
            shutil.copy(photo, folder)
        (folder / "notes.txt").write_text("no photo")
        broken = folder / "broken.png"
        broken.write_bytes(b"")
        for command in (["create", folder, "--save", self.save, "--quality", "240"],
                        ["create", folder, "--dry-run"],
                        ["document", "new", self.folder / "Trip", folder]):
            told = json.loads(self.run_stillora(*command, "--skip-bad", "--json").out.splitlines()[-1])
            self.assertEqual(told["skipped"], [{"path": str(broken), "reason": "is empty"}])
            self.assertTrue(told["passedOver"], "files and folders that are none of a movie's")
        document = self.folder / "Trip.stillora"
        (photo, *_) = sorted(path for path in document.rglob("*.jpg"))
        photo.write_bytes(b"gone")
        arguments = ["document", "render", document, "--save", self.save, "--skip-bad", "--json"]
        (skipped,) = json.loads(self.run_stillora(*arguments).out.splitlines()[-1])["skipped"]
        self.assertEqual(Path(skipped["path"]).name, photo.name)
        self.assertTrue(skipped["reason"])

    def test_help_names_every_option_and_the_exit_codes(self):
        text = self.run_stillora("create", "--help").out
        for option in ("--seconds", "--quality", "--codec", "--reduce-borders", "--title", "--save", "--json", "--quiet",
                       "--skip-bad"):
            self.assertIn(option, text)
        self.assertIn("130", self.run_stillora("--help").out)

    def test_the_watermark_is_left_out_where_it_is_not_wanted(self):
        plain = stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=gray:size=320x240", "-frames:v", "1",
                             "-c:v", "png", "-f", "image2pipe", "-")
        photo = self.folder / "plain.png"
        photo.write_bytes(plain)

        def is_marked(movie):
            pixels = stillora.run("ffmpeg", "-v", "error", "-i", movie, "-frames:v", "1", "-pix_fmt", "gray", "-f", "rawvideo", "-")
            return max(pixels) - min(pixels) > 20

        def made(*options):
            return is_marked(self.made_movie(self.create("--codec", "jpeg", *options, photo)))

        self.assertTrue(made("--watermark"))
        self.assertFalse(made("--no-watermark"))
        settings = self.home / ".config" / "stillora" / "defaults.plist"
        settings.parent.mkdir(parents=True)
        settings.write_bytes(plistlib.dumps({"drawsWatermark": False}))
        self.assertFalse(made(), "as the settings say")
        self.assertTrue(made("--watermark"), "options win over settings")
        self.run_stillora("document", "new", self.folder / "Plain", photo, "--watermark", "--codec", "jpeg")
        for options, marked in (((), True), (("--no-watermark",), False)):
            result = self.run_stillora("document", "render", self.folder / "Plain", "--save", self.save, *options)
            self.assertEqual(is_marked(self.made_movie(result)), marked)

    def test_sounds_and_documents_are_arguments_too(self):
        song = self.folder / "song.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=3", song)
        target = self.folder / "out" / "Mine.mov"
        arguments = ["--quality", "240", "--seconds", "1", "-o", target]
        for name in ("Mine.mov", "Mine-2.mov"):
            result = self.run_stillora("create", self.photos[0], f"{song}@1-2", *self.photos[1:], *arguments)
            self.assertEqual(result.out, f"{target.parent / name}\n")
            self.assertEqual(len(stillora.probe(target)["audio"]), 1)
        self.assertRefused(self.create("--loop", *self.photos, expect=None), "--loop needs a sound", code=2)
        self.assertRefused(self.create(song, expect=None), "no photos were given", code=2)

        document = self.folder / "Trip.stillora"
        self.run_stillora("document", "new", document, song, *self.photos[:3])
        movie = self.made_movie(self.create("--quality", "240", "--seconds", "1", f"{document}/"))
        self.assertEqual((movie.name, len(hold_times(movie)), len(stillora.probe(movie)["audio"])), ("Trip.mov", 6, 1), "three photos, twice each")
        movie.unlink()
        self.create("--dry-run", document)
        self.assertNothingMade()
        for more in ([self.photos[0]], [song], ["--soundtrack", song], ["--loop"], ["--reduce-borders"], ["--reverse"]):
            self.assertRefused(self.create(document, *more, expect=None), "Trip.stillora is a document", code=2)
        self.assertEqual(self.run_stillora("document", "render", document, *arguments).out, f"{target.parent / 'Mine-3.mov'}\n")

    def test_what_was_set_counts_for_every_movie(self):
        chosen = self.folder / "chosen"
        chosen.mkdir()
        for words in (("save", chosen), ("quality", "240"), ("seconds", "1"), ("codec", "jpeg")):
            self.run_stillora("set", *words)
        movie = Path(self.run_stillora("create", *self.photos).out.strip())
        self.assertEqual(movie.parent, chosen)
        facts = stillora.probe(movie)
        self.assertEqual((facts["video"][0]["height"], facts["video"][0]["codec_name"], len(facts["pictures"])), (240, "mjpeg", 6))
        self.assertAlmostEqual(float(facts["format"]["duration"]), 6, delta=0.1)
        other = self.made_movie(self.create("--quality", "360", "--seconds", "2", *self.photos))
        self.assertEqual((stillora.probe(other)["video"][0]["height"], hold_times(other)[1]), (360, (2, 2)))
        self.run_stillora("set", "codec")
        self.assertIn("codec      not set", self.run_stillora("settings").out)

    def test_a_folder_is_read_in_natural_order(self):
        folder = self.folder / "numbered"
        folder.mkdir()
        for number in (1, 2, 3, 9, 10, 11):
            colour = f"0x{number * 20:02x}{number * 20:02x}{number * 20:02x}"
            stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"color={colour}:size=320x240", "-frames:v", "1",
                         folder / f"photo {number}.png")
        movie = self.made_movie(self.create("--quality", "240", "--seconds", "1", folder))
        # The middle of the picture, clear of the watermark.
        greys = [stillora.frame(movie, index, 32, 24)[3 * (6 * 32 + 16)] for index in range(6)]
        for grey, number in zip(greys, (1, 2, 3, 9, 10, 11)):
            self.assertAlmostEqual(grey, number * 20, delta=6)

    # In which order

    def dated(self, folder, name, grey, date=None, offset=None):
        folder.mkdir(parents=True, exist_ok=True)
        file = folder / f"{grey}.{name.split('.')[-1]}"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"color=0x{grey:02x}{grey:02x}{grey:02x}:size=320x240",
                     "-frames:v", "1", file)
        tags = [f"-EXIF:DateTimeOriginal={date}"] if date else []
        tags += [f"-EXIF:OffsetTimeOriginal={offset}"] if offset else []
        if tags:
            stillora.run("exiftool", "-q", "-overwrite_original", *tags, file)
        return file.rename(folder / name)

    def greys(self, movie, count):
        return [round(stillora.frame(movie, index, 32, 24)[3 * (6 * 32 + 16)] / 40) * 40 for index in range(count)]

    def test_photos_are_shown_by_date_by_name_and_backwards(self):
        folder = self.folder / "trip"
        self.dated(folder, "4.jpg", 40, "2024:05:31 10:00:00", "+02:00")
        self.dated(folder / "phone", "1.jpg", 80, "2024:05:31 09:00:00", "+00:00")
        self.dated(folder / "phone", "2\n\udcff.jpg", 120)
        self.dated(folder, "3.jpg", 160, "2024:05:31 22:00:00", "+13:45")
        self.dated(folder, "5.jpg", 200, "2024:05:31 23:59:59", "-09:30")
        cases = {
            "date": (["--sort", "date", "--recursive"], [40, 160, 80, 120, 200]),
            "date backwards": (["--sort", "date", "--recursive", "--reverse"], [200, 120, 80, 160, 40]),
            "name": (["--sort", "name", "--recursive"], [80, 120, 160, 40, 200]),
            "given": (["--recursive"], [160, 40, 200, 80, 120]),
        }
        for name, (options, wanted) in cases.items():
            with self.subTest(name):
                result = self.create("--quality", "240", "--seconds", "1", "--title", name, *options, folder)
                self.assertEqual(self.greys(self.made_movie(result), 5), wanted)
                self.assertEqual("1 of 5 photos does not tell when it was taken" in result.err, "date" in name, result.err)

    def test_photos_that_tell_no_date_go_by_the_times_of_their_files(self):
        folder = self.folder / "trip"
        for number, grey in ((1, 40), (2, 80), (3, 120), (4, 160), (5, 200)):
            file = self.dated(folder, f"{number}.png", grey)
            os.utime(file, (0, 1_700_000_000 - number))
        result = self.create("--quality", "240", "--seconds", "1", "--sort", "date", folder)
        self.assertIn("no photo tells when it was taken; the photos are sorted by the times of their files", result.err)
        self.assertEqual(self.greys(self.made_movie(result), 5), [200, 160, 120, 80, 40])

    # How large it is

    def test_one_small_photo_does_not_make_the_movie_small(self):
        small = stillora.pictures(self.folder / "small", 1, 1200, 1600)[0]
        large = stillora.pictures(self.folder / "large", 7, 2600, 1500)
        photos = [*large[:3], small, *large[3:]]
        result = self.create("--json", "--seconds", "1", *photos)
        self.assertIn("1 of 8 photos is narrower or lower than the frame of 2560 x 1440 and stands in black: "
                      f"{small.name}\n", result.err)
        told = json.loads(result.out.splitlines()[-1])
        self.assertEqual((told["width"], told["height"], told["faults"]), (2560, 1440, []))
        self.assertEqual(told["smallerThanFrame"], [str(small)])
        video = stillora.probe(told["movie"])["video"][0]
        self.assertEqual((video["width"], video["height"]), (2560, 1440))
        # As high as the frame, and black on both sides.
        shown = stillora.frame(told["movie"], 3, 64, 36)
        columns = [max(shown[3 * (18 * 64 + x):3 * (18 * 64 + x) + 3]) for x in range(64)]
        self.assertLess(max(*columns[:17], *columns[48:]), 24)
        self.assertGreater(min(columns[20:44]), 60)

    def test_the_smallest_photo_decides_where_that_is_wanted(self):
        photos = stillora.pictures(self.folder / "large", 4, 1280, 720)
        photos += stillora.pictures(self.folder / "small", 1, 640, 360)
        for quality, height, word in (("auto", 720, "narrower"), ("smallest", 360, "")):
            with self.subTest(quality):
                result = self.create("--json", "--seconds", "1", "--quality", quality, *photos)
                told = json.loads(result.out.splitlines()[-1])
                self.assertEqual((told["height"], told["faults"]), (height, []))
                self.assertEqual(stillora.probe(told["movie"])["video"][0]["height"], height)
                self.assertEqual("narrower" in result.err, bool(word), result.err)
                self.assertEqual(told["smallerThanFrame"], [str(photos[-1])] if word else [])

    # How it ends

    def start(self, *arguments):
        return subprocess.Popen([stillora.STILLORA, "create", "--save", self.save, *arguments], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.environment())

    def started(self, *arguments):
        """A running job that has written something, and its service's process number."""
        process = self.start("--json", *arguments)
        for line in process.stdout:
            if b"Rendering" in line:
                break
        else:
            self.fail(f"it never rendered: {process.stderr.read()}")
        services = services_of(process.pid)
        self.assertEqual(len(services), 1)
        return process, services[0]

    def ended(self, number):
        """Whether a process that may be nobody's child any more has ended."""
        try:
            return Path(f"/proc/{number}/stat").read_text().rpartition(")")[2].split()[0] == "Z"
        except OSError:
            return True

    def test_ctrl_c_cancels_and_leaves_nothing_behind(self):
        process, service = self.started("--quality", "1080", *self.many)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, 130)
        self.assertNothingMade()
        wait_until(lambda: self.ended(service), "the service ends")

    def test_ctrl_c_twice_leaves_at_once(self):
        process, service = self.started("--quality", "1080", *self.many)
        process.send_signal(signal.SIGINT)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, 130)
        wait_until(lambda: self.ended(service), "the service ends")

    def test_a_second_signal_is_heard_where_the_first_is_not(self):
        process = self.start("--json", "--quality", "240", *self.photos * 200)
        # Of what nobody reads there is soon so much that the program waits for room for a line.
        room = fcntl.fcntl(process.stdout, fcntl.F_SETPIPE_SZ, 4096)

        def waiting():
            return struct.unpack("i", fcntl.ioctl(process.stdout, termios.FIONREAD, bytes(4)))[0]

        shortest = len(b'{"event": "check", "done": 1, "total": 1200}\n')
        wait_until(lambda: waiting() > room - shortest, "there is no room for a line")

        def waits(number):
            status = Path(f"/proc/{process.pid}/status").read_text()
            return any(int(line.split()[1], 16) >> (number - 1) & 1
                       for line in status.splitlines() if line.startswith(("SigPnd", "ShdPnd")))

        # Two of one kind could come as one, and of two that come together the later is handled first.
        process.send_signal(signal.SIGINT)
        wait_until(lambda: not waits(signal.SIGINT), "the first signal comes")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=10), 130)
        process.communicate()

    def test_a_client_that_is_killed_takes_the_service_with_it_and_the_next_job_cleans_up(self):
        process, service = self.started("--quality", "1080", *self.many)
        process.kill()
        process.communicate(timeout=stillora.DEADLINE)
        wait_until(lambda: self.ended(service), "the service ends")
        movie = self.made_movie(self.create("--quality", "240", *self.photos))
        self.assertEqual(self.leftovers(self.save), [movie.name])

    def test_a_service_that_is_killed_is_told_plainly(self):
        process, service = self.started("--quality", "1080", *self.many)
        os.kill(service, signal.SIGKILL)
        _, said = process.communicate(timeout=stillora.DEADLINE)
        self.assertGreater(process.returncode, 0)
        self.assertIn(b"service", said)
        self.assertNothingMade()

    def test_a_photo_that_is_spoilt_during_the_job_is_named_soon(self):
        ways = ((Path.unlink, "No such file"), (lambda photo: photo.write_bytes(b"no photo"), "known format"),
                (lambda photo: os.truncate(photo, 100), "no picture header"))
        for number, (spoil, word) in enumerate(ways):
            with self.subTest(word):
                photos = stillora.pictures(self.folder / f"own {number}", 12, 2400, 1600) * 20
                process, service = self.started("--quality", "1080", "--codec", "hvc1", *photos)
                for photo in set(photos[6:]):
                    spoil(photo)
                began = time.monotonic()
                out, said = process.communicate(timeout=stillora.DEADLINE)
                # Meant are two seconds, of a machine that has nothing else to do; a service that says nothing gets sixty.
                self.assertLess(time.monotonic() - began, 15)
                self.assertEqual(process.returncode, BAD_INPUT, said)
                self.assertRegex(said.decode(), rf"no movie was made, since the photo .*own {number}.* cannot be used any more: ")
                self.assertIn(word, said.decode())
                self.assertNothingMade()
                wait_until(lambda: self.ended(service), "the service ends")

    @unittest.skipUnless(stillora.knows_landlock(), "without Landlock the service reads the new file")
    def test_a_photo_that_is_saved_anew_during_the_job_is_named_with_the_reason(self):
        photos = stillora.pictures(self.folder / "own", 12, 2400, 1600) * 20
        process, service = self.started("--quality", "1080", "--codec", "hvc1", *photos)
        for photo in set(photos[6:]):
            saved = photo.with_suffix(".new")
            shutil.copy(photo, saved)
            saved.rename(photo)
        out, said = process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, BAD_INPUT, said)
        self.assertRegex(said.decode(), r"since the photo .*own/photo .* was replaced while the movie was made")
        self.assertNothingMade()
        wait_until(lambda: self.ended(service), "the service ends")

    def test_standard_output_that_is_closed_is_no_crash(self):
        process = self.start("--json", "--quality", "240", *self.photos)
        process.stdout.close()
        said = process.stderr.read()
        process.stderr.close()
        process.wait(stillora.DEADLINE)
        self.assertNotIn(b"terminate called", said)
        self.assertNotIn(process.returncode, (-signal.SIGSEGV, -signal.SIGABRT))

    def test_closed_standard_streams_are_no_others(self):
        """A file that is opened first would take the number of a closed stream, and get what is written for the user."""
        process = subprocess.Popen(["bash", "-c", 'exec "$@" <&- >&- 2>&-', "bash", stillora.STILLORA, "create", "--save",
                                    self.save, "--quality", "1080", *self.many], env=self.environment())
        try:
            service = wait_until(lambda: services_of(process.pid) or process.poll() is not None, "the service runs")[0]
            wait_until(lambda: any(self.save.glob("**/*.mov")), "the service writes")
            for number in (process.pid, service):
                for stream in range(3):
                    place = os.readlink(f"/proc/{number}/fd/{stream}")
                    self.assertTrue(place == os.devnull or place.startswith("pipe:"), f"{stream} is {place}")
        finally:
            process.terminate()
            process.wait(stillora.DEADLINE)

    # Bad photos

    def bad_photo(self, name, data):
        file = self.folder / name
        file.write_bytes(data)
        return file

    def test_bad_photos_are_all_named_with_their_reasons_before_anything_starts(self):
        bad = [
            self.bad_photo("notes.jpg", b"these are no pixels\n" * 50),
            self.bad_photo("empty.jpg", b""),
            self.bad_photo("huge.png", png_claiming(100_000, 100_000)),
        ]
        result = self.create(*self.photos, *bad, expect=None)
        self.assertRefused(result, *(file.name for file in bad))
        reasons = {line for line in result.err.splitlines() if any(file.name in line for file in bad)}
        self.assertGreaterEqual(len(reasons), 3)

    def test_skip_bad_leaves_them_out(self):
        bad = self.bad_photo("notes.jpg", b"these are no pixels\n" * 50)
        result = self.create("--skip-bad", "--seconds", "1", "--quality", "240", bad, *self.photos)
        self.assertIn("notes.jpg", result.err)
        self.assertEqual(len(hold_times(self.made_movie(result))), 6)

    def test_a_photo_whose_end_is_missing_is_shown_and_told(self):
        whole = self.photos[0].read_bytes()
        cut = self.bad_photo("cut.jpg", whole[:len(whole) // 2])
        told = f"stillora: {cut}: is damaged: its end is missing"
        result = self.create("--seconds", "1", "--quality", "240", cut, *self.photos)
        self.assertEqual(result.err.count(told), 1)
        self.assertEqual(len(hold_times(self.made_movie(result))), 7)
        result = self.create("--skip-bad", "--seconds", "1", "--quality", "240", cut, *self.photos)
        # It is not shown, so that nothing is said of how far.
        self.assertIn(f"stillora: left out: {cut}: is damaged: its end is missing", result.err.splitlines())
        self.assertEqual(len(hold_times(self.made_movie(result))), 6)
        result = self.create("--json", "--quiet", "--quality", "240", cut, cut, *self.photos)
        (photo,) = json.loads(result.out.splitlines()[-1])["damagedPhotos"]
        self.assertEqual((photo["path"], result.err), (str(cut), ""))
        self.assertIn("its end is missing", photo["reason"])

        result = self.run_stillora("info", "--json", cut, self.photos[0])
        self.assertIn(f"{cut}: is damaged", result.err)
        self.assertEqual([json.loads(line)["isCutOff"] for line in result.out.splitlines()], [True, False])

        document = self.folder / "Trip.stillora"
        self.assertIn("its end is missing", self.run_stillora("document", "new", document, cut, self.photos[0]).err)
        self.assertIn("its end is missing", self.run_stillora("document", "check", document, expect=3).err)
        checked = json.loads(self.run_stillora("document", "check", "--json", document, expect=3).out)
        self.assertEqual((len(checked["damagedPhotos"]), checked["bad"], checked["ok"]), (1, [], False))
        for options, count in (((), 2), (("--skip-bad",), 1)):
            result = self.run_stillora("document", "render", document, "--save", self.save, "--json", *options)
            self.assertEqual(json.loads(result.out.splitlines()[-1])["photos"], count)

    def test_it_is_told_that_no_faces_will_be_found(self):
        arguments = ["--reduce-borders", "--quality", "240", "--seconds", "1", *self.photos]
        missing = self.folder / "faces.so"
        result = self.create(*arguments, environment=self.environment(STILLORA_FACES_MODULE=missing))
        self.assertIn(f"no faces will be looked for, since {missing} is not there, which the package stillora-faces", result.err)
        self.made_movie(result)
        self.assertNotIn("faces", self.create(*arguments).err)

    def asked(self, answer, *arguments, **changes):
        """What is said on a terminal that answers the first question, and the exit status."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.execve(stillora.STILLORA, ["stillora", "create", "--save", str(self.save), *map(str, arguments)],
                      self.environment(**changes))
        said = b""
        end = time.monotonic() + stillora.DEADLINE
        while time.monotonic() < end:
            if b"[Y/n] " in said and answer is not None:
                os.write(terminal, answer)
                answer = None
            try:
                said += os.read(terminal, 4096)
            except OSError:
                break
        os.close(terminal)
        return said.decode("utf-8", "replace"), os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])

    def test_no_stage_is_named_that_does_not_happen(self):
        plain = ["--quality", "240", *self.photos]
        for options in ([], ["--no-silence"], ["--progress", "lines"]):
            with self.subTest(options):
                said, status = self.asked(None, *options, *plain, TERM="xterm")
                self.assertEqual(status, 0, said)
                self.assertIn("Checking the photos", said)
                self.assertNotRegex(said.lower(), "sound")
        # Long enough to be converted while somebody looks.
        song = self.folder / "song.wav"
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "anoisesrc=d=120:r=44100", "-ac", "2", song)
        stages = [
            {update["stage"] for update in map(json.loads, self.create("--json", *sounds, *plain).out.splitlines())
             if update["event"] == "progress"}
            for sounds in ([], ["--fit-music", "--soundtrack", song])]
        heard = {"VideoCreationTitleConvertingAndTrimmingAssets", "VideoCreationCompositingVideoAndSoundtrack"}
        self.assertEqual(stages[0] & heard, set())
        self.assertIn("VideoCreationTitleConvertingAndTrimmingAssets", stages[1])

    def test_at_a_terminal_it_asks_whether_bad_photos_are_to_be_left_out(self):
        bad = [self.bad_photo(f"notes {n}.jpg", b"these are no pixels\n" * 50) for n in (1, 2)]
        arguments = ["--seconds", "1", "--quality", "240", *bad, *self.photos]
        for answer, status in ((b"\n", 0), (b"what?\nYES\n", 0), (b"n\n", 3), (b"\x04", 3), (b"\x03", 130)):
            with self.subTest(answer):
                said, found = self.asked(answer, *arguments, TERM="xterm")
                self.assertEqual(found, status, said)
                self.assertIn("2 photos cannot be used; leave them out? [Y/n] ", said)
                self.assertIn("notes 1.jpg", said)
                made = list(self.save.iterdir())
                self.assertEqual(len(made), status == 0, said)
                for movie in made:
                    self.assertEqual(len(hold_times(movie)), 6)
                    movie.unlink()
        for option in ("--quiet", "--json"):
            said, found = self.asked(b"\n", option, *arguments)
            self.assertEqual(found, 3, said)
            self.assertNotIn("[Y/n]", said)
        self.assertNotIn("[Y/n]", self.asked(b"\n", *bad)[0], "nothing would be left")

    def test_what_is_no_picture_is_refused(self):
        cases = {
            "text.jpg": b"Dear diary,\n" * 20,
            "empty.png": b"",
            "one byte.jpg": b"\xff",
            "only a beginning.jpg": b"\xff\xd8\xff\xe0\x00\x10JFIF\x00",
            "archive.heic": b"PK\x03\x04" + bytes(500),
            "noise.webp": b"RIFF\xff\xff\xff\xffWEBPVP8 " + bytes(range(256)),
            "nothing.gif": b"GIF89a" + bytes(7),
            "script.tiff": b"#!/bin/sh\nexit 1\n",
        }
        for name, data in cases.items():
            with self.subTest(name):
                self.assertRefused(self.create(*self.photos, self.bad_photo(name, data), expect=None), name)

    def test_a_playlist_named_as_a_picture_opens_nothing(self):
        secret = self.folder / "secret.ts"
        secret.write_bytes(b"secret")
        bad = self.bad_photo("list.bmp", f"#EXTM3U\n#EXTINF:1,\n{secret}\n".encode())
        self.assertRefused(self.create(*self.photos, bad, expect=None), "list.bmp")

    def test_gigantic_claims_in_a_kilobyte_are_refused_quickly(self):
        jpeg = bytearray(self.photos[0].read_bytes()[:1024])
        frame = jpeg.index(b"\xff\xc0")
        jpeg[frame + 5:frame + 9] = struct.pack(">HH", 65_500, 65_500)
        cases = {"claims.png": png_claiming(100_000, 100_000), "claims.bmp": bmp_claiming(100_000, 100_000),
                 "claims.jpg": bytes(jpeg)}
        for name, data in cases.items():
            with self.subTest(name):
                start = time.monotonic()
                self.assertRefused(self.create(*self.photos, self.bad_photo(name, data), expect=None), name)
                self.assertLess(time.monotonic() - start, 60)

    def test_a_truncated_jpeg_is_shown_as_far_as_it_goes_or_refused(self):
        whole = picture(self.folder / "whole.jpg", 1600, 1200, 3).read_bytes()
        for share in (0.3, 0.6, 0.95):
            with self.subTest(share):
                cut = self.bad_photo(f"cut {share}.jpg", whole[:int(len(whole) * share)])
                result = self.create("--seconds", "1", "--quality", "240", "--title", f"cut {share}", *self.photos, cut,
                                     expect=None)
                if result.returncode == 0:
                    self.assertEqual(len(hold_times(self.made_movie(result))), 7)
                else:
                    self.assertIn(cut.name, result.err)

    def test_an_unreadable_photo_is_refused(self):
        secret = self.folder / "secret.jpg"
        shutil.copy(self.photos[0], secret)
        secret.chmod(0)
        self.assertRefused(self.create(*self.photos, secret, expect=None, prefix=AS_ANYBODY), "secret.jpg", "ermission")

    def test_a_photo_that_is_not_there_is_refused(self):
        self.assertRefused(self.create(*self.photos, self.folder / "gone.jpg", expect=None), "gone.jpg")

    def test_a_folder_without_photos_is_refused(self):
        empty = self.folder / "empty"
        empty.mkdir()
        self.assertRefused(self.create(empty, expect=None), "empty")

    def test_a_folder_named_as_a_photo_is_no_photo(self):
        folder = self.folder / "folder.jpg"
        folder.mkdir()
        self.assertRefused(self.create(*self.photos, folder, expect=None), "folder.jpg")

    @unittest.skipUnless(hasattr(os, "mkfifo"), "no pipes")
    def test_a_pipe_named_as_a_photo_does_not_hang(self):
        pipe = self.folder / "pipe.jpg"
        os.mkfifo(pipe)
        self.assertRefused(self.create(*self.photos, pipe, expect=None), "pipe.jpg")

    def test_no_photos_at_all_is_an_error_of_usage(self):
        self.assertRefused(self.create(expect=None), code=USAGE)

    def test_numbers_out_of_range_are_errors_of_usage(self):
        for option, value in (("--seconds", "0"), ("--seconds", "-1"), ("--seconds", "nan"), ("--seconds", "1e300"),
                              ("--quality", "17"), ("--codec", "zzzz")):
            with self.subTest(f"{option} {value}"):
                self.assertRefused(self.create(option, value, *self.photos, expect=None), option, code=USAGE)

    def test_the_path_of_a_movie_has_no_dots_in_it(self):
        for arguments in (["--save", "."], ["--save", "./."], ["-o", "./Other.mov"]):
            result = self.run_stillora("create", *self.photos, "--quality", "240", *arguments, cwd=self.save)
            movie = Path(result.out.rstrip("\n"))
            self.assertEqual(str(movie.parent), str(self.save.resolve()), arguments)
            self.assertTrue(movie.is_file())

    # Bad places

    def test_a_save_folder_that_cannot_be_written_is_refused(self):
        self.save.chmod(0o555)
        try:
            result = self.create(*self.photos, expect=None, prefix=AS_ANYBODY)
        finally:
            self.save.chmod(0o755)
        self.assertRefused(result, "save", "ermission", code=FAILED)

    def test_a_save_folder_that_is_a_file_is_refused(self):
        file = self.folder / "file"
        file.write_bytes(b"precious")
        result = self.run_stillora("create", "--save", file, *self.photos, expect=None)
        self.assertRefused(result, "file", code=FAILED)
        self.assertEqual(file.read_bytes(), b"precious")

    def test_a_save_folder_that_is_not_there_is_made(self):
        self.save = self.folder / "new" / "and deeper"
        self.made_movie(self.create("--quality", "240", *self.photos))

    def test_a_save_folder_in_a_folder_that_is_gone_is_refused(self):
        script = 'mkdir "$1" && cd "$1" && rmdir "$1" && shift && exec "$@"'
        result = self.run_stillora("create", "--save", "stray", *self.photos, expect=None,
                                   prefix=["bash", "-c", script, "bash", self.folder / "gone"])
        self.assertRefused(result, "stray", code=FAILED)
        self.assertFalse(Path("/stray").exists())

    @unittest.skipUnless(can_mount(), "this machine lets nobody mount a small file system")
    def test_a_full_disk_is_told_plainly(self):
        script = 'mount -t tmpfs -o size=300k none "$1" && shift && exec "$@"'
        prefix = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-c", script, "sh", str(self.save)]
        result = self.create("--quality", "1080", *self.many[:20], expect=None, prefix=prefix)
        self.assertRefused(result, code=FAILED)
        self.assertRegex(result.err.lower(), "no space|disk|full")

    def test_a_limit_on_the_size_of_files_leaves_no_half_movie(self):
        # The kernel's signal for it would end whoever writes.
        result = self.create("--quality", "1080", *self.many[:20], expect=None, prefix=["prlimit", "--fsize=200000"])
        self.assertRefused(result, code=FAILED)
        # Without silence, it is the service that comes to the limit.
        result = self.create("--quality", "1080", "--no-silence", *self.many[:20], expect=None,
                             prefix=["prlimit", "--fsize=200000"])
        self.assertRefused(result, "large", code=FAILED)

    # Names

    def test_a_name_of_255_bytes_is_no_trouble(self):
        long = self.folder / ("x" * 251 + ".jpg")
        shutil.copy(self.photos[0], long)
        movie = self.made_movie(self.create("--quality", "240", "--seconds", "1", long, *self.photos[1:]))
        self.assertEqual(len(hold_times(movie)), 6)

    def test_a_title_too_long_for_a_file_is_refused(self):
        self.assertRefused(self.create("--title", "t" * 255, *self.photos, expect=None), "title", code=USAGE)

    def test_names_that_are_not_utf_8_are_no_trouble(self):
        folder = os.fsencode(self.folder / "photos") + b"\xff\xfe"
        os.mkdir(folder)
        for number, file in enumerate(self.photos):
            shutil.copy(file, folder + b"/caf\xe9 %d.jpg" % number)
        movie = self.made_movie(self.create("--quality", "240", "--seconds", "1", "--title", "Named", os.fsdecode(folder)))
        self.assertEqual(len(hold_times(movie)), 6)

    def test_a_save_folder_whose_name_is_not_utf_8_gets_its_movie_or_a_clear_refusal(self):
        self.save = Path(os.fsdecode(os.fsencode(self.folder / "save") + b"\xe9"))
        result = self.create("--quality", "240", "--title", "Named", *self.photos, expect=None)
        if result.returncode == 0:
            self.made_movie(result)
        else:
            self.assertGreater(result.returncode, 0)
            self.assertIn("UTF-8", result.err)

    def test_names_with_blanks_quotes_and_other_scripts_are_no_trouble(self):
        folder = self.folder / "it's \"ours\" \t 夏 🏖"
        folder.mkdir()
        for number, file in enumerate(self.photos):
            shutil.copy(file, folder / f"{number} – Ünïcödé %s \\ *?.jpg")
        movie = self.made_movie(self.create("--quality", "240", "--seconds", "1", folder))
        self.assertEqual(len(hold_times(movie)), 6)

    def test_the_title_names_the_movie(self):
        movie = self.made_movie(self.create("--quality", "240", "--title", "Summer – 夏.2024", *self.photos))
        self.assertEqual(movie.name, "Summer – 夏.2024.mov")

    def test_a_title_that_would_leave_the_folder_is_refused(self):
        self.assertRefused(self.create("--title", "../escaped", *self.photos, expect=None), "title", code=USAGE)


if __name__ == "__main__":
    unittest.main(verbosity=2)
