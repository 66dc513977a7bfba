# SPDX-License-Identifier: MIT
"""What processes take over time: resident size and descriptors, once a second, and whether they grow."""

import itertools
import os
import time
from pathlib import Path

PAGE = os.sysconf("SC_PAGE_SIZE") // 1024  # KiB
SETTLED = 60  # seconds until a process has all that it keeps
SHORTEST = 120  # seconds after that in which a slope says something
MOST_SLOPE = 128  # KiB a minute
MOST_POINTS = 300  # of a life, for its slope


class Sample:
    def __init__(self, at, resident, descriptors):
        self.at, self.resident, self.descriptors = at, resident, descriptors


def slope(points):
    """The median of the slopes between any two of the points (x, y): of what grows all the time, not of one step, as a
    process makes when two strangers do for the first time at once what each of them may."""
    every = len(points) // MOST_POINTS + 1
    found = sorted((b[1] - a[1]) / (b[0] - a[0]) for a, b in itertools.combinations(points[::every], 2) if b[0] > a[0])
    return found[len(found) // 2] if found else 0.0


def mean(values):
    return sum(values) / len(values) if values else 0.0


class Samples:
    """By the name of a process, a list of its lives, each a list of samples."""

    def __init__(self):
        self.begin, self.last = time.monotonic(), 0
        self.lives, self.pids = {}, {}

    def take(self, processes):
        now = time.monotonic()
        if now - self.last < 1:
            return
        self.last = now
        for name, process in processes.items():
            resident = int(Path(f"/proc/{process.pid}/statm").read_text(encoding="ascii").split()[1]) * PAGE
            self.add(name, process.pid, Sample(now - self.begin, resident, process.descriptors()))

    def add(self, name, pid, sample):
        lives = self.lives.setdefault(name, [])
        if self.pids.get(name) != pid:
            self.pids[name] = pid
            lives.append([])
        lives[-1].append(sample)

    def slopes(self):
        """KiB a minute of each life that was long enough, with the name of its process."""
        for name, lives in self.lives.items():
            for life in lives:
                settled = [(one.at / 60, one.resident) for one in life if one.at - life[0].at >= SETTLED]
                if settled and settled[-1][0] - settled[0][0] >= SHORTEST / 60:
                    yield name, slope(settled)

    def growing(self):
        return [f"{name} grows by {found:.0f} KiB a minute" for name, found in self.slopes() if found > MOST_SLOPE]

    def rows(self):
        """A table: of each process the mean of its first minute, the last and the most, and its steepest slope."""
        steepest = {}
        for name, found in self.slopes():
            steepest[name] = max(found, steepest.get(name, found))
        yield f"{'process':12}{'lives':>6}  {'resident size, KiB':^24}{'KiB a':>8}  {'descriptors':^24}"
        three = "".join(f"{word:>8}" for word in ("first", "last", "most"))
        yield f"{'':20}{three}{'minute':>8}  {three}"
        for name, lives in self.lives.items():
            slope_text = f"{steepest[name]:.1f}" if name in steepest else "-"
            yield (
                f"{name:12}{len(lives):6}  {self.figures(lives, 'resident')}{slope_text:>8}  "
                f"{self.figures(lives, 'descriptors')}"
            )

    @staticmethod
    def figures(lives, kind):
        every = [one for life in lives for one in life]
        first = [getattr(one, kind) for one in every if one.at < SETTLED]
        return f"{mean(first):8.0f}{getattr(every[-1], kind):8}{max(getattr(one, kind) for one in every):8}"
