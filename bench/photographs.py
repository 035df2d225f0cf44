"""Photos of 12 megapixels, as much like a camera's as there can be in a project: photographs of python3-skimage, scaled up,
with the grain of a sensor."""

import subprocess
import sys
from pathlib import Path

FOLDER = Path("/usr/lib/python3/dist-packages/skimage/data")
NAMES = ("astronaut.png", "chelsea.png", "coffee.png", "hubble_deep_field.jpg", "motorcycle_left.png", "retina.jpg", "rocket.jpg")
MOST = 2 * len(NAMES)
SIZE = "4000:3000"


def make(folder, count, pixels="yuvj420p", name="{:05}.jpg"):
    """Makes up to MOST different ones, numbered from 0; from len(NAMES) on they are mirrored."""
    if not FOLDER.is_dir():
        sys.exit(f"{FOLDER} is missing: python3-skimage is needed")
    for number in range(min(count, MOST)):
        mirror = "hflip," if number >= len(NAMES) else ""
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", FOLDER / NAMES[number % len(NAMES)], "-frames:v", "1", "-vf",
                        f"{mirror}scale={SIZE}:force_original_aspect_ratio=increase:flags=lanczos,crop={SIZE},"
                        f"noise=alls=8:allf=t:all_seed={number}", "-pix_fmt", pixels, "-q:v", "2",
                        folder / name.format(number)], check=True, stdin=subprocess.DEVNULL)
