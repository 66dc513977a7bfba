# SPDX-License-Identifier: MIT
"""The rows of the table: what is measured, who does it besides, and how far from a peer's figure ours may be.

A goal is the largest ratio of ours to the peer's, both the smallest of a run; for senders and handlers, the most
nanoseconds that ours may take beyond the peer's. FASTEST is whichever peer is fastest in the run.
"""

from dataclasses import dataclass

FASTEST = "the fastest"


@dataclass(frozen=True)
class Row:
    path: str
    ours: str
    peers: dict  # peer: goal, or None when it is only shown
    is_difference: bool = False


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
    Row("round trip", "bundled bus", {"sd-bus": 0.55, "raw socket": 1.15, "libdbus": None}),
    Row("with 3 descriptors", "bundled bus", {"sd-bus": 0.5, "raw socket": None, "libdbus": None}),
    Row("without reply, 32 a turn", "bundled bus", {"sd-bus": 0.2, "raw socket": 0.8, "libdbus": None}),
    Row("signal and event", "library", {"raw socket": 1.35}),
]
