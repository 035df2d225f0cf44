"""Makes files that are small, or take no room on the disk, and claim to be large: each is meant to cost its reader much.

Written byte by byte, since those who write files that are meant well refuse to make such.
"""

import itertools
import struct
import sys
import tempfile
import zlib
from pathlib import Path

import attack  # noqa: F401 - which finds the modules of the tests
import seeds
import spoiling
import stillora

DEEP = 1 << 16


def big(value, size=4):
    return value.to_bytes(size, "big")


def little(value, size=4):
    return value.to_bytes(size, "little")


def squeezed(unit, count):
    """`count` times the bytes `unit`, deflated: a block that depends on none before it, again and again."""
    each = min(count, max(1, (1 << 20) // len(unit)))
    made, check = b"\x78\xDA", 1
    for units, times in ((each, count // each), (count % each, 1)):
        packer = zlib.compressobj(9, wbits=-15)
        block = unit * units
        made += (packer.compress(block) + packer.flush(zlib.Z_FULL_FLUSH)) * times
        for _ in range(times):
            check = zlib.adler32(block, check)
    return made + b"\3\0" + big(check)


# PNG

def chunk(kind, data):
    return big(len(data)) + kind + data + big(zlib.crc32(kind + data))


def png(width, height, depth, color, data=None, interlaced=0, before=b"", row=None):
    head = chunk(b"IHDR", big(width) + big(height) + bytes([depth, color, 0, 0, interlaced]))
    if data is None:
        samples = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[color]
        row = row or bytes(1 + (width * depth * samples + 7) // 8)
        data = squeezed(row, height)
    return b"\x89PNG\r\n\x1A\n" + head + before + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def pngs():
    palette = chunk(b"PLTE", bytes(768))
    small = squeezed(bytes(49), 48)
    yield "grey", png(16384, 16384, 8, 0)
    yield "rgb", png(16000, 16000, 8, 2, data=squeezed(bytes(48001), 16000))
    yield "rgba16", png(8000, 8000, 16, 6)
    yield "one-bit", png(16384, 16384, 1, 0)
    yield "palette", png(16384, 16384, 8, 3, before=palette)
    yield "interlaced", png(8000, 8000, 8, 2, data=squeezed(bytes(24001), 8020), interlaced=1)
    yield "interlaced16", png(6000, 6000, 16, 6, data=squeezed(bytes(48001), 6020), interlaced=1)
    yield "filtered", png(12000, 12000, 8, 2, row=b"\4" + bytes(36000))
    yield "wide", png(1 << 27, 1, 8, 0)
    yield "high", png(1, 1 << 24, 8, 0)
    yield "cut", png(16384, 16384, 8, 2, data=squeezed(bytes(1000), 10)[:50])
    yield "too-much", png(16, 16, 8, 0, data=squeezed(bytes(1 << 20), 1024))
    yield "profile", png(48, 48, 8, 0, data=small, before=chunk(b"iCCP", b"p\0\0" + squeezed(bytes(1 << 20), 1024)))
    yield "text", png(48, 48, 8, 0, data=small, before=chunk(b"zTXt", b"t\0\0" + squeezed(bytes(1 << 20), 1024)))
    yield "texts", png(48, 48, 8, 0, data=small, before=chunk(b"zTXt", b"t\0\0" + squeezed(b"a" * 1000, 1000)) * 2000)
    yield "chunks", png(48, 48, 8, 0, data=small, before=chunk(b"tEXt", b"a\0b") * 100000)
    yield "empty-data", png(48, 48, 8, 0, data=small, before=chunk(b"IDAT", b"") * 100000)
    yield "exif", png(48, 48, 8, 0, data=small, before=chunk(b"eXIf", circles()))
    animated = chunk(b"acTL", big(100000) + big(0))
    frames = b"".join(chunk(b"fcTL", big(i) + big(48) + big(48) + bytes(8) + bytes([0, 1, 0, 1, 0, 0])) for i in range(20000))
    yield "frames", png(48, 48, 8, 0, data=small, before=animated + frames)


def circles():
    """A folder of EXIF whose entries all lead to folders, these to itself."""
    entries = b"".join(struct.pack("<HHII", tag, 4, 1, 8) for tag in itertools.islice(itertools.cycle((0x8769, 0x8825, 0xA005)), 5000))
    return b"II*\0" + little(8) + little(5000, 2) + entries + little(8)


# JPEG

def segment(mark, data):
    return b"\xFF" + bytes([mark]) + big(len(data) + 2, 2) + data


def bits(text):
    """Coded bits as bytes, filled with ones and with what keeps a byte of ones from being a mark."""
    text += "1" * (-len(text) % 8)
    return int(text, 2).to_bytes(len(text) // 8, "big").replace(b"\xFF", b"\xFF\0") if text else b""


def codes(kind, symbols):
    """A table of codes of 8 bits, in which the symbols stand in this order."""
    counts = [0] * 16
    counts[7] = len(symbols)
    return segment(0xC4, bytes([kind]) + bytes(counts) + bytes(symbols))


def jpeg(width, height, sof, components, scans, sampling=0x11, before=b"", end=b"\xFF\xD9"):
    parts = b"".join(bytes([i + 1, sampling if i == 0 else 0x11, 0]) for i in range(components))
    frame = segment(sof, bytes([8]) + big(height, 2) + big(width, 2) + bytes([components]) + parts)
    # Nothing and the longest run of empty blocks.
    tables = segment(0xDB, bytes([0]) + b"\1" * 64) + codes(0x00, [0]) + codes(0x10, [0x00, 0xE0])
    return b"\xFF\xD8" + before + tables + frame + b"".join(scans) + end


def dc_scan(blocks, components=(1,)):
    head = bytes([len(components)]) + b"".join(bytes([c, 0]) for c in components) + bytes([0, 0, 0])
    return segment(0xDA, head) + bytes(blocks)


def ac_scan(blocks, component=1, low=0, high=0, first=1, last=63):
    """Of nothing at all: each code stands for 32767 blocks."""
    runs = -(-blocks // 32767)
    return segment(0xDA, bytes([1, component, 0, first, last, high << 4 | low])) + bits(("00000001" + "1" * 14) * runs)


def plain_scan(components):
    return segment(0xDA, bytes([len(components)]) + b"".join(bytes([c, 0]) for c in components) + bytes([0, 63, 0]))


def jpegs():
    blocks = 1000 * 1000
    yield "500-scans", jpeg(8000, 8000, 0xC2, 1, [ac_scan(blocks)] * 500)
    yield "96-scans", jpeg(16000, 16000, 0xC2, 1, [ac_scan(4 * blocks)] * 96)
    yield "refining", jpeg(8000, 8000, 0xC2, 1, [ac_scan(blocks, low=12)] + [ac_scan(blocks, low=i, high=i + 1) for i in range(11, -1, -1)] * 10)
    yield "progressive", jpeg(16000, 16000, 0xC2, 3, [ac_scan(4 * blocks, c) for c in (1, 2, 3)])
    yield "inks", jpeg(16000, 16000, 0xC2, 4, [ac_scan(4 * blocks, c) for c in (1, 2, 3, 4)])
    yield "inks-coded", jpeg(8000, 8000, 0xC2, 4, [dc_scan(4 * blocks, (1, 2, 3, 4))])
    yield "one-by-one", jpeg(12000, 12000, 0xC1, 3, [plain_scan([c]) + bytes(100) for c in (1, 2, 3)])
    yield "baseline", jpeg(16000, 16000, 0xC0, 3, [plain_scan([1, 2, 3]) + bytes(1000)])
    yield "baseline-inks", jpeg(16000, 16000, 0xC0, 4, [plain_scan([1, 2, 3, 4]) + bytes(1000)])
    yield "largest", jpeg(65500, 65500, 0xC0, 1, [plain_scan([1])])
    yield "wide", jpeg(65500, 4000, 0xC0, 3, [plain_scan([1, 2, 3])])
    yield "coarse", jpeg(16000, 16000, 0xC0, 3, [plain_scan([1, 2, 3])], sampling=0x44)
    yield "arithmetic", jpeg(16000, 16000, 0xC9, 3, [plain_scan([1, 2, 3])])
    yield "arithmetic-scans", jpeg(8000, 8000, 0xCA, 1, [segment(0xDA, bytes([1, 1, 0, 1, 63, 0]))] * 500)
    yield "no-end", jpeg(16000, 16000, 0xC2, 3, [ac_scan(4 * blocks)], end=b"")
    yield "comments", jpeg(48, 48, 0xC0, 1, [plain_scan([1]) + bytes(36)], before=segment(0xFE, b"") * 200000)
    yield "profile", jpeg(48, 48, 0xC0, 1, [plain_scan([1]) + bytes(36)], before=b"".join(
        segment(0xE2, b"ICC_PROFILE\0" + bytes([i, 255]) + bytes(30000)) for i in range(1, 256)))
    yield "exif", jpeg(48, 48, 0xC0, 1, [plain_scan([1]) + bytes(36)], before=segment(0xE1, b"Exif\0\0" + circles()))
    yield "tables", jpeg(48, 48, 0xC0, 1, [plain_scan([1]) + bytes(36)], before=codes(0, [0]) * 100000)
    yield "fills", jpeg(48, 48, 0xC0, 1, [plain_scan([1]) + bytes(36)], before=b"\xFF" * 4000000)


# GIF

def gif_frame(width, height, data, flags=0):
    return b"," + little(0, 2) * 2 + little(width, 2) + little(height, 2) + bytes([flags, 7]) + data


def gif_blocks(data):
    return b"".join(bytes([len(data[i:i + 255])]) + data[i:i + 255] for i in range(0, len(data), 255)) + b"\0"


def gif_run(count):
    """As many zeros, as codes that grow longer by one each: 128, 0, 130, 131 and so on, begun anew when they are all in use."""
    made, width, following, done, code = "", 8, 130, 0, 0
    parts = [format(128, "08b")[::-1]]
    length = 1
    while done < count:
        parts.append(format(0 if length == 1 else following - 1, f"0{width}b")[::-1])
        done += length
        length += 1
        if length > 2:
            following += 1
        if following == 1 << width and width < 12:
            width += 1
        if following >= 4095:
            parts.append(format(128, f"0{width}b")[::-1])
            width, following, length = 8, 130, 1
    parts.append(format(129, f"0{width}b")[::-1])
    made = "".join(parts)
    made += "0" * (-len(made) % 8)
    return bytes(int(made[i:i + 8][::-1], 2) for i in range(0, len(made), 8))


def gif(width, height, frames):
    return b"GIF89a" + little(width, 2) + little(height, 2) + bytes([0x80, 0, 0]) + bytes(6) + frames + b";"


def gifs():
    run = gif_blocks(gif_run(16000 * 16000))
    yield "run", gif(16000, 16000, gif_frame(16000, 16000, run))
    yield "largest", gif(65535, 65535, gif_frame(65535, 65535, gif_blocks(b"\x80\x81")))
    yield "large-screen", gif(16384, 16384, gif_frame(1, 1, gif_blocks(b"\x80\x00\x81")))
    yield "frames", gif(16, 16, gif_frame(16, 16, gif_blocks(gif_run(256))) * 50000)
    yield "large-frames", gif(16000, 16000, gif_frame(16000, 16000, gif_blocks(gif_run(1000))) * 1000)
    yield "comments", gif(16, 16, b"!\xFE\x01a\0" * 500000 + gif_frame(16, 16, gif_blocks(gif_run(256))))
    yield "interlaced", gif(16000, 16000, gif_frame(16000, 16000, run, 0x40))
    yield "clears", gif(16000, 16000, gif_frame(16000, 16000, gif_blocks(b"\x80" * 1000000)))


# WebP

def riff(*parts):
    body = b"WEBP" + b"".join(kind + little(len(data)) + data + bytes(len(data) % 2) for kind, data in parts)
    return b"RIFF" + little(len(body)) + body


def lossless(width, height, transforms="0"):
    """Every pixel takes no bit at all."""
    text = format(width - 1, "014b")[::-1] + format(height - 1, "014b")[::-1] + "0" + "000" + transforms + "0" + "0" + "1000" * 5
    text += "0" * (-len(text) % 8) + "0" * 64
    return b"\x2F" + bytes(int(text[i:i + 8][::-1], 2) for i in range(0, len(text), 8))


def webps():
    most = 16383
    extended = bytes([0x12, 0, 0, 0]) + little(most, 3) * 2
    lossy = b"\x10\x02\0\x9D\x01\x2A" + little(most, 2) * 2 + bytes(64)
    plain = "0" + "1000" * 5
    yield "lossless", riff((b"VP8L", lossless(most, most)))
    # Predicted with blocks of four pixels, then colours of each block, then green taken off.
    yield "transformed", riff((b"VP8L", lossless(most, most, "1" + "00" + "000" + plain + "1" + "10" + "000" + plain + "1" + "01" + "0")))
    yield "transformed-small", riff((b"VP8L", lossless(8000, 8000, "1" + "10" + "1" + "00" + "000" + plain + "0")))
    yield "lossy", riff((b"VP8 ", lossy))
    yield "canvas", riff((b"VP8X", bytes([0, 0, 0, 0]) + b"\xFF" * 6), (b"VP8L", lossless(16, 16)))
    yield "alpha", riff((b"VP8X", bytes([0x10, 0, 0, 0]) + little(most - 1, 3) * 2), (b"ALPH", b"\1" + lossless(most, most)[5:]), (b"VP8 ", lossy))
    frame = b"ANMF" + little(24 + len(lossless(most, most)) // 2 * 2) + bytes(6) + little(most - 1, 3) * 2 + little(1, 3) + b"\0" + b"VP8L" + little(
        len(lossless(most, most)) // 2 * 2) + lossless(most, most)[:len(lossless(most, most)) // 2 * 2]
    body = b"WEBP" + b"VP8X" + little(10) + extended + b"ANIM" + little(6) + bytes(6) + frame * 5000
    yield "frames", b"RIFF" + little(len(body)) + body
    yield "chunks", riff((b"VP8X", bytes([0, 0, 0, 0]) + little(15, 3) * 2), *[(b"XXXX", b"ab")] * 200000, (b"VP8L", lossless(16, 16)))
    yield "profile", riff((b"VP8X", bytes([0x20, 0, 0, 0]) + little(15, 3) * 2), (b"ICCP", bytes(30000000)), (b"VP8L", lossless(16, 16)))


# TIFF

def tiff(entries, data=b""):
    """Values of entries that are lists stand behind the data; a text "data" stands for where that begins."""
    start = 8 + len(data)
    lists, made, at = b"", [], start + 2 + 12 * len(entries) + 4
    for tag, kind, value in sorted(entries):
        if isinstance(value, list):
            made.append(struct.pack("<HHII", tag, kind, len(value), at + len(lists)))
            lists += b"".join(little(8 if one == "data" else one, {3: 2, 4: 4}[kind]) for one in value)
        else:
            made.append(struct.pack("<HHII", tag, kind, 1, 8 if value == "data" else value))
    return b"II*\0" + little(start) + data + little(len(entries), 2) + b"".join(made) + little(0) + lists


def striped(width, height, rows, data, compression, samples=3, depth=8, more=()):
    """All strips are the same bytes of the file."""
    count = -(-height // rows)
    entries = [(256, 4, width), (257, 4, height), (258, 3, [depth] * samples if samples > 2 else depth), (259, 3, compression),
               (262, 3, 2 if samples > 2 else 1), (273, 4, ["data"] * count if count > 1 else "data"), (277, 3, samples),
               (278, 4, rows), (279, 4, [len(data)] * count if count > 1 else len(data)), *more]
    return tiff(entries, data)


def tiffs():
    zeros = squeezed(bytes(1 << 20), 48)
    yield "deflated", striped(16000, 16000, 1000, squeezed(bytes(48000), 1000), 8)
    yield "one-strip", striped(12000, 12000, 12000, squeezed(bytes(36000), 12000), 8)
    yield "deflated16", striped(16000, 16000, 100, squeezed(bytes(1 << 20), 10), 8, depth=16)
    yield "packed", striped(16000, 16000, 16000, b"\x81\0" * 200, 32773, samples=1)
    yield "packed-rows", striped(16000, 16000, 1, b"\x81\0" * 376, 32773)
    yield "wide-strip", striped(1 << 27, 1, 1, zeros, 8, samples=1)
    yield "rows", striped(16, 1 << 18, 1, b"\x81\0", 32773, samples=1)
    yield "raw", striped(16384, 16384, 1, bytes(16384), 1, samples=1)
    yield "doubles", striped(8000, 8000, 10, squeezed(bytes(64000), 10), 8, samples=1, depth=64, more=[(339, 3, 3)])
    yield "samples", striped(4000, 4000, 4000, b"", 1, samples=65535)
    yield "claims", striped((1 << 31) - 1, (1 << 31) - 1, 1 << 20, b"", 1)
    tiles = [(256, 4, 16384), (257, 4, 16384), (258, 3, [8] * 3), (259, 3, 8), (262, 3, 2), (277, 3, 3), (322, 3, 16), (323, 3, 16),
             (324, 4, ["data"] * DEEP), (325, 4, [20] * DEEP)]
    yield "tiles", tiff(tiles, squeezed(bytes(768), 1))
    large = [(256, 4, 16000), (257, 4, 16000), (258, 3, [8] * 3), (259, 3, 8), (262, 3, 2), (277, 3, 3), (322, 4, 16000),
             (323, 4, 16000), (324, 4, "data"), (325, 4, len(zeros))]
    yield "large-tile", tiff(large, zeros)
    yield "fax", striped(16000, 16000, 16000, b"\xFF" * 100, 4, samples=1, depth=1)
    yield "circles", circles()
    yield "folders", b"II*\0" + little(8) + b"".join(
        little(1, 2) + struct.pack("<HHII", 256, 4, 1, 16) + little(8 + 18 * (i + 1)) for i in range(100000))
    profile = striped(16, 16, 16, bytes(768), 1, more=[(34675, 3, [0] * 4000000)])
    yield "profile", profile


# BMP

def bmp(width, height, depth, compression, data, header=40):
    info = struct.pack("<IiiHHIIiiII", header, width, height, 1, depth, compression, len(data), 0, 0, 256 if depth == 8 else 0, 0)
    start = 14 + len(info) + (1024 if depth == 8 else 0)
    return b"BM" + little(start + len(data)) + bytes(4) + little(start) + info + bytes(start - 14 - len(info)) + data


def bmps():
    yield "runs", bmp(16384, 16384, 8, 1, b"\xFF\0" * 1000000 + b"\0\1")
    yield "skips", bmp(16384, 16384, 8, 1, b"\0\2\xFF\xFF" * 1000000 + b"\0\1")
    yield "ends", bmp(16384, 16384, 8, 1, b"\0\0" * 1000000)
    yield "empty", bmp(16384, 16384, 24, 0, b"")
    yield "deep", bmp(16384, 16384, 32, 0, bytes(1000))
    yield "one-bit", bmp(65535, 65535, 1, 0, bytes(1000))
    yield "claims", bmp((1 << 31) - 1, -(1 << 31), 32, 0, bytes(1000))
    yield "wide", bmp(1 << 28, 1, 8, 1, b"\xFF\0" * 1000000)


# HEIC and AVIF

def box(kind, *parts):
    data = b"".join(parts)
    return big(8 + len(data)) + kind + data


def full(kind, version, flags, *parts):
    return box(kind, bytes([version]) + big(flags, 3), *parts)


def grid(brand, seed, columns, rows, tile, more_references=1, shared=True):
    """A picture of tiles, all of which are the one that a valid file holds."""
    kind = b"hvc1" if brand == b"heic" else b"av01"
    configuration = boxes_of(seed, b"hvcC" if brand == b"heic" else b"av1C")
    start = seed.find(b"mdat") + 4
    coded = seed[start:]
    count = columns * rows if shared else 1
    descriptor = b"\0\1" + bytes([rows - 1, columns - 1]) + big(tile * columns) + big(tile * rows)
    size = lambda width, height: full(b"ispe", 0, 0, big(width) + big(height))
    properties = box(b"iprp", box(b"ipco", configuration, size(tile, tile), size(tile * columns, tile * rows)),
                     full(b"ipma", 1, 0, big(2 + count - 1), big(1), b"\1\3", *(big(i + 2) + b"\2\x81\2" for i in range(count))))
    infos = full(b"iinf", 1, 0, big(count + 1), full(b"infe", 3, 0, big(1), b"\0\0grid\0"),
                 *(full(b"infe", 3, 1, big(i + 2), b"\0\0" + kind + b"\0") for i in range(count)))
    targets = b"".join(big(2 + i % count) for i in range(columns * rows))
    references = full(b"iref", 1, 0, *[box(b"dimg", big(1), big(columns * rows, 2), targets)] * more_references)
    handler = full(b"hdlr", 0, 0, bytes(4) + b"pict" + bytes(13))

    def whole(offset):
        places = full(b"iloc", 2, 0, b"\x44\0", big(count + 1), big(1) + big(1, 2) + big(0, 2) + big(1, 2) + big(0) + big(len(descriptor)),
                      *(big(i + 2) + big(0, 2) * 2 + big(1, 2) + big(offset) + big(len(coded)) for i in range(count)))
        meta = full(b"meta", 0, 0, handler, full(b"pitm", 1, 0, big(1)), infos, references, properties, places, box(b"idat", descriptor))
        return box(b"ftyp", brand + bytes(4) + b"mif1" + brand) + meta + big(8 + len(coded)) + b"mdat"

    return whole(len(whole(0))) + coded


def boxes_of(data, kind):
    at = data.find(kind) - 4
    return data[at:at + int.from_bytes(data[at:at + 4], "big")]


def heifs(brand, ending):
    def made(pictures):
        seed = pictures[ending][0]
        yield "tiles", grid(brand, seed, 200, 200, 64)
        yield "same-tile", grid(brand, seed, 256, 200, 64, shared=False)
        yield "many-tiles", grid(brand, seed, 255, 255, 64)
        yield "large-tiles", grid(brand, seed, 4, 4, 4096)
        yield "references", grid(brand, seed, 16, 16, 64, more_references=2000, shared=False)
        size = seed.find(b"ispe")
        for name, width, height in (("claims", 16000, 16000), ("claims-more", 1 << 31, 1 << 31)):
            yield name, seed[:size + 8] + big(width) + big(height) + seed[size + 16:]
        yield "deep", seed[:seed.find(b"meta") - 4] + nested(b"meta", 100000, 4)
        yield "boxes", seed[:seed.find(b"meta") - 4] + box(b"free") * 500000 + seed[seed.find(b"meta") - 4:]
    return made


def nested(kind, depth, between=0):
    """Boxes in boxes, each of which claims to hold all that follows."""
    each = 8 + between
    return b"".join(big(each * (depth - i)) + kind + bytes(between) for i in range(depth))


# JPEG 2000

def codestream(width, height, tile, components=3, levels=5, layers=1, block=4, data=b"", tiles=1, depth=8):
    size = b"\0\0" + big(width) + big(height) + bytes(8) + big(tile) + big(tile) + bytes(8) + big(components, 2) + bytes([depth - 1, 1, 1]) * components
    coding = bytes([0, 0]) + big(layers, 2) + bytes([1 if components > 2 else 0, levels, block, block, 0, 1])
    quantisation = bytes([0x40]) + bytes([0x48]) * (3 * levels + 1)
    made = b"\xFF\x4F" + segment(0x51, size) + segment(0x52, coding) + segment(0x5C, quantisation)
    for i in range(tiles):
        made += b"\xFF\x90\0\x0A" + big(i % 65535, 2) + big(14 + len(data)) + b"\0\1" + b"\xFF\x93" + data
    return made + b"\xFF\xD9"


def jp2s(_):
    yield "empty", codestream(16000, 16000, 16000, data=bytes(100))
    yield "grey", codestream(16384, 16384, 16384, components=1, data=bytes(100))
    yield "small-blocks", codestream(16000, 16000, 16000, block=0, data=bytes(100))
    yield "layers", codestream(4000, 4000, 4000, layers=65535, data=bytes(65535))
    yield "tiles", codestream(16000, 16000, 64, tiles=62500)
    yield "tiny-tiles", codestream(200, 200, 1, tiles=40000)
    yield "components", codestream(1000, 1000, 1000, components=16384, data=bytes(100))
    yield "claims", codestream((1 << 32) - 1, (1 << 32) - 1, (1 << 32) - 1)
    yield "tile-claims", codestream(16000, 16000, 1)
    yield "deep", codestream(16000, 16000, 16000, depth=38, data=bytes(100))
    yield "levels", codestream(8000, 8000, 8000, levels=32, data=bytes(10000))


def of_no_seed(make):
    return lambda pictures: make()


PICTURES = {"png": of_no_seed(pngs), "jpg": of_no_seed(jpegs), "gif": of_no_seed(gifs), "webp": of_no_seed(webps),
            "tiff": of_no_seed(tiffs), "bmp": of_no_seed(bmps), "heic": heifs(b"heic", "heic"), "avif": heifs(b"avif", "avif"), "jp2": jp2s}


# Sounds

class Sparse:
    """Bytes at the start and the end of a file, and nothing between."""

    def __init__(self, start, length, end=b""):
        self.start, self.length, self.end = start, length, end


def wav(rate, channels=1, bits_each=16, length=1 << 20, kind=1, block=None, more=b""):
    block = block or channels * bits_each // 8
    head = struct.pack("<HHIIHH", kind, channels % 65536, rate, rate * block & 0xFFFFFFFF, block % 65536, bits_each)
    data = b"fmt " + little(len(head)) + head + more + b"data" + little(min(length, (1 << 32) - 50))
    start = b"RIFF" + little(min(length + 36, (1 << 32) - 1)) + b"WAVE" + data
    return Sparse(start, len(start) + length)


def syncsafe(value):
    return bytes(value >> 7 * i & 0x7F for i in (3, 2, 1, 0))


def id3(frames, flags=0, claimed=None):
    return b"ID3\3\0" + bytes([flags]) + syncsafe(len(frames) if claimed is None else claimed) + frames


def id3_frame(name, data, flags=0):
    return name + big(len(data)) + big(flags, 2) + data


MP3_FRAME = b"\xFF\xFB\x90\xC0" + bytes(413)


def mp4_table(kind, count, entry):
    return full(kind, 0, 0, big(count), entry)


def m4a(seed, kind, made):
    """The valid file with one box of its index in another form."""
    old = boxes_of(seed, kind)
    result = seed.replace(old, made)
    # The boxes around it grow by as much.
    for around in (b"moov", b"trak", b"mdia", b"minf", b"stbl"):
        at = result.find(around) - 4
        if around in (b"moov", b"trak") or kind in (b"stts", b"stsz", b"stsc", b"stco", b"mdhd"):
            if not (kind == b"mdhd" and around in (b"minf", b"stbl")):
                result = result[:at] + big(int.from_bytes(result[at:at + 4], "big") + len(made) - len(old)) + result[at + 4:]
    return result


def ogg_page(data, serial=1, number=0, flags=2, position=0):
    lacing = bytes([255] * (len(data) // 255) + [len(data) % 255])
    return spoiling.repaired(b"OggS\0" + bytes([flags]) + little(position, 8) + little(serial) + little(number) + bytes(4) + bytes([len(lacing)]) + lacing + data)


def sounds(whole):
    """(ending, name, content) of each."""
    mp3, m4, flac, ogg, opus, caf, aiff = (whole[kind][0] for kind in ("mp3", "m4a", "flac", "ogg", "opus", "caf", "aiff"))
    yield "wav", "one-hertz", wav(1, length=1 << 30)
    yield "wav", "four-gigabytes", wav(44100, length=(1 << 32) - 100)
    yield "wav", "channels", wav(44100, channels=65535, length=1 << 28)
    yield "wav", "fast", wav((1 << 32) - 1, length=1 << 28)
    yield "wav", "adpcm", wav(8000, kind=0x11, bits_each=4, block=256, length=1 << 31)
    yield "wav", "block", wav(44100, block=65535, length=1 << 30)
    yield "wav", "chunks", wav(44100, more=(b"junk" + little(0)) * 500000)
    yield "mp3", "eight-gigabytes", Sparse(MP3_FRAME * 10, 8 << 30)
    yield "mp3", "eight-gigabytes-of-tag", Sparse(id3(b"", claimed=(1 << 28) - 1) + MP3_FRAME * 4, 8 << 30)
    yield "mp3", "claims", Sparse(b"\xFF\xFB\x90\xC0" + bytes(32) + b"Xing" + big(3) + big((1 << 32) - 1) * 2 + bytes(365) + MP3_FRAME * 20, 20000)
    yield "mp3", "frames-of-tag", Sparse(id3(id3_frame(b"TXXX", b"\0a\0b") * 500000) + mp3, 10 << 20)
    yield "mp3", "squeezed", Sparse(id3(id3_frame(b"APIC", big(1 << 30) + squeezed(bytes(1 << 20), 1024), 0x80)) + mp3, 2 << 20)
    yield "mp3", "cover", Sparse(id3(id3_frame(b"APIC", b"\0image/png\0\3\0" + png(16384, 16384, 8, 0))) + mp3, 1 << 20)
    yield "mp3", "tags", Sparse(id3(id3_frame(b"TIT2", b"\0a")) * 100000 + mp3, 4 << 20)
    yield "m4a", "times", Sparse(m4a(m4, b"stts", mp4_table(b"stts", (1 << 31) - 1, big(1) * 2)), len(m4) + 100)
    yield "m4a", "long-times", Sparse(m4a(m4, b"stts", mp4_table(b"stts", 1, big((1 << 32) - 1) * 2)), len(m4) + 100)
    yield "m4a", "sizes", Sparse(m4a(m4, b"stsz", full(b"stsz", 0, 0, big(1), big((1 << 32) - 1))), len(m4) + 100)
    yield "m4a", "chunks", Sparse(m4a(m4, b"stco", mp4_table(b"stco", 1 << 20, big(100) * (1 << 20))), (4 << 20) + len(m4))
    yield "m4a", "deep", Sparse(box(b"ftyp", b"M4A " + bytes(4)) + nested(b"moov", 100000), 900000)
    yield "m4a", "boxes", Sparse(box(b"ftyp", b"M4A " + bytes(4)) + box(b"free") * 1000000 + m4[32:], 9 << 20)
    yield "m4a", "scale", Sparse(m4a(m4, b"mdhd", full(b"mdhd", 0, 0, bytes(8) + big(1) + big((1 << 31) - 1) + bytes(4))), len(m4) + 100)
    edits = box(b"edts", mp4_table(b"elst", 500000, (big(1) + big(0) + big(DEEP)) * 500000))
    at = m4.find(b"mdia") - 4
    yield "m4a", "edits", Sparse(m4a(m4[:at] + box(b"mdia") + m4[at:], b"mdia", edits), len(m4) + len(edits))
    yield "flac", "cover", Sparse(flac[:42] + b"\6" + big((1 << 24) - 1, 3) + bytes(100) + flac[42:], 17 << 20)
    yield "flac", "claims", Sparse(flac[:18] + b"\0\0\1\xFF\xFF\xFF\xFF\xFF" + flac[26:], len(flac))
    yield "flac", "blocks", Sparse(flac[:42] + b"\1\0\0\0" * 1000000 + flac[42:], 5 << 20)
    yield "flac", "zeros", Sparse(flac, 4 << 30)
    comment = b"\3vorbis" + little(0) + little((1 << 32) - 1) + (little(1) + b"a") * 10000
    yield "ogg", "comments", Sparse(ogg[:58] + ogg_page(comment, flags=0, number=1), 60000)
    yield "ogg", "chains", Sparse(b"".join(ogg_page(b"OpusHead\1\1" + bytes(9), serial=i) for i in range(20000)), 2 << 20)
    yield "ogg", "zeros", Sparse(ogg, 4 << 30)
    yield "ogg", "position", Sparse(ogg + ogg_page(b"a", number=9, flags=4, position=1 << 62), len(ogg) + 29)
    yield "opus", "chains", Sparse(opus * 500, 500 * len(opus))
    yield "opus", "position", Sparse(opus + ogg_page(b"a", number=9, flags=4, position=1 << 62), len(opus) + 29)
    yield "caf", "packets", Sparse(caf[:52] + b"pakt" + big(24 + 1000, 8) + big(1 << 40, 8) + big(1 << 50, 8) + bytes(8) + bytes(1000) + caf[52:], len(caf) + 1036)
    yield "caf", "rate", Sparse(caf[:20] + struct.pack(">d", 1.0) + caf[28:], 4 << 30)
    yield "caf", "chunks", Sparse(caf[:52] + (b"free" + big(0, 8)) * 500000 + caf[52:], 6 << 20)
    common = b"COMM" + big(18) + big(1, 2) + big((1 << 32) - 1) + big(16, 2) + b"\x40\x0E\xAC\x44" + bytes(6)
    yield "aiff", "frames", Sparse(b"FORM" + big((1 << 32) - 1) + b"AIFF" + common + b"SSND" + big((1 << 32) - 100) + bytes(8), 4 << 30)
    slow = b"COMM" + big(18) + big(1, 2) + big(1 << 30) + big(16, 2) + b"\x3F\xFF\x80\0" + bytes(6)
    yield "aiff", "one-hertz", Sparse(b"FORM" + big((1 << 31) + 100) + b"AIFF" + slow + b"SSND" + big((1 << 31) + 8) + bytes(8), (1 << 31) + 100)
    yield "aiff", "chunks", Sparse(aiff[:12] + (b"JUNK" + big(0)) * 500000 + aiff[12:], 5 << 20)


def write(path, content):
    if isinstance(content, bytes):
        path.write_bytes(content)
        return
    with path.open("wb") as file:
        file.write(content.start)
        file.truncate(max(content.length, len(content.start)))


def write_all(folder):
    """Writes every file into a folder, and prints their names."""
    with tempfile.TemporaryDirectory() as elsewhere:
        pictures, heard = seeds.pictures(Path(elsewhere)), seeds.sounds(Path(elsewhere))
    for ending, make in PICTURES.items():
        for name, content in make(pictures):
            write(folder / f"{name}.{ending}", content)
            print(f"{name}.{ending}")
    for ending, name, content in sounds(heard):
        write(folder / f"{name}.{ending}", content)
        print(f"{name}.{ending}")


def all_of(folder):
    """Has every file written into a folder, and gives the names of pictures and of sounds.

    By a process of its own: what it takes would count as that of programs that are started afterwards.
    """
    names = stillora.run(sys.executable, "-B", __file__, folder).decode().split()
    return [[name for name in names if (name.split(".")[1] in PICTURES) == is_picture] for is_picture in (True, False)]


if __name__ == "__main__":
    write_all(Path(sys.argv[1]))
