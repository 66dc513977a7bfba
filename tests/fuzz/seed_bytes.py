# SPDX-License-Identifier: MIT
"""Bytes of seeds as support/input.h reads them, and of records as they travel."""

import csv
import struct
from pathlib import Path

VOCABULARY = Path(__file__).resolve().parents[2] / "vocabulary" / "ids.csv"


def identifiers():
    with VOCABULARY.open(encoding="utf-8", newline="") as file:
        return {row["name"]: int(row["number"], 0) for row in csv.DictReader(file)}


IDS = identifiers()


def byte(*values):
    return bytes(values)


def half(value):
    return struct.pack("<H", value)


def word(value):
    return struct.pack("<I", value & 0xFFFFFFFF)


def text(value):
    """A text or bytes with its length before it."""
    value = value.encode() if isinstance(value, str) else value
    return (byte(len(value)) if len(value) < 255 else byte(255) + half(len(value))) + value


def item(name, value):
    """An item of a parameter buffer as it travels."""
    return word(IDS[name]) + word(len(value)) + value + bytes(-len(value) % 4)


def data_block(kind, *items):
    """A caller-display block as text."""
    body = b"".join(byte(number, len(value)) + value for number, value in items)
    block = byte(kind, len(body)) + body
    return (block + byte(sum(block) % 256)).hex().upper().encode()
