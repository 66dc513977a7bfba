# SPDX-License-Identifier: MIT
"""The rows of the table: what is measured, who does it besides, and how far from a peer's figure ours may be.

A goal is the largest ratio of ours to the peer's, both the smallest of a run; for senders and handlers, the most
nanoseconds that ours may take beyond the peer's; where the peer is a clock, the most nanoseconds at all. FASTEST is
whichever peer is fastest in the run.
"""

from dataclasses import dataclass

FASTEST = "the fastest"
CLOCK = "the clock"
BINDING = "binding on sd-bus"  # the same contract, platform/sdbus
MILLISECOND = 1e6


@dataclass(frozen=True)
class Row:
    path: str
    ours: str
    peers: dict  # peer: goal, or None when it is only shown
    is_difference: bool = False

    @property
    def is_time(self):
        return CLOCK in self.peers

    @property
    def what(self):
        return self.path if self.ours in ("library", "bundled bus") else f"{self.path}: {self.ours}"


def _own_cost(path):
    return Row(path, "library", {"the bare calls": 300}, is_difference=True)


PATHS = [
    Row("buffer add", "library", {"libmnl": 0.7, "C": 1.2}),
    Row("buffer walk", "library", {"libmnl": 0.3, "C": 1.2}),
    Row("buffer find", "library", {"libmnl": 0.3, "C": 1.2}),
    Row("name to identifier", "library", {"gperf": 1.0, "unordered_map": None, "binary search": None}),
    Row("name to identifier, unknown", "library", {"gperf": 1.0, "unordered_map": None, "binary search": None}),
    Row("identifier to name", "library", {FASTEST: 1.0, "unordered_map": None, "switch": None, "binary search": None}),
    Row(
        "identifier to name, unknown",
        "library",
        {FASTEST: 1.0, "unordered_map": None, "switch": None, "binary search": None},
    ),
    Row("data block encode", "library", {"table in C": 1.1, "printf and strtol": None}),
    Row("data block decode", "library", {"table in C": 1.1, "printf and strtol": None}),
    _own_cost("signal sender"),
    _own_cost("signal handler"),
    _own_cost("event sender"),
    _own_cost("event handler"),
    Row("trace message", "library", {"empty function": 2.0}),
    Row("trace marker", "library", {"empty function": 2.0}),
]

# The same on two processors, where the figures say more about the machine than about the bus: without goals.
BUS = [
    Row("round trip", "bundled bus", {"sd-bus": 0.55, BINDING: None, "raw socket": 1.15, "libdbus": None}),
    Row("with 3 descriptors", "bundled bus", {"sd-bus": 0.5, BINDING: None, "raw socket": None, "libdbus": None}),
    Row("without reply, 32 a turn", "bundled bus", {"sd-bus": 0.2, BINDING: None, "raw socket": 0.8, "libdbus": None}),
    Row("signal and event", "library", {"raw socket": 1.35}),
]

# Ours is what stands beside more of something, the peer the same with less of it. On two processors without goals, too.
ALONE = "1 plugin, 1 endpoint"
SIZES = [
    "1 plugin, 8 endpoints",
    "1 plugin, 32 endpoints",
    "2 plugins, 32 endpoints",
    "4 plugins, 32 endpoints",
    "8 plugins, 8 endpoints",
    "8 plugins, 32 endpoints",
]
SCALE = [
    *(Row("signal and event", size, {ALONE: 1.1}) for size in SIZES),
    *(Row("the same, processor time", size, {ALONE: 1.1}) for size in SIZES),
    Row("packet and answer", "8 processes on raw sockets", {"1 process on a raw socket": None}),
    Row("32 endpoints registered", "1 plugin", {CLOCK: 5 * MILLISECOND}),
    Row("all back after a restart", "8 plugins, 32 endpoints", {CLOCK: 50 * MILLISECOND}),
    Row("event comes after, half of them", "10,000 a second", {CLOCK: None}),
    Row("event comes after, 99 of 100", "10,000 a second", {CLOCK: None}),
    Row("event comes after, the last", "10,000 a second", {CLOCK: None}),
]
# A sixth more time is 15 % less throughput. Where the tap's client has no processor of its own, what it does with the
# records counts, too: then there is no goal.
TAP = Row("events, 32 a turn", "with a tap", {"without a tap": 1.17})
WATCHED = [
    Row("signal and event, watched", "with a tap", {"without a tap": None}),
    Row("events, 32 a turn", "with voicectl capture", {"without a tap": None}),
    Row("signal and event, watched", "with voicectl capture", {"without a tap": None}),
]
