"""Spoils files by what is known of their structure: numbers in their headers, and the chunks that they consist of.

Everything follows from the random.Random that is passed, so that the same seed spoils the same files in the same ways.
"""

import struct
import zlib

# What numbers of 8, 16, 32 and 64 bits are made, beside their neighbours, halves and doubles.
EXTREMES = {size: (0, 1, (1 << 8 * size) - 1, (1 << 8 * size) - 2, 1 << 8 * size - 1, (1 << 8 * size - 1) - 1)
            for size in (1, 2, 4, 8)}
# And such as a picture or a sound may have, only not this one.
PLAUSIBLE = {1: (2, 3, 8, 16), 2: (255, 4000, 16384, 30000), 4: (255, 4000, 16384, 30000, 100000, 1 << 24), 8: (4000, 1 << 32)}
LARGEST = 1 << 18


class Structure:
    """What is known of a file: `numbers` as (offset, length in bytes, "big" or "little"), `chunks` as (start, end)."""

    def __init__(self):
        self.numbers, self.chunks = [], []

    def number(self, offset, size, order):
        self.numbers.append((offset, size, order))

    def chunk(self, start, end):
        self.chunks.append((start, end))


def structure_of(data):
    """The structure of a file of any known format; an empty one of others."""
    found, data = Structure(), bytes(data)
    try:
        if data[:2] == b"\xFF\xD8":
            read_jpeg(data, found)
        elif data[:8] == b"\x89PNG\r\n\x1A\n":
            read_png(data, found)
        elif data[:3] == b"GIF":
            read_gif(data, found)
        elif data[:4] in (b"RIFF", b"FORM"):
            read_iff(data, found)
        elif data[:2] in (b"II", b"MM"):
            read_tiff(data, 0, found)
        elif data[:2] == b"BM":
            read_bmp(data, found)
        elif data[4:8] in (b"ftyp", b"jP  "):
            read_boxes(data, 0, len(data), found)
        elif data[:4] == b"\xFF\x4F\xFF\x51":
            read_codestream(data, 0, found)
        elif data[:4] == b"caff":
            read_caf(data, found)
        elif data[:4] == b"fLaC":
            read_flac(data, found)
        elif data[:4] == b"OggS":
            read_ogg(data, found)
        elif data[:3] == b"ID3" or data[:1] == b"\xFF":
            read_mp3(data, found)
    except (struct.error, IndexError):
        pass  # As far as it went.
    found.numbers = [n for n in found.numbers if n[0] + n[1] <= len(data)]
    found.chunks = [(start, min(end, len(data))) for start, end in found.chunks if start < min(end, len(data))]
    return found


def read_jpeg(data, found):
    at = 2
    while at + 4 <= len(data) and data[at] == 0xFF:
        marker, length = data[at + 1], struct.unpack_from(">H", data, at + 2)[0]
        found.number(at + 1, 1, "big")
        found.number(at + 2, 2, "big")
        if 0xC0 <= marker <= 0xCF and marker not in (0xC4, 0xC8, 0xCC):
            # Depth, height, width, components and how each is sampled.
            for offset, size in ((4, 1), (5, 2), (7, 2), (9, 1), (10, 1), (11, 1), (13, 1), (14, 1)):
                found.number(at + offset, size, "big")
        elif marker in (0xC4, 0xDB):
            for offset in range(4, 24):
                found.number(at + offset, 1, "big")
        elif marker == 0xDA:
            for offset in range(4, 2 + length):
                found.number(at + offset, 1, "big")
        elif marker == 0xDD:
            found.number(at + 4, 2, "big")
        elif marker == 0xE1 and data[at + 4:at + 8] == b"Exif":
            read_tiff(data, at + 10, found)
        end = at + 2 + length
        if marker == 0xDA:
            # Coded bytes go on to the next marker that is none of the coding's own.
            while end + 1 < len(data) and (data[end] != 0xFF or data[end + 1] == 0 or 0xD0 <= data[end + 1] <= 0xD7):
                end += 1
        found.chunk(at, end)
        at = end


