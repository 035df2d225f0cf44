"""Photos that say which they are: a pattern of light and dark cells that survives scaling, compression and a screen.

A mark is the number of a photo from 1 to 255. Its picture has 8 columns, the bits of a number, and 4 rows: the mark, its
complement, and both again with every second bit turned over. A picture that is not a whole mark reads as None.
"""

import colorsys

COLUMNS, ROWS = 8, 4
# What separates light from dark, and how far from it a cell must be to count: video and scaling blur and round.
MIDDLE, CONTRAST = 128, 40


def row_values(mark):
    return [mark, mark ^ 0xFF, mark ^ 0xAA, mark ^ 0x55]


def bits_of(mark):
    """For each cell, row by row, whether it is light."""
    return [bool(value >> (COLUMNS - 1 - column) & 1) for value in row_values(mark) for column in range(COLUMNS)]


def mark_of(luminances):
    """The mark that cells of these luminances (0 to 255, row by row) show, or None."""
    if any(abs(value - MIDDLE) < CONTRAST for value in luminances):
        return None
    bits = [value > MIDDLE for value in luminances]
    mark = int("".join("01"[bit] for bit in bits[:COLUMNS]), 2)
    return mark if mark and bits == bits_of(mark) else None


def mark_in_picture(luminance, left, top, width, height):
    """The mark in a rectangle of a picture; `luminance(x, y)` gives a pixel."""
    values = []
    for row in range(ROWS):
        for column in range(COLUMNS):
            # Nine points around the middle of the cell.
            values.append(sum(luminance(left + int((column + across) * width / COLUMNS), top + int((row + down) * height / ROWS))
                              for across in (0.4, 0.5, 0.6) for down in (0.4, 0.5, 0.6)) / 9)
    return mark_of(values)


def picture_of(mark, width, height):
    """A photo of a mark as a PPM file's bytes. Colours differ as well, for who looks at it."""
    hue = mark * 0.382 % 1
    light = bytes(round(255 * value) for value in colorsys.hsv_to_rgb(hue, 0.15, 1))
    dark = bytes(round(255 * value) for value in colorsys.hsv_to_rgb(hue, 1, 0.2))
    bits = bits_of(mark)
    rows = []
    for row in range(ROWS):
        line = b"".join((light if bits[row * COLUMNS + x * COLUMNS // width] else dark) for x in range(width))
        first, last = row * height // ROWS, (row + 1) * height // ROWS
        rows.append(line * (last - first))
    return b"P6 %d %d 255\n" % (width, height) + b"".join(rows)
