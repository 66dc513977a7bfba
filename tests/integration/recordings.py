# SPDX-License-Identifier: MIT
"""Files with sound, made and read without the code under test."""

import array
import sys
import wave

RATE = 8000


def write(path, samples, rate=RATE, channels=1, width=2):
    """A WAV file of whole numbers, in turn for each channel."""
    values = array.array({1: "B", 2: "h"}[width], samples)
    if sys.byteorder == "big":
        values.byteswap()
    with wave.open(str(path), "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(width)
        file.setframerate(rate)
        file.writeframes(values.tobytes())
    return path


def read(path):
    """What is heard and what is said, of a recording."""
    with wave.open(str(path)) as file:
        assert (file.getnchannels(), file.getframerate(), file.getsampwidth()) == (2, RATE, 2)
        data = file.readframes(file.getnframes())
        assert len(data) == file.getnframes() * 4
    values = array.array("h", data)
    if sys.byteorder == "big":
        values.byteswap()
    return values[0::2], values[1::2]


def labels(path):
    """Begin and end in seconds, and text, of each label."""
    rows = [row.split("\t") for row in path.read_text(encoding="utf-8").splitlines()]
    return [(float(begin), float(end), text) for begin, end, text in rows]
