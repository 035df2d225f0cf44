"""Makes small sound pictures and sounds of every kind that is read, for attacks to spoil."""

import io
import random

from PIL import Image, TiffImagePlugin

import stillora


def photo(width=48, height=36, mode="RGB"):
    """A picture that is as hard to store as a photo is."""
    noise = random.Random(width * height)
    pixels = bytes(min(255, x * 5 + noise.randrange(30)) if c == 0 else min(255, y * 6 + noise.randrange(30)) if c == 1
                   else (x + y) * 2 for y in range(height) for x in range(width) for c in range(3))
    return Image.frombytes("RGB", (width, height), pixels).convert(mode)


def saved(picture, kind, **options):
    file = io.BytesIO()
    picture.save(file, kind, **options)
    return file.getvalue()


def exif():
    """A camera, a moment and a place."""
    made = Image.Exif()
    made[0x0112], made[0x010F], made[0x0110], made[0x0132] = 6, "Maker", "Model", "2024:05:06 07:08:09"
    made.get_ifd(0x8769)[0x9003] = "2024:05:06 07:08:09"
    made.get_ifd(0x8769)[0x9011] = "+02:00"
    place = made.get_ifd(0x8825)
    place[1], place[2] = "N", tuple(TiffImagePlugin.IFDRational(*part) for part in ((48, 1), (8, 1), (1234, 100)))
    place[3], place[4] = "E", tuple(TiffImagePlugin.IFDRational(*part) for part in ((11, 1), (34, 1), (5678, 100)))
    return made.tobytes()


def pictures(folder):
    """Bytes of pictures by format, several of each."""
    rgb, grey, palette, clear = photo(), photo(mode="L"), photo(mode="P"), photo(mode="RGBA")
    clear.putalpha(photo(mode="L"))
    info = exif()
    made = {
        "jpg": [saved(rgb, "JPEG", exif=info), saved(rgb, "JPEG", progressive=True, subsampling=0),
                saved(photo(mode="CMYK"), "JPEG"), saved(photo(mode="CMYK"), "JPEG", progressive=True), saved(grey, "JPEG")],
        "png": [saved(rgb, "PNG", exif=info), saved(palette, "PNG"), saved(clear, "PNG"),
                saved(photo(mode="I"), "PNG"), saved(photo(mode="1"), "PNG"),
                saved(rgb, "PNG", save_all=True, append_images=[clear])],
        "gif": [saved(palette, "GIF"), saved(palette, "GIF", save_all=True, append_images=[photo(mode="P").rotate(90)])],
        "webp": [saved(rgb, "WEBP", exif=info), saved(clear, "WEBP"), saved(clear, "WEBP", lossless=True),
                 saved(rgb, "WEBP", save_all=True, append_images=[clear])],
        "tiff": [saved(rgb, "TIFF"), saved(palette, "TIFF", compression="tiff_lzw"),
                 saved(rgb, "TIFF", compression="tiff_adobe_deflate"), saved(rgb, "TIFF", compression="jpeg"),
                 saved(photo(mode="1"), "TIFF", compression="group4"), saved(grey, "TIFF", compression="packbits"),
                 saved(photo(mode="CMYK"), "TIFF")],
        "bmp": [saved(rgb, "BMP"), saved(palette, "BMP"), saved(photo(mode="1"), "BMP"), saved(clear, "BMP")],
        "jp2": [saved(rgb, "JPEG2000"), saved(grey, "JPEG2000", irreversible=True, tile_size=(32, 32)),
                saved(rgb, "JPEG2000", no_jp2=True)],
    }
    interlaced = folder / "interlaced.png"
    stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=48x36", "-frames:v", "1", "-flags", "+ildct", interlaced)
    made["png"].append(interlaced.read_bytes())
    source = folder / "source.jpg"
    source.write_bytes(saved(photo(64, 64), "JPEG", exif=info))
    for ending, encoder in (("heic", ["-p", "preset=ultrafast"]), ("avif", ["-A", "-p", "speed=9"])):
        files = [folder / f"{number}.{ending}" for number in range(2)]
        for file, more in zip(files, ([], ["-L"])):
            stillora.run("heif-enc", *encoder, *more, "-o", file, source)
        made[ending] = [file.read_bytes() for file in files]
    return made


# Each with what an encoder is told, in small.
SOUNDS = {
    "mp3": [["-c:a", "libmp3lame", "-b:a", "48k"], ["-c:a", "libmp3lame", "-q:a", "9", "-ac", "1", "-id3v2_version", "4", "-write_id3v1", "1"]],
    "m4a": [["-c:a", "aac", "-b:a", "48k"], ["-c:a", "alac"]],
    "aiff": [["-c:a", "pcm_s16be"], ["-c:a", "pcm_s24be", "-write_id3v2", "1"]],
    "caf": [["-c:a", "pcm_s16le"], ["-c:a", "alac"]],
    "wav": [["-c:a", "pcm_s16le"], ["-c:a", "adpcm_ima_wav"], ["-c:a", "pcm_f32le"]],
    "flac": [["-c:a", "flac"]],
    "ogg": [["-c:a", "libvorbis", "-q:a", "0"], ["-c:a", "flac"]],
    "opus": [["-c:a", "libopus", "-b:a", "24k"]],
}


def sounds(folder):
    """Bytes of sounds by format, several of each, with tags."""
    made = {}
    source = ["-f", "lavfi", "-i", "sine=frequency=440:sample_rate=22050:duration=0.4"]
    tags = ["-metadata", "title=Title", "-metadata", "artist=Artist", "-metadata", "album=Album", "-metadata", "date=2020"]
    for ending, encoders in SOUNDS.items():
        made[ending] = []
        for number, encoder in enumerate(encoders):
            file = folder / f"{number}.{ending}"
            rate = ["-ar", "48000"] if ending == "opus" else []
            stillora.run("ffmpeg", "-v", "error", "-y", *source, *tags, *rate, *encoder, "-fflags", "+bitexact", file)
            made[ending].append(file.read_bytes())
    return made
