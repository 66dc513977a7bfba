# SPDX-License-Identifier: MIT
"""Pictures of sound: which frequencies are how loud at which time, as a PNG, with nothing but the standard library."""

import array
import cmath
import math
import struct
import sys
import wave
import zlib

RATE = 8000  # Hz
HOP = 160  # samples between two columns of a picture: 20 ms
WINDOW = 256  # samples that a column is made of
ROWS = WINDOW // 2  # from 0 to 4000 Hz, 31.25 Hz each
QUIETEST, LOUDEST = -75.0, -15.0  # dB of full scale: the two ends of the colours

_SHAPE = [0.5 - 0.5 * math.cos(2 * math.pi * i / WINDOW) for i in range(WINDOW)]
_TURNS = {n: [cmath.exp(-2j * math.pi * k / n) for k in range(n // 2)] for n in (2**i for i in range(1, 9))}
# From black over violet and orange to a pale yellow.
_COLOURS = [(0, 0, 4), (62, 12, 96), (152, 38, 100), (229, 92, 48), (250, 182, 26), (252, 255, 190)]


def read(path):
    """The two channels of a recording: what is heard, what is said."""
    with wave.open(str(path)) as file:
        if (file.getnchannels(), file.getframerate(), file.getsampwidth()) != (2, RATE, 2):
            raise ValueError(f"two channels of 16 bits at {RATE} Hz are wanted")
        samples = array.array("h", file.readframes(file.getnframes()))
    if sys.byteorder == "big":
        samples.byteswap()
    return samples[0::2], samples[1::2]


def transform(values):
    """The discrete Fourier transform of as many values as a power of two."""
    count = len(values)
    if count == 1:
        return values
    even, odd = transform(values[0::2]), transform(values[1::2])
    turned = [turn * value for turn, value in zip(_TURNS[count], odd)]
    return [a + b for a, b in zip(even, turned)] + [a - b for a, b in zip(even, turned)]


def columns(left, right):
    """For each 20 ms, the loudness of each frequency in the two channels: 0 to 255, from 0 Hz on."""
    silent = bytes(ROWS)
    scale = 2 / (WINDOW * 0.5 * 32768)
    for at in range(0, max(len(left) - WINDOW, 0) + 1, HOP):
        one, other = left[at : at + WINDOW], right[at : at + WINDOW]
        if len(one) < WINDOW or not (any(one) or any(other)):
            yield silent, silent
            continue
        # Both channels at once: one as the real part, one as the imaginary part.
        both = transform([complex(a * w, b * w) for a, b, w in zip(one, other, _SHAPE)])
        pair = bytearray(), bytearray()
        for k in range(ROWS):
            mirrored = both[-k].conjugate()
            for row, value in zip(pair, (both[k] + mirrored, both[k] - mirrored)):
                level = 20 * math.log10(abs(value) / 2 * scale + 1e-9)
                row.append(max(0, min(255, round(255 * (level - QUIETEST) / (LOUDEST - QUIETEST)))))
        yield bytes(pair[0]), bytes(pair[1])


def _palette():
    shades = bytearray()
    for shade in range(256):
        place, part = divmod(shade * (len(_COLOURS) - 1), 255)
        after = _COLOURS[min(place + 1, len(_COLOURS) - 1)]
        shades += bytes(round(a + (b - a) * part / 255) for a, b in zip(_COLOURS[place], after))
    return bytes(shades)


def png(picture):
    """A picture, rows of shades from the top, as a PNG file's bytes."""

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    head = struct.pack(">IIBBBBB", len(picture[0]), len(picture), 8, 3, 0, 0, 0)
    rows = b"".join(b"\0" + row for row in picture)
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", head)
        + chunk(b"PLTE", _palette())
        + chunk(b"IDAT", zlib.compress(rows, 9))
        + chunk(b"IEND", b"")
    )


def pictures(left, right):
    """What is heard and what is said, each as the bytes of a PNG: a column for 20 ms, 4000 Hz at the top."""
    both = list(columns(left, right))
    return [png([bytes(pair[side][k] for pair in both) for k in reversed(range(ROWS))]) for side in (0, 1)]
