# SPDX-License-Identifier: MIT
"""The page about the recordings of a demonstration: each line's sound as a picture over time, with its labels under it
and a player above. One file, without scripts, that finds the recordings beside it.

  sound_page.py FOLDER    write FOLDER/index.html about all FOLDER/*.wav with FOLDER/*.labels.txt

What is no recording of a line is named on the page in place of its picture.
"""

import base64
import contextlib
import html
import os
import sys
import wave
from pathlib import Path
from urllib.parse import quote

import spectrogram

SECOND = 1000 // 20 * 2  # pixels: each column of 20 ms is two wide
HIGH = 128  # pixels of one picture
GAP = 18  # between what is heard and what is said
LEFT = 70  # for what stands beside the pictures
LABEL = 16  # of one row of labels
LABEL_ROWS = 16  # at most
CHARACTER = 6.2  # of a label, in pixels
LONGEST = 100_000  # seconds

PROGRAMS = (
    ("a browser", "this page; the players under each title"),
    ("sox, soxi", "soxi 101.wav; sox 101.wav -n spectrogram; sox 101.wav -n remix 1 stat -freq"),
    ("Audacity", "File, Import, Audio: 101.wav; then File, Import, Labels: 101.labels.txt"),
    ("ffmpeg", "ffplay 101.wav; ffmpeg -i 101.wav -lavfi showspectrumpic=s=1200x400 101.png"),
    ("aplay", "aplay 101.wav"),
)

HEAD = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>The lines of the demonstration</title>
<style>
body { font: 14px sans-serif; margin: 1.5em; background: #fff; color: #222; }
svg { display: block; max-width: none; }
svg text { font: 11px sans-serif; fill: #222; }
section { overflow-x: auto; margin-bottom: 2em; }
audio { display: block; margin: 0.5em 0; }
td { padding: 0.1em 1em 0.1em 0; vertical-align: top; }
</style>
</head>
<body>
<h1>The lines of the demonstration</h1>
<p>What each line heard and said, from 0 to 4000 Hz over time: dark is silent, bright is loud (from -75 to -15 dB of
full scale). Under it stands what happened. Each recording is a WAV file with two channels, 8000 Hz: left what is
heard, right what is said. Each begins when its plugin was registered.</p>
"""


def labels_read(path):
    """Begin and end in seconds, and text, in the order of their begin. A row that is none is left out."""
    labels = []
    for row in path.read_text(encoding="utf-8", errors="replace").splitlines() if path.is_file() else []:
        with contextlib.suppress(ValueError):
            begin, end, text = row.split("\t", 2)
            labels.append((float(begin), float(end), text))
    return sorted(label for label in labels if 0 <= label[0] <= label[1] < LONGEST)


def labels_place(labels):
    """Each label with the first row in which it meets no other one."""
    ends = []
    for begin, end, text in labels:
        left = LEFT + begin * SECOND
        right = LEFT + max(end * SECOND, begin * SECOND + len(text) * CHARACTER + 8)
        row = next((at for at, used in enumerate(ends) if used <= left), len(ends))
        if row == len(ends) and row < LABEL_ROWS:
            ends.append(0)
        row = min(row, LABEL_ROWS - 1)
        ends[row] = right
        yield row, left, begin, end, text


def picture_svg(data, top, title, seconds):
    encoded = base64.b64encode(data).decode()
    yield f'<text x="2" y="{top + HIGH / 2 + 4:g}">{title}</text>'
    yield f'<text x="{LEFT - 4}" y="{top + 9}" text-anchor="end">4 kHz</text>'
    yield f'<text x="{LEFT - 4}" y="{top + HIGH}" text-anchor="end">0</text>'
    yield (
        f'<image x="{LEFT}" y="{top}" width="{seconds * SECOND:g}" height="{HIGH}" preserveAspectRatio="none" '
        f'href="data:image/png;base64,{encoded}"><title>{title}</title></image>'
    )


def time_svg(seconds, top):
    for second in range(int(seconds) + 1):
        at = LEFT + second * SECOND
        yield f'<line x1="{at}" y1="{top}" x2="{at}" y2="{top + 4}" stroke="#222"/>'
        yield f'<text x="{at}" y="{top + 15}" text-anchor="middle">{second} s</text>'


def labels_svg(placed, top):
    for row, left, begin, end, text in placed:
        y = top + row * LABEL
        width = max((end - begin) * SECOND, 2)
        yield f'<rect x="{left:.1f}" y="{y}" width="{width:.1f}" height="{LABEL - 3}" fill="#bcd7f5"/>'
        yield f'<text x="{left + 4:.1f}" y="{y + 10}">{html.escape(text)}</text>'


def line_svg(left, right, labels):
    """The drawing of one line."""
    seconds = max(len(left) / spectrogram.RATE, 0.1)
    heard, said = spectrogram.pictures(left, right)
    placed = list(labels_place(labels))
    below = 2 * HIGH + GAP
    rows = max((row for row, *_ in placed), default=-1) + 1
    right_most = max((left + len(text) * CHARACTER for _, left, _, _, text in placed), default=0)
    wide, high = max(LEFT + seconds * SECOND, right_most) + 20, below + 24 + rows * LABEL
    yield f'<svg xmlns="http://www.w3.org/2000/svg" width="{wide:.0f}" height="{high}" role="img">'
    yield from picture_svg(heard, 0, "heard", seconds)
    yield from picture_svg(said, HIGH + GAP, "said", seconds)
    yield from time_svg(seconds, below)
    yield from labels_svg(placed, below + 24)
    yield "</svg>"


def section(path):
    """The rows about one recording."""
    name = html.escape(os.fsencode(path.stem).decode("utf-8", "replace"))
    yield f'<section id="line-{name}"><h2>{name}</h2>'
    try:
        left, right = spectrogram.read(path)
    except (OSError, EOFError, ValueError, wave.Error) as problem:
        yield f"<p>This is no recording of a line: {html.escape(str(problem) or 'it is empty')}.</p>"
    else:
        yield f'<audio controls preload="metadata" src="{quote(os.fsencode(path.name))}"></audio>'
        yield from line_svg(left, right, labels_read(path.with_suffix(".labels.txt")))
    yield "</section>"


def page(paths):
    """The rows of the page about recordings."""
    yield HEAD
    for path in paths:
        yield from section(path)
    yield "<h2>What reads them</h2><table>"
    for program, use in PROGRAMS:
        yield f"<tr><td>{program}</td><td><code>{html.escape(use)}</code></td></tr>"
    yield "</table></body></html>"


def write(folder, names=None):
    """Writes index.html about those of these names, or about all. @return its path"""
    index = folder / "index.html"
    paths = sorted(folder.glob("*.wav")) if names is None else [folder / f"{name}.wav" for name in names]
    index.write_text("\n".join(page(paths)) + "\n", encoding="utf-8", errors="replace")
    return index


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    print(write(Path(sys.argv[1])))
