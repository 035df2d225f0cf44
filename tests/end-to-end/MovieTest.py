"""Movies of the real service, read back with ffprobe and ffmpeg."""

import unittest

import stillora
from stillora import Service, hold_times, photo, picture, probe, run

FORMATS = ["jpg", "png", "webp", "tiff", "gif", "bmp", "jp2", "heic", "avif", "jpg"]
# Width and height as they are stored; the orientation turns some of them.
SIZES = [(1600, 1200), (900, 1600), (2000, 1000), (640, 480)]


class MixedPhotosTest(stillora.TestCase):
    """Forty photos of nine formats, four sizes and all eight orientations."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = cls.shared / "mixed"
        folder.mkdir()
        cls.photos = []
        made = {}
        for number in range(40):
            extension = FORMATS[number % len(FORMATS)]
            width, height = SIZES[(number // len(FORMATS) + number) % len(SIZES)]
            file = folder / f"{number:02}.{extension}"
            if extension == "avif":
                # Slow to make: a small one serves for all.
                width, height = SIZES[3]
                if "avif" in made:
                    file.write_bytes(made["avif"].read_bytes())
                else:
                    made["avif"] = picture(file, width, height, number)
            else:
                picture(file, width, height, number)
            cls.photos.append(file)
        jpegs = [file for file in cls.photos if file.suffix == ".jpg"]
        for orientation in range(1, 9):
            run("exiftool", "-q", "-overwrite_original", "-n", f"-Orientation={orientation}", jpegs[orientation - 1])

    def test_a_movie_of_forty_mixed_photos_shows_each_at_its_time(self):
        result = self.create("--quality", "1080", "--seconds", "2.5", "--title", "Mixed", *self.photos)
        movie = self.made_movie(result)
        facts = probe(movie)
        self.assertEqual(len(facts["video"]), 1)
        self.assertEqual([sound["codec_name"] for sound in facts["audio"]], ["aac"], "silence to the end")
        video = facts["video"][0]
        self.assertEqual((video["codec_name"], video["width"], video["height"]), ("h264", 1920, 1080))
        self.assertEqual((video["pix_fmt"], video["color_range"], video["color_space"]), ("yuv420p", "tv", "bt709"))
        self.assertEqual(video["time_base"], "1/10000")
        times = [(int(p["pts"]), int(p["dts"]), int(p["duration"])) for p in facts["pictures"]]
        self.assertEqual(times, [(25000 * i, 25000 * i, 25000) for i in range(40)])
        self.assertTrue(all("K" in p["flags"] for p in facts["pictures"]), "every frame is a key frame")
        self.assertAlmostEqual(float(facts["format"]["duration"]), 100.0, places=3)
        self.assertEqual(stillora.decoded_frames(movie), 40)

    def test_no_photo_is_black_and_neighbours_differ(self):
        movie = self.made_movie(self.create("--quality", "360", "--seconds", "1", *self.photos))
        frames = [stillora.frame(movie, number) for number in range(0, 40, 3)]
        for number, pixels in enumerate(frames):
            self.assertGreater(sum(pixels) / len(pixels), 25, f"frame {3 * number} is dark")
        for before, after in zip(frames, frames[1:]):
            self.assertNotEqual(before, after)


class OrientationTest(stillora.TestCase):
    def test_all_eight_orientations_stand_upright(self):
        # Left red, right blue, the upper half bright: upright in every copy, each stored another way.
        upright = self.folder / "upright.png"
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=red:size=320x240", "-f", "lavfi", "-i", "color=blue:size=320x240",
            "-filter_complex", "[0][1]hstack,drawbox=y=120:h=120:color=black@0.7:t=fill", "-frames:v", "1", upright)
        # What has to be done to the upright picture so that the orientation undoes it.
        stored = {1: "null", 2: "hflip", 3: "hflip,vflip", 4: "vflip", 5: "transpose=0", 6: "transpose=2",
                  7: "transpose=3", 8: "transpose=1"}
        photos = []
        for orientation, turn in stored.items():
            file = self.folder / f"{orientation}.jpg"
            run("ffmpeg", "-v", "error", "-i", upright, "-vf", turn, "-q:v", "2", "-pix_fmt", "yuvj444p", file)
            run("exiftool", "-q", "-overwrite_original", "-n", f"-Orientation={orientation}", file)
            photos.append(file)
        movie = self.made_movie(self.create("--quality", "240", "--codec", "jpeg", "--seconds", "1", *photos))
        for index in range(8):
            with self.subTest(orientation=index + 1):
                # The picture covers rows 60 to 180; look at the middles of three of its quarters.
                pixels = stillora.frame(movie, index, 320, 240)
                at = lambda x, y: pixels[3 * (y * 320 + x):3 * (y * 320 + x) + 3]
                left, right, lower = at(80, 90), at(240, 90), at(80, 150)
                self.assertGreater(left[0], left[2] + 80, "the left is red")
                self.assertGreater(right[2], right[0] + 80, "the right is blue")
                self.assertLess(lower[0], left[0] - 60, "the lower half is dark")


class CodecTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)

    def test_every_codec_gives_a_movie_of_that_codec(self):
        codecs = {
            "jpeg": ("mjpeg", "jpeg"), "avc1": ("h264", "avc1"), "hvc1": ("hevc", "hvc1"), "apcn": ("prores", "apcn"),
            "ap4h": ("prores", "ap4h"), "apch": ("prores", "apch"), "apcs": ("prores", "apcs"), "apco": ("prores", "apco"),
        }
        for name, (codec, tag) in codecs.items():
            with self.subTest(name):
                result = self.create("--codec", name, "--quality", "240", "--seconds", "1", "--title", name, *self.photos)
                movie = self.made_movie(result)
                video = probe(movie)["video"][0]
                self.assertEqual((video["codec_name"], video["codec_tag_string"]), (codec, tag))
                self.assertEqual(hold_times(movie), [(float(i), 1.0) for i in range(6)])
                self.assertEqual(stillora.decoded_frames(movie), 6)

    def test_a_movie_for_the_web_shows_the_same_pictures_twice_a_second(self):
        for name in ("avc1", "hvc1", "jpeg"):
            with self.subTest(name):
                options = ("--codec", name, "--quality", "240", "--seconds", "1.7", *self.photos)
                plain = self.made_movie(self.create("--title", f"{name} plain", *options))
                web = self.made_movie(self.create("--title", f"{name} web", "--web", *options))
                self.assertEqual(hold_times(web), [(round(i * 0.425, 3), 0.425) for i in range(24)])
                hashes = lambda movie: stillora.packet_hashes(movie, "v")
                pictures = hashes(web)
                self.assertEqual(pictures, [each for each in pictures[::4] for _ in range(4)])
                self.assertEqual(len(set(pictures)), 6)
                # The HEVC encoder sets a flag without meaning, which may differ from one movie to the other.
                if name != "hvc1":
                    self.assertEqual(pictures[::4], hashes(plain))
                self.assertEqual(stillora.packet_hashes(web, "a"), stillora.packet_hashes(plain, "a"))
                self.assertEqual(probe(web)["format"]["duration"], probe(plain)["format"]["duration"])
                self.assertEqual(stillora.decoded_frames(web), 24)
                # What comes to it is in its index.
                self.assertLess(web.stat().st_size, plain.stat().st_size + 18 * 8 + 100)

    def test_a_movie_tells_its_title_and_when_it_was_made(self):
        environment = self.environment(SOURCE_DATE_EPOCH="1000000000")
        for name, options in (("silent", ["--no-silence"]), ("heard", []), ("web", ["--web"])):
            with self.subTest(name):
                title = f"Été à Rome, {name}"
                make = lambda: self.made_movie(self.create("--title", title, "--quality", "240", "--seconds", "1", *options,
                                                           *self.photos, environment=environment))
                movie = make()
                facts = probe(movie)
                self.assertEqual(facts["format"]["tags"]["title"], title)
                for tags in (facts["format"]["tags"], *(stream["tags"] for stream in facts["streams"])):
                    self.assertEqual(tags["creation_time"], "2001-09-09T01:46:40.000000Z")
                self.assertEqual(make().read_bytes(), movie.read_bytes())

    def test_the_index_stands_before_the_media(self):
        movie = self.made_movie(self.create("--quality", "240", *self.photos))
        data = movie.read_bytes()
        self.assertLess(data.index(b"moov"), data.index(b"mdat"))

    def test_an_unknown_codec_of_a_request_is_answered_without_a_movie(self):
        with Service.connected(self) as service:
            answer = service.client.request(self.photos, self.save, self.temporary, codec="zzzz")
            self.assertEqual(answer.result(), ([], [], True))
            self.assertEqual(self.leftovers(self.save), [])

    def test_an_empty_codec_means_jpeg(self):
        with Service.connected(self) as service:
            movie = service.client.request(self.photos, self.save, self.temporary, codec="").movie()
            self.assertEqual(probe(movie)["video"][0]["codec_name"], "mjpeg")

    def test_an_existing_movie_is_never_overwritten(self):
        (self.save / "Trip.mov").write_bytes(b"precious")
        movie = self.made_movie(self.create("--title", "Trip", *self.photos))
        self.assertNotEqual(movie.name, "Trip.mov")
        self.assertEqual((self.save / "Trip.mov").read_bytes(), b"precious")

    def test_photos_hold_for_times_that_do_not_divide_evenly(self):
        movie = self.made_movie(self.create("--seconds", "0.04", "--quality", "240", *self.photos))
        self.assertEqual([round(start * 10000) for start, _ in hold_times(movie)], [400 * i for i in range(6)])

    def test_one_photo_stands_for_its_time(self):
        movie = self.made_movie(self.create("--seconds", "3", "--quality", "240", self.photos[0]))
        self.assertAlmostEqual(float(probe(movie)["format"]["duration"]), 3.0, places=3)


if __name__ == "__main__":
    unittest.main(verbosity=2)
