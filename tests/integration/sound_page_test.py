# SPDX-License-Identifier: MIT
"""The page about recordings that the demonstration leaves: what its pictures show, and that a browser shows it."""

import contextlib
import html
import math
import os
import re
import struct
import urllib.parse
import zlib

import pytest

import recordings
import sound_page
import spectrogram
from browser import Browser, browser_path

HEARD, SAID = 1000, 2500  # Hz
# What a page shows once all of it is loaded: sizes of its pictures, seconds of its players, texts of its drawings.
LOOK = """(async () => {
  const pictures = [...document.querySelectorAll("svg image")].map(image => new Promise(done => {
    const copy = new Image();
    copy.onload = () => done([copy.naturalWidth, copy.naturalHeight]);
    copy.onerror = () => done(null);
    copy.src = image.getAttribute("href");
  }));
  const players = [...document.querySelectorAll("audio")].map(player => new Promise(done => {
    const tell = () => done(player.duration);
    player.onerror = () => done(null);
    player.readyState > 0 ? tell() : player.onloadedmetadata = tell;
  }));
  const texts = [...document.querySelectorAll("svg text")].map(text => text.textContent);
  return [await Promise.all(pictures), await Promise.all(players), texts];
})()"""


def tone(frequency, count):
    return [round(8000 * math.sin(2 * math.pi * frequency * i / 8000)) for i in range(count)]


@pytest.fixture
def folder(tmp_path):
    """One line that heard a tone for a second and was then silent, and said another one meanwhile."""
    heard, said = tone(HEARD, 8000) + [0] * 8000, [0] * 8000 + tone(SAID, 8000)
    recordings.write(tmp_path / "101.wav", [value for pair in zip(heard, said) for value in pair], channels=2)
    rows = [(0.25, 1.5, "off hook"), (0.5, 0.5, 'displays name="<b>Aunt</b>" & more'), (0.5, 0.6, "talking")]
    labels = "".join(f"{begin:012.6f}\t{end:012.6f}\t{text}\n" for begin, end, text in rows)
    (tmp_path / "101.labels.txt").write_text(labels)
    recordings.write(tmp_path / "102.wav", [], channels=2)
    return tmp_path


def png_rows(data):
    """The rows of a PNG of one byte for each pixel, read by its own rules."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, body = 8, b""
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        chunk = data[at + 8 : at + 8 + length]
        assert struct.unpack_from(">I", data, at + 8 + length)[0] == zlib.crc32(kind + chunk)
        if kind == b"IHDR":
            width, height = struct.unpack_from(">II", chunk)
        body += chunk if kind == b"IDAT" else b""
        at += 12 + length
    rows = zlib.decompress(body)
    assert len(rows) == (width + 1) * height
    return [rows[row * (width + 1) + 1 : (row + 1) * (width + 1)] for row in range(height)]


def brightest(rows, column):
    """The frequency that is loudest in a column, in Hz; None: it is silent."""
    shades = [row[column] for row in rows]
    return (len(rows) - 1 - shades.index(max(shades))) * 4000 / len(rows) if max(shades) > 100 else None


def test_pictures_show_each_channel_at_its_frequency_and_time(folder):
    heard, said = map(png_rows, spectrogram.pictures(*spectrogram.read(folder / "101.wav")))
    seconds = len(heard[0]) * spectrogram.HOP / spectrogram.RATE
    assert seconds == pytest.approx(2, abs=0.05)
    assert brightest(heard, 25) == pytest.approx(HEARD, abs=32)
    assert brightest(heard, 75) is None
    assert brightest(said, 25) is None
    assert brightest(said, 75) == pytest.approx(SAID, abs=32)


def test_loudness_is_that_of_the_sound(folder):
    """A sine with a quarter of the largest amplitude is -12 dB of full scale, louder than the brightest shade."""
    heard, _ = spectrogram.read(folder / "101.wav")
    for factor, level in ((1, -12.25), (0.1, -32.25), (0.01, -52.25)):
        samples = [round(value * factor) for value in heard]
        rows = png_rows(spectrogram.pictures(samples, samples)[0])
        shade = max(row[25] for row in rows)
        shown = spectrogram.QUIETEST + shade / 255 * (spectrogram.LOUDEST - spectrogram.QUIETEST)
        assert shown == pytest.approx(min(level, spectrogram.LOUDEST), abs=1)


def test_labels_do_not_cover_each_other(folder):
    labels = sound_page.labels_read(folder / "101.labels.txt")
    rows = [row for row, *_ in sound_page.labels_place(labels)]
    assert rows == [0, 1, 2]
    many = [(0.0, 0.0, "x")] * 100
    assert max(row for row, *_ in sound_page.labels_place(many)) < sound_page.LABEL_ROWS


def test_texts_of_labels_are_texts(folder):
    page = sound_page.write(folder).read_text()
    assert "<b>" not in page and html.escape('"<b>Aunt</b>" & more') in page


def test_other_files_are_named_and_the_rest_is_shown(folder):
    recordings.write(folder / "203.wav", [1, 2, 3])
    (folder / "204.wav").write_text("Dear aunt,")
    (folder / "205.wav").touch()
    (folder / "206.wav").mkdir()
    page = sound_page.write(folder).read_text()
    named = re.findall(r"<h2>(\d+)</h2>\n<p>This is no recording of a line: (.*)</p>", page)
    assert [name for name, _ in named] == ["203", "204", "205", "206"]
    assert named[0][1] == "two channels of 16 bits at 8000 Hz are wanted."
    assert page.count("<audio") == 2
    assert sound_page.write(folder, ["101"]).read_text().count("<section") == 1


def test_rows_that_are_no_labels_are_left_out(folder):
    file = folder / "101.labels.txt"
    good = file.read_bytes()
    for row in (
        b"00000.1",
        b"0\t1",
        b"a\tb\tc",
        b"2\t1\tturned",
        b"nan\tnan\tx",
        b"0\tinf\tx",
        b"-1\t0\tx",
        b"\xff\xfe",
    ):
        file.write_bytes(good + row)
        assert len(sound_page.labels_read(file)) == 3, row
        sound_page.write(folder)


@pytest.mark.parametrize("name", ["a b", "a#b", "a%20b", "a?b", "<b>", "a\"b'", "\xfc", "\udcff"])
def test_names_of_files_are_addresses(folder, name):
    recordings.write(folder / f"{name}.wav", [0, 0], channels=2)
    page = sound_page.write(folder, [name]).read_text()
    (address,) = re.findall('<audio [^>]*src="(.*?)"', page)
    found = urllib.parse.unquote_to_bytes(urllib.parse.urlsplit(html.unescape(address)).path)
    assert os.fsdecode(found) == f"{name}.wav"
    assert "<b></h2>" not in page


@pytest.mark.skipif(not browser_path(), reason="chromium is not installed")
def test_a_browser_shows_pictures_players_and_labels(folder):
    page = sound_page.write(folder)
    with contextlib.closing(Browser(folder / "browser")) as browser:
        browser.open(page.as_uri())
        pictures, players, texts = browser.run(LOOK)
    assert pictures[:2] == [[99, 128], [99, 128]], pictures
    assert players[0] == pytest.approx(2, abs=0.1)
    assert {"heard", "said", "0 s", "1 s", "2 s", "off hook", "talking"} <= set(texts)
    assert 'displays name="<b>Aunt</b>" & more' in texts