def read_png(data, found):
    at = 8
    while at + 12 <= len(data):
        length = struct.unpack_from(">I", data, at)[0]
        found.number(at, 4, "big")
        kind = data[at + 4:at + 8]
        if kind in (b"IHDR", b"acTL", b"fcTL", b"pHYs"):
            for offset in range(0, min(length, 24), 4):
                found.number(at + 8 + offset, 4, "big")
        if kind == b"IHDR":
            for offset in range(8, 13):
                found.number(at + 8 + offset, 1, "big")
        if kind == b"eXIf":
            read_tiff(data, at + 8, found)
        found.chunk(at, at + 12 + length)
        at += 12 + length


def read_gif(data, found):
    for offset in (6, 8):
        found.number(offset, 2, "little")
    for offset in (10, 11, 12):
        found.number(offset, 1, "little")
    at = 13 + (3 << (data[10] & 7) + 1 if data[10] & 0x80 else 0)
    while at < len(data) and data[at] in (0x21, 0x2C):
        start = at
        if data[at] == 0x2C:
            for offset in (1, 3, 5, 7):
                found.number(at + offset, 2, "little")
            flags = data[at + 9]
            at += 10 + (3 << (flags & 7) + 1 if flags & 0x80 else 0)
            found.number(at, 1, "little")
            at += 1
        else:
            at += 2
        while data[at]:
            found.number(at, 1, "little")
            at += 1 + data[at]
        at += 1
        found.chunk(start, at)


def read_iff(data, found):
    order, mark = ("little", "<") if data[:4] == b"RIFF" else ("big", ">")
    found.number(4, 4, order)
    at = 12
    while at + 8 <= len(data):
        length = struct.unpack_from(mark + "I", data, at + 4)[0]
        found.number(at + 4, 4, order)
        if data[at:at + 4] in (b"VP8 ", b"VP8L", b"VP8X", b"ANIM", b"ANMF", b"fmt ", b"COMM", b"ALPH", b"fact", b"SSND"):
            for offset in range(0, min(length, 32), 2):
                found.number(at + 8 + offset, 2, order)
            for offset in range(0, min(length, 32), 4):
                found.number(at + 8 + offset, 4, order)
        found.chunk(at, at + 8 + length + length % 2)
        at += 8 + length + length % 2


TIFF_SIZES = (1, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8)


def read_tiff(data, base, found):
    order, mark = ("little", "<") if data[base:base + 2] == b"II" else ("big", ">")
    found.number(base + 4, 4, order)
    waiting, seen = [struct.unpack_from(mark + "I", data, base + 4)[0]], set()
    while waiting and len(seen) < 10:
        table = waiting.pop()
        if table in seen:
            continue
        seen.add(table)
        count = struct.unpack_from(mark + "H", data, base + table)[0]
        found.number(base + table, 2, order)
        for entry in range(base + table + 2, base + table + 2 + 12 * count, 12):
            tag, kind, values, value = struct.unpack_from(mark + "HHII", data, entry)
            for offset, size in ((0, 2), (2, 2), (4, 4), (8, 4), (8, 2)):
                found.number(entry + offset, size, order)
            found.chunk(entry, entry + 12)
            size = TIFF_SIZES[min(kind, 12)]
            if size * values > 4:
                for offset in range(0, min(values, 8) * size, size):
                    found.number(base + value + offset, size, order)
            if tag in (0x8769, 0x8825, 0xA005):
                waiting.append(value)
        found.number(base + table + 2 + 12 * count, 4, order)


def read_bmp(data, found):
    for offset in (2, 10, 14, 18, 22, 30, 34, 38, 42, 46, 50):
        found.number(offset, 4, "little")
    for offset in (26, 28):
        found.number(offset, 2, "little")
    found.chunk(0, 14)
    found.chunk(14, 54)
    found.chunk(54, len(data))


CONTAINERS = (b"moov", b"trak", b"mdia", b"minf", b"stbl", b"udta", b"meta", b"ilst", b"iprp", b"ipco", b"jp2h", b"edts",
              b"dinf", b"iinf", b"iref", b"stsd", b"mp4a")
# Bytes between the head of a box and the boxes in it.
BEFORE_CONTENT = {b"meta": 4, b"iinf": 6, b"iref": 4, b"stsd": 8, b"mp4a": 28}


