"""Movies with music, by the real service: what composition leaves as it is, and where picture and sound end."""

import array
import collections
import re
import unittest

import stillora
from stillora import Service, probe, run

SECONDS = 1.5
RATE = 44100
# Samples in a packet of AAC.
PACKET = 1024


def music(file, seconds, root, options=()):
    """Chords struck every half second over some noise, in stereo, quieter and louder as music is."""
    loud = r"0.3*exp(-5*mod(t\,0.5))*(0.6+0.4*sin(t))"
    tone = lambda part: f"{loud}*sin(2*PI*t*{root * part})"
    source = f"aevalsrc={tone(1)}+{tone(1.26)}+0.02*random(0)|{tone(1.5)}+{tone(2)}+0.02*random(1):s={RATE}:d={seconds}"
    run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", source, *options, file)
    return file


def packets(file, kind):
    """The hash of each packet of the only stream of a kind, in order."""
    lines = run("ffmpeg", "-v", "error", "-i", file, "-map", f"0:{kind}", "-c", "copy", "-f", "framehash", "-hash", "sha256", "-")
    return [line.split(",")[-1].strip() for line in lines.decode().splitlines() if not line.startswith("#")]


def decoded_samples(file):
    """How many samples of sound are heard."""
    return len(run("ffmpeg", "-v", "error", "-i", file, "-map", "0:a", "-f", "s16le", "-ac", "1", "-")) // 2


