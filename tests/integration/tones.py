# SPDX-License-Identifier: MIT
"""The tones of the network as tables have them, and what samples say of them, with nothing of the hosts in it."""

import math
import re
import subprocess
from collections import namedtuple
from pathlib import Path

import pytest

from target import struct

RATE = 8000
LEVEL = -13  # dBm0, of each frequency
# ITU-T G.711, table 5: this row of A-law bytes is a sine of 0 dBm0. Decoded they are 8960 and 20992.
PEAK = math.sqrt(8960**2 + 20992**2)

Element = namedtuple("Element", "frequencies modulates level ms")
Tone = namedtuple("Tone", "elements again")
# As administrations and ITU-T E.180's supplement have them; 0 is silence, without ms it does not end.
COLUMNS = ["dial-tone", "ring-back", "busy-tone", "congestion-tone", "call-waiting-tone"]
ROWS = """
FR | 440 | 440/1500,0/3500 | 440/500,0/500 | 440/250,0/250 | 440/300,0/10000
DE | 425 | 425/1000,0/4000 | 425/480,0/480 | 425/240,0/240 | !425/200,!0/200,!425/200,!0/1000,425/200,0/200,425/200,0/5000
GB | 350+440 | 400+450/400,0/200,400+450/400,0/2000 | 400/375,0/375 | 400/400,0/350,400@6/225,0/525 | 400/100,0/4000
US | 350+440 | 440+480/2000,0/4000 | 480+620/500,0/500 | 480+620/250,0/250 | 440/300,0/10000
CH | 425 | 425/1000,0/4000 | 425/500,0/500 | 425/200,0/200 | 425/200,0/200,425/200,0/4000
SE | 425 | 425/1000,0/5000 | 425/250,0/250 | 425/250,0/750 | 425/200,0/500,425/200,0/9100
IT | 425/200,0/200,425/600,0/1000 | 425/1000,0/4000 | 425/500,0/500 | 425/200,0/200 | 425/400,0/100,425/250,0/100,425/150,0/14000
ES | 425 | 425/1500,0/3000 | 425/200,0/200 | 425/200,0/200,425/200,0/200,425/200,0/600 | 425/175,0/175,425/175,0/3500
NL | 425 | 425/1000,0/4000 | 425/500,0/500 | 425/250,0/250 | 425/500,0/9500
BE | 425 | 425/1000,0/3000 | 425/500,0/500 | 425/167,0/167 | 1400/175,0/175,1400/175,0/3500
AU | 413+438 | 400+450/400,0/200,400+450/400,0/2000 | 425/375,0/375 | 425/375,0/375,425@-10/375,0/375 | 425/200,0/200,425/200,0/4400
JP | 400 | 400*16/1000,0/2000 | 400/500,0/500 | 400/500,0/500 | 400*16/500,0/8000
BR | 425 | 425/1000,0/4000 | 425/250,0/250 | 425/250,0/250,425/750,0/250 | 425/50,0/1000
"""  # noqa: E501
INFORMATION = "950/330,1400/330,1800/330,0/1000"
COUNTRIES = [row.split(" ", 1)[0] for row in ROWS.strip().splitlines()]


def sources():
    """The tone of each country and word, of those that tables have by country."""
    table = {}
    for row in ROWS.strip().splitlines():
        country, *cells = row.split(" | ")
        table.update({(country, word): cell for word, cell in zip(COLUMNS, cells)})
        table[country, "sit-tone"] = INFORMATION.replace("950", "900") if country == "BE" else INFORMATION
    return table


def page():
    """The same of all tones that the page of the line has, by the page's names."""
    text = (Path(__file__).resolve().parents[2] / "docs" / "line.md").read_text(encoding="utf-8")
    table = {}
    for name, pattern, countries in re.findall(r"^\| ([a-z-]+) \| `([^`]+)` \| ([A-Z!, ]+) \|$", text, re.M):
        table.update({(country.split()[0], name): pattern for country in countries.split(", ")})
    return table


def tone(text):
    """The elements of a pattern, and the first one that is repeated."""
    elements, again = [], 0
    for part in text.split(","):
        again += part.startswith("!")
        match = re.fullmatch(r"!?(\d+)(?:([+*])(\d+))?(?:@(-?\d+))?(?:/(\d+))?", part)
        first, kind, second, louder, ms = match.groups()
        frequencies = [int(one) for one in (first, second) if one and int(one) > 0]
        elements.append(Element(frequencies, kind == "*", LEVEL + int(louder or 0), int(ms or 0)))
    return Tone(elements, again)


def timeline(one, ms):
    """Begin and end in ms of each element, until a moment; the last one may be cut."""
    at, place, rows = 0, 0, []
    while at < ms:
        element = one.elements[place]
        end = at + element.ms if element.ms else ms
        rows.append((at, min(end, ms), element, end <= ms))
        at, place = end, place + 1
        if place == len(one.elements):
            place = one.again
    return rows


def render(program, folder, words=()):
    """What a telephone hears of each tone of each country, or of those with these words: samples, and what it says."""
    numpy = pytest.importorskip("numpy", reason="python3-numpy is not installed")
    file = folder / "tones.raw"
    said = subprocess.run([program, file, *words], check=True, capture_output=True, text=True).stdout
    samples, data, at = {}, file.read_bytes(), 0
    while at < len(data):
        end = data.index(b"\n", at)
        country, word, count = data[at:end].decode().split()
        samples[country, word] = numpy.frombuffer(data, struct.form("=i2"), int(count), end + 1)
        at = end + 1 + 2 * int(count)
    heard = {}
    for line in said.splitlines():
        words = line.split()
        if words[0] in COUNTRIES:
            now = heard.setdefault((words[0], words[1]), [])
        elif line.startswith("1 hears "):
            now.append(line.removeprefix("1 hears "))
    return samples, heard