def read_boxes(data, at, end, found):
    while at + 8 <= end:
        length, kind = struct.unpack_from(">I", data, at)[0], data[at + 4:at + 8]
        found.number(at, 4, "big")
        length = length or end - at
        if length < 8:
            return
        found.chunk(at, at + length)
        inside = at + 8 + BEFORE_CONTENT.get(kind, 0)
        if kind in CONTAINERS or kind[:1] == b"\xA9":
            read_boxes(data, inside, min(end, at + length), found)
        elif kind == b"jp2c":
            read_codestream(data, at + 8, found)
        elif kind not in (b"mdat", b"free"):
            for offset in range(8, min(length - 4, 72), 2):
                found.number(at + offset, 4 if offset % 4 == 0 else 2, "big")
            for offset in range(8, min(length, 40)):
                found.number(at + offset, 1, "big")
        at += length


def read_codestream(data, at, found):
    start, at = at, at + 2
    while at + 4 <= len(data) and data[at] == 0xFF:
        marker, length = data[at + 1], struct.unpack_from(">H", data, at + 2)[0]
        found.number(at + 2, 2, "big")
        for offset in range(4, min(2 + length, 40), 4 if marker == 0x51 else 1):
            found.number(at + offset + (2 if marker == 0x51 else 0), 4 if marker == 0x51 else 1, "big")
        found.chunk(at, at + 2 + length)
        at += 2 + length
    found.chunk(max(start, at), len(data))


def read_caf(data, found):
    at = 8
    while at + 12 <= len(data):
        length = struct.unpack_from(">Q", data, at + 4)[0]
        found.number(at + 4, 8, "big")
        if data[at:at + 4] != b"data":
            for offset in range(0, min(length, 48), 4):
                found.number(at + 12 + offset, 4, "big")
        found.number(at + 12, 8, "big")
        found.chunk(at, at + 12 + min(length, len(data)))
        at += 12 + length


def read_flac(data, found):
    at, last = 4, False
    while at + 4 <= len(data) and not last:
        last, length = bool(data[at] & 0x80), int.from_bytes(data[at + 1:at + 4], "big")
        found.number(at, 1, "big")
        found.number(at, 4, "big")
        for offset in range(0, min(length, 40), 2):
            found.number(at + 4 + offset, 2, "big")
        for offset in range(0, min(length, 64), 4):
            found.number(at + 4 + offset, 4, "little")
        found.chunk(at, at + 4 + length)
        at += 4 + length
    found.chunk(at, len(data))


def read_ogg(data, found):
    at = 0
    while at + 27 <= len(data) and data[at:at + 4] == b"OggS":
        segments = data[at + 26]
        length = sum(data[at + 27:at + 27 + segments])
        for offset, size in ((4, 1), (5, 1), (6, 8), (14, 4), (18, 4), (26, 1), (27, 1)):
            found.number(at + offset, size, "little")
        body = at + 27 + segments
        for offset in range(0, min(length, 64), 4):
            found.number(body + offset, 4, "little")
        found.chunk(at, body + length)
        at = body + length


def read_mp3(data, found):
    at = 0
    if data[:3] == b"ID3":
        length = sum((data[6 + i] & 0x7F) << 7 * (3 - i) for i in range(4))
        found.number(3, 1, "big")
        found.number(5, 1, "big")
        found.number(6, 4, "big")
        found.chunk(0, 10 + length)
        at = 10
        while at + 10 <= 10 + length and data[at]:
            frame = struct.unpack_from(">I", data, at + 4)[0]
            found.number(at + 4, 4, "big")
            found.number(at + 8, 2, "big")
            found.number(at + 10, 1, "big")
            found.chunk(at, at + 10 + frame)
            at += 10 + frame
        at = 10 + length
    for offset in (1, 2, 3):
        found.number(at + offset, 1, "big")
    # The first frame may tell of all, in a table of its own.
    for offset in range(36, 180, 4):
        found.number(at + offset, 4, "big")
    found.chunk(at, len(data))


def repaired(data):
    """The file with its checksums right again, so that what was spoilt gets past them."""
    data = bytearray(data)
    if data[:8] == b"\x89PNG\r\n\x1A\n":
        at = 8
        while at + 12 <= len(data):
            length = struct.unpack_from(">I", data, at)[0]
            if at + 12 + length > len(data):
                break
            struct.pack_into(">I", data, at + 8 + length, zlib.crc32(data[at + 4:at + 8 + length]))
            at += 12 + length
    elif data[:4] == b"OggS":
        at = 0
        while at + 27 <= len(data) and data[at:at + 4] == b"OggS":
            end = at + 27 + data[at + 26] + sum(data[at + 27:at + 27 + data[at + 26]])
            if end > len(data):
                break
            data[at + 22:at + 26] = bytes(4)
            struct.pack_into("<I", data, at + 22, ogg_checksum(data[at:end]))
            at = end
    return bytes(data)


