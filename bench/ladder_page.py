#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How fast the page of voicectl ladder opens and scrolls in Chromium: ladder_page.py BIN [MESSAGES ...]

For each number of messages (20,000 and 100,000): how long voicectl takes to make the page, and its size; how long the
browser takes from the address to the first picture; the time between two pictures while it scrolls by a third of the
screen each; and how long a filter takes. BIN is the folder of voicectl.
"""

import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests" / "integration"), str(ROOT / "tool" / "tests")]
from browser import Browser  # noqa: E402
from traffic_samples import evening_of  # noqa: E402

FRAMES = 300
SCROLL = f"""(async () => {{
  const scroll = document.getElementById("scroll"), took = [];
  let before = await new Promise(requestAnimationFrame);
  for (let i = 0; i < {FRAMES}; i++) {{
    scroll.scrollTop += i % 100 === 99 ? scroll.scrollHeight / 4 : 260;
    const now = await new Promise(requestAnimationFrame);
    took.push(now - before);
    before = now;
  }}
  return took.sort((a, b) => a - b);
}})()"""
OPENING = """(() => {
  const paint = performance.getEntriesByType("paint").find(one => one.name === "first-contentful-paint");
  return Math.max(performance.getEntriesByType("navigation")[0].loadEventEnd, paint ? paint.startTime : 0);
})()"""
FILTER = """(() => {
  const query = document.getElementById("query"), took = [];
  for (const words of ["al_of", "ring hs1"]) {
    const before = performance.now();
    query.value = words;
    query.oninput();
    took.push(performance.now() - before);
  }
  return took;
})()"""


def measure(programs, messages, folder):
    capture, page = folder / f"{messages}.pcapng", folder / f"{messages}.html"
    capture.write_bytes(evening_of(messages).file())
    before = time.monotonic()
    subprocess.run([programs / "voicectl", "ladder", capture, "-w", page], check=True)
    made = time.monotonic() - before
    browser = Browser(folder / f"browser{messages}")
    try:
        before = time.monotonic()
        browser.open(page.as_uri())
        opened = time.monotonic() - before
        inside = browser.run(OPENING)
        frames = browser.run(SCROLL)
        first, second = browser.run(FILTER)
    finally:
        browser.close()
    print(
        f"{messages:,} messages: made in {made:.2f} s, {page.stat().st_size / messages:.0f} bytes each; "
        f"open in {opened:.2f} s ({inside:.0f} ms by the browser); scrolls at {frames[FRAMES // 2]:.1f} ms, "
        f"95 % {frames[FRAMES * 95 // 100]:.1f} ms, at most {frames[-1]:.1f} ms; "
        f"filter {first:.0f} ms at first, then {second:.0f} ms; console: {browser.said or 'empty'}"
    )


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__.splitlines()[0])
    with tempfile.TemporaryDirectory() as scratch:
        for number in map(int, sys.argv[2:] or ["20000", "100000"]):
            measure(Path(sys.argv[1]), number, Path(scratch))