class CompositionTest(stillora.TestCase):
    """Forty photos, with an MP3, an M4A and a WAV that together outlast them."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 40)
        cls.music = [
            music(cls.shared / "first.mp3", 25.3, 220, ("-q:a", "4")),
            music(cls.shared / "second.m4a", 20.1, 277, ("-c:a", "aac", "-b:a", "128k")),
            music(cls.shared / "third.wav", 31.7, 330),
        ]
        cls.length = 40 * SECONDS

    def test_the_packets_of_both_stages_are_those_of_the_movie(self):
        items = [stillora.soundtrack(file) for file in self.music]
        with Service.connected(self) as service:
            movie = service.client.request(self.photos, self.save, self.temporary, soundtracks=items, seconds=SECONDS,
                                           sound_seconds=25.3 + 20.1 + 31.7, quality=360).movie()
        (picture,) = self.temporary.rglob("videoWithoutSound.mov")
        (sound,) = self.temporary.rglob("stilloraFinishedAudio.m4a")
        before, after = packets(picture, "v"), packets(movie, "v")
        self.assertEqual((len(before), len(set(before))), (40, 40), "forty photos, none like another")
        self.assertEqual(after, before)
        before, after = packets(sound, "a"), packets(movie, "a")
        self.assertGreater(len(set(before)), self.length * RATE / PACKET * 0.9, "this is music, not silence")
        self.assertEqual(after, before)
        self.check_ends(movie)

    def test_a_movie_of_the_command_line_ends_with_its_music(self):
        options = [part for file in self.music for part in ("--soundtrack", file)]
        movie = self.made_movie(self.create("--quality", "360", "--seconds", str(SECONDS), *options, *self.photos))
        self.check_ends(movie)

    def check_ends(self, movie):
        facts = probe(movie)
        self.assertEqual([stream["codec_type"] for stream in facts["streams"]], ["video", "audio"])
        video, audio = facts["video"][0], facts["audio"][0]
        self.assertEqual([float(stream["start_time"]) for stream in (video, audio)], [0, 0])
        self.assertEqual(float(video["duration"]), self.length)
        self.assertAlmostEqual(float(audio["duration"]), self.length, delta=1 / RATE)
        # The edit list ends the sound within its last packet; not every decoder stops before that packet's end.
        samples = decoded_samples(movie)
        self.assertGreaterEqual(samples, self.length * RATE)
        self.assertLess(samples, self.length * RATE + PACKET)
        times = [(float(packet["pts_time"]), float(packet["duration_time"])) for packet in facts["pictures"]]
        self.assertEqual(times, [(SECONDS * number, SECONDS) for number in range(40)])
        self.assertEqual(stillora.decoded_frames(movie), 40)


class ListTest(stillora.TestCase):
    """Tones one after the other, each recognised by its pitch."""

    def tone(self, name, seconds, pitch):
        file = self.folder / name
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"aevalsrc=0.5*sin(2*PI*t*{pitch}):s={RATE}:d={seconds}", file)
        return file

    def movie_of(self, lengths):
        """What is told of a movie of 15 seconds, and the pitch that is heard in the middle of each sound."""
        photos = stillora.pictures(self.folder, 5)
        files = [self.tone(f"{number}.wav", length, 300 * (number + 1)) for number, length in enumerate(lengths)]
        options = [part for file in files for part in ("--soundtrack", file)]
        result = self.create("--quality", "240", "--seconds", "3", *options, *photos)
        samples = array.array("h", run("ffmpeg", "-v", "error", "-i", self.made_movie(result), "-map", "0:a", "-f",
                                       "s16le", "-ac", "1", "-"))
        pitches, start = [], 0
        for length in lengths:
            middle = int((start + length / 2) * RATE)
            part = samples[middle:middle + RATE]
            pitches.append(sum(a < 0 <= b for a, b in zip(part, part[1:])))
            start += length
        return result.err, pitches

    def test_every_sound_that_fits_is_heard(self):
        told, pitches = self.movie_of([5, 5, 4.9])
        for pitch, wanted in zip(pitches, (300, 600, 900)):
            self.assertAlmostEqual(pitch, wanted, delta=2)
        self.assertNotIn("left out", told)

    def test_what_is_left_out_of_sounds_that_outlast_the_pictures_is_named(self):
        told, pitches = self.movie_of([5, 6, 8])
        for pitch, wanted in zip(pitches, (300, 600)):
            self.assertAlmostEqual(pitch, wanted, delta=2)
        self.assertIn("left out: 2.wav", told)


class OpeningsTest(stillora.TestCase):
    """How often client and service together open what they are given."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)

    def openings(self, *arguments):
        """How many times each file was opened by a run of the command line and its service, by path."""
        log = self.folder / "openings"
        tracer = ("strace", "-f", "-qq", "-e", "trace=open,openat", "-e", "signal=none", "-o", str(log))
        # A sanitizer's search for leaks needs to trace the process itself.
        environment = self.environment(ASAN_OPTIONS=f"{self.environment()['ASAN_OPTIONS']}:detect_leaks=0")
        self.run_stillora(*arguments, prefix=tracer, environment=environment)
        counts = collections.Counter()
        for line in log.read_text(errors="replace").splitlines():
            # A call that another thread's interrupts is told in two lines, of which the first has the name.
            opened = re.search(r'open(?:at)?\(.*?"([^"]*)"', line)
            # What a process is to be kept to is named by its place, without being read.
            if opened and " = -1 " not in line and "O_PATH" not in line:
                counts[opened[1]] += 1
        return counts

    def openings_of_a_movie(self, *options):
        return self.openings("create", "--save", self.save, *self.photos, "--seconds", str(SECONDS), *options)

    def test_a_photo_is_opened_once_by_each_process(self):
        counts = self.openings_of_a_movie()
        self.assertEqual({photo.name: counts[str(photo)] for photo in self.photos},
                         {photo.name: 2 for photo in self.photos})

    def test_a_sound_is_opened_once_by_each_process_and_its_piece_once(self):
        for name, options in (("song.mp3", ("-q:a", "4")), ("song.flac", ()), ("song.m4a", ("-c:a", "aac"))):
            with self.subTest(name=name):
                sound = music(self.folder / name, 20.3, 220, options)
                for soundtrack in (sound, f"{sound}@2-7"):
                    counts = self.openings_of_a_movie("--soundtrack", soundtrack)
                    self.assertEqual(counts[str(sound)], 2, f"the client's look, and the service's: {soundtrack}")
                    read = [count for path, count in counts.items() if path != str(sound) and path.endswith("/song.m4a")]
                    self.assertEqual(read, [1], f"the piece that was made of {soundtrack}")

    def test_a_sound_is_opened_for_its_check_and_once_for_its_work(self):
        for name, options in (("song.mp3", ("-q:a", "4")), ("song.m4a", ("-c:a", "aac"))):
            sound = music(self.folder / name, 20.3, 220, options)
            for command in (("convert", sound, "--range", "2-7", "-o", self.save),
                            ("waveform", sound, "-o", self.folder / f"{name}.png"),
                            ("trim", sound, "--range", "2-7", "-o", self.folder / f"trimmed-{name}")):
                if command[0] == "trim" and name == "song.mp3":
                    continue
                with self.subTest(name=name, command=command[0]):
                    self.assertEqual(self.openings(*command)[str(sound)], 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