def ogg_table():
    table = []
    for byte in range(256):
        value = byte << 24
        for _ in range(8):
            value = value << 1 ^ (0x04C11DB7 if value & 0x80000000 else 0)
        table.append(value & 0xFFFFFFFF)
    return table


OGG_TABLE = ogg_table()


def ogg_checksum(data):
    value = 0
    for byte in data:
        value = (value << 8 & 0xFFFFFFFF) ^ OGG_TABLE[value >> 24 ^ byte]
    return value


def spoil_number(data, chance, found):
    offset, size, order = chance.choice(found.numbers)
    value = int.from_bytes(data[offset:offset + size], order)
    near = (value + 1, value - 1, value * 2, value // 2, len(data), value ^ 1 << chance.randrange(8 * size))
    made = chance.choice(EXTREMES[size] + PLAUSIBLE[size] + near)
    data[offset:offset + size] = (made % (1 << 8 * size)).to_bytes(size, order)
    return data


def spoil_neighbours(data, chance, found):
    """Two numbers in a row, such as width and height, become as large as they may well be."""
    first = chance.randrange(len(found.numbers))
    for offset, size, order in found.numbers[first:first + 2]:
        data[offset:offset + size] = chance.choice(PLAUSIBLE[size]).to_bytes(size, order)
    return data


def drop_chunk(data, chance, found):
    start, end = chance.choice(found.chunks)
    return data[:start] + data[end:]


def repeat_chunk(data, chance, found):
    start, end = chance.choice(found.chunks)
    times = chance.choice((1, 1, 2, 10, 100))
    return data[:end] + data[start:end] * min(times, LARGEST // (end - start) + 1) + data[end:]


def swap_chunks(data, chance, found):
    (a, b), (c, d) = sorted((chance.choice(found.chunks), chance.choice(found.chunks)))
    return data[:a] + data[c:d] + data[b:c] + data[a:b] + data[d:] if b <= c else data


def cut(data, chance, found):
    ends = [end for _, end in found.chunks]
    at = chance.choice(ends) + chance.choice((-1, 0, 1)) if ends and chance.random() < 0.5 else chance.randrange(len(data))
    return data[:max(at, 1)]


def flip_bits(data, chance, found):
    for _ in range(chance.choice((1, 1, 2, 4, 16))):
        data[chance.randrange(len(data))] ^= 1 << chance.randrange(8)
    return data


def fill(data, chance, found):
    start = chance.randrange(len(data))
    length = min(chance.choice((1, 4, 64, 1024)), len(data) - start)
    data[start:start + length] = bytes([chance.choice((0, 0xFF, 0x80, 0x7F, chance.randrange(256)))]) * length
    return data


def insert(data, chance, found):
    at = chance.randrange(len(data) + 1)
    return data[:at] + chance.randbytes(chance.choice((1, 2, 4, 100))) + data[at:]


def spliced(data, other, chance, found, of_other):
    """The head of one file and the tail of another, joined where chunks begin if they have such."""
    start = chance.choice(found.chunks)[0] if found.chunks else chance.randrange(len(data))
    rest = chance.choice(of_other.chunks)[0] if of_other.chunks else chance.randrange(len(other))
    return data[:start] + other[rest:]


WAYS = (spoil_number, spoil_number, spoil_number, spoil_number, spoil_neighbours, drop_chunk, repeat_chunk, swap_chunks, cut,
        flip_bits, flip_bits, fill, insert)


def spoilt(data, others, chance):
    """A file with one or a few things wrong in it; `others` are files that it may be spliced with."""
    made = bytearray(data)
    for _ in range(chance.choice((1, 1, 1, 2, 3))):
        found = structure_of(made)
        if chance.random() < 0.08:
            other = chance.choice(others)
            made = bytearray(spliced(made, other, chance, found, structure_of(other)))
        else:
            way = chance.choice(WAYS)
            needed = found.numbers if way in (spoil_number, spoil_neighbours) else found.chunks
            made = bytearray((way if needed else flip_bits)(made, chance, found))
        made = made[:LARGEST] or bytearray(1)
    return repaired(made) if chance.random() < 0.8 else bytes(made)
