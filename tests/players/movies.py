"""The movies that are played: made by the real program, of photos that say which they are."""

import subprocess
from dataclasses import dataclass, field
from pathlib import Path

import mark
import stillora

PHOTO_WIDTH, PHOTO_HEIGHT = 1280, 720


@dataclass
class Movie:
    name: str
    count: int
    seconds: float
    # Seconds of music, if there is any, and the extension of its file.
    music: float = 0
    format: str = "wav"
    options: list = field(default_factory=list)
    codec: str = "avc1"
    # The photos that it is really made of, where that is to be found out.
    order: list = None
    # Whether it is made by ffmpeg, for comparison.
    is_foreign: bool = False
    # Players that lose its last photo, whoever made it.
    lost_in: tuple = ()
    path: Path = None

    @property
    def marks(self):
        """What is to be seen."""
        return list(range(1, self.count + 1))

    @property
    def is_for_web(self):
        return "--web" in self.options

    @property
    def length(self):
        return self.count * self.seconds


MOVIES = [
    Movie("eight photos with music", 8, 1.5, music=20),
    Movie("eight photos with copied AAC", 8, 1.5, music=20, format="m4a"),
    Movie("eight photos with an MP3", 8, 1.5, music=20, format="mp3"),
    Movie("one photo with music", 1, 4, music=20),
    Movie("two photos with music", 2, 1.5, music=20),
    Movie("six photos of four seconds", 6, 4, music=30),
    Movie("eight photos without music", 8, 1.5),
    Movie("one photo without music", 1, 1.5),
    Movie("music that ends early", 8, 1.5, music=5),
    Movie("eight photos in HEVC", 8, 1.5, music=20, codec="hvc1"),
    Movie("eight photos in JPEG", 8, 1.5, music=20, codec="jpeg"),
    Movie("eight photos and no sound", 8, 1.5, options=["--no-silence"], lost_in=("VLC",)),
    Movie("eight photos in HEVC and no sound", 8, 1.5, options=["--no-silence"], codec="hvc1", lost_in=("VLC",)),
    Movie("six photos of four seconds for the web", 6, 4, music=30, options=["--web"]),
    Movie("eight photos for the web", 8, 1.5, options=["--web"]),
    Movie("one photo for the web", 1, 4, options=["--web"]),
    Movie("eight photos and no sound for the web", 8, 1.5, options=["--web", "--no-silence"], lost_in=("VLC",)),
    Movie("eight photos in HEVC for the web", 8, 1.5, music=20, codec="hvc1", options=["--web"]),
    Movie("eight photos in JPEG for the web", 8, 1.5, music=20, codec="jpeg", options=["--web"]),
]
# The movies in which players are told to go here and there.
SEEKING = ["six photos of four seconds", "six photos of four seconds for the web"]
CONTROLS = [
    Movie("photos in a wrong order", 4, 1, music=20, order=[1, 3, 2, 4]),
    # What some players lose the last photo of; nobody gets such a movie who does not ask for it.
    Movie("pictures without sound", 8, 1.5, options=["--no-silence"]),
    Movie("sound that ends early", 8, 1.5, music=5, options=["--no-silence"]),
    Movie("the same photos in a movie by ffmpeg", 8, 1.5, music=20, is_foreign=True),
]


def music(file, seconds):
    """Chords that change every half second, each struck softly, in stereo."""
    root = "220*pow(2,(5*mod(floor(2*t),5))/12)"
    loud = "0.2*exp(-6*mod(t,0.5))"
    tone = lambda part: f"{loud}*sin(2*PI*t*{part}*{root})"
    stillora.run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                 f"aevalsrc={tone(1)}+{tone(1.26)}+{tone(1.5)}|{tone(2)}:s=44100:d={seconds}".replace(",", "\\,"), file)


def make(movies, folder):
    photos = folder / "photos"
    photos.mkdir()
    for number in range(1, 1 + max(movie.count for movie in movies)):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "image2pipe", "-c:v", "ppm", "-i", "-", "-q:v", "2", "-pix_fmt", "yuvj420p",
                        str(photos / f"{number:03}.jpg")], input=mark.picture_of(number, PHOTO_WIDTH, PHOTO_HEIGHT), check=True)
    for movie in movies:
        options = list(movie.options)
        if movie.music:
            sound = folder / f"music {movie.music}.{movie.format}"
            if not sound.exists():
                music(sound, movie.music)
            options += ["--soundtrack", str(sound)]
        if movie.is_foreign:
            movie.path = folder / "movies" / f"{movie.name}.mp4"
            stillora.run("ffmpeg", "-v", "error", "-framerate", f"1/{movie.seconds}", "-i", photos / "%03d.jpg", "-i", sound,
                         "-t", str(movie.length), "-vf", "scale=640:360", "-pix_fmt", "yuv420p", "-c:v", "libx264", "-g", "1",
                         "-c:a", "aac", movie.path)
            continue
        made = stillora.run(
            stillora.STILLORA, "create", "--quiet", "--title", movie.name, "--save", folder / "movies", "--quality", "360",
            "--seconds", str(movie.seconds), "--codec", movie.codec, *options,
            *(photos / f"{number:03}.jpg" for number in movie.order or movie.marks))
        movie.path = Path(made.decode().strip())
