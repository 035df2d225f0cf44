"""Movies that are made while something goes wrong: what the attacks on processes and folders share."""

import concurrent.futures
import contextlib
import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

import attack
import stillora

# What an attack may take at the most, on a machine that makes the movie in no time.
MOST_SECONDS = 10


class Workshop:
    """A folder with photos and a sound, and programs that make movies of them; a context, which removes the folder."""

    def __init__(self, options):
        self.build, self.most_seconds = options.build, 60
        self.program = self.build / "bin/stillora"
        self.service = self.build / "bin/stillora-video-creator"
        self.reader = self.build / "bin/stillora-file-reader"

    def __enter__(self):
        self.folder = Path(tempfile.mkdtemp(prefix="stillora-"))
        self.photos = stillora.pictures(self.folder / "photos", 6, 96, 64)
        self.sound = self.folder / "sound.wav"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=3", self.sound], check=True)
        (self.folder / "home").mkdir()
        began = time.monotonic()
        with self.place() as place:
            made = self.create(place)
            if fault := self.fault(made, place) or (made.status and made.last_said()):
                raise RuntimeError(f"not even without an attack: {fault}")
        # A slow machine is no fault of the programs.
        self.seconds = time.monotonic() - began
        self.most_seconds = MOST_SECONDS + 10 * self.seconds
        return self

    def __exit__(self, kind, value, trace):
        shutil.rmtree(self.folder, ignore_errors=True)

    def environment(self, **changes):
        return stillora.private_environment(self.folder / "home", **changes)

    @contextlib.contextmanager
    def place(self):
        """A fresh save folder."""
        folder = Path(tempfile.mkdtemp(dir=self.folder, prefix="save-"))
        try:
            yield folder
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def command(self, place, *arguments):
        """A command that makes a movie, as a rule a small one of six frames with sound."""
        return [self.program, "create", "--seconds", "0.5", "--save", place, "--title", "Movie",
                *(arguments or ["--quality", "240", *self.photos, self.sound])]

    def create(self, place, *arguments, prefix=(), environment=None, seconds=90):
        return attack.run(*prefix, *self.command(place, *arguments), seconds=seconds,
                          environment=environment or self.environment())

    def fault(self, ran, place, frames=6, may_leave=False):
        """What is bad about how the making of a movie ended; None if nothing is."""
        if harm := ran.harm():
            return harm
        if ran.seconds > self.most_seconds:
            return f"took {ran.seconds:.1f} s; said: {ran.last_said()}"
        if ran.status != 0 and not ran.err.strip():
            return f"exit status {ran.status} without a word"
        left = remains(place)
        movies = [name for name in left if name == "Movie.mov"]
        if others := [name for name in left if name not in movies]:
            if not may_leave:
                return f"left {', '.join(others)}; said: {ran.last_said()}"
        if ran.status in (0, 5) and not movies:
            return f"exit status {ran.status}, and no movie"
        if movies and (fault := fault_of_movie(place / "Movie.mov", frames)):
            return fault
        return None


def remains(folder):
    """All that lies below a folder, hidden or not, folders too."""
    return sorted(str(path.relative_to(folder)) for path in Path(folder).rglob("*"))


def fault_of_movie(movie, frames):
    """Why a movie is not whole; None if it is."""
    probe = ["ffprobe", "-v", "error", "-select_streams", "v:0", "-count_packets", "-show_entries", "stream=nb_read_packets",
             "-of", "csv=p=0", movie]
    told = subprocess.run(probe, capture_output=True, text=True)
    if told.returncode != 0 or told.stdout.strip().strip(",") != str(frames):
        return f"a movie that is not whole: {told.stdout.strip()} of {frames} frames {told.stderr.strip()}"
    return None


def in_parallel(function, items):
    """The function's results, in the order of the items, as many at a time as there are processors.

    What took too long is tried again: a machine may stand still for a moment.
    """
    def tried(item):
        result = function(item)
        return function(item) if isinstance(result, str) and " took " in result else result

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        yield from pool.map(tried, items)
