# SPDX-License-Identifier: MIT
"""One call of one process that fails once: the library that is preloaded for it, and how a trial with it goes."""

import os
import struct
import subprocess
import sys
from pathlib import Path

from trial import ROLES, Trial, Wrong

KINDS = "memory send receive accept connect socket bind listen epoll timer event dup lock open read write".split()
ORDER = ">" if os.environ.get("VOICE_BYTE_ORDER", sys.byteorder) == "big" else "<"  # of the counters
COUNTED = (*KINDS, "sent", "received")  # in the order of their counters; the last two are messages of the bus


def compile_preload(folder):
    """Makes the library that is preloaded, for the processor of the programs, in a folder that is made too."""
    folder.mkdir(parents=True, exist_ok=True)
    library = folder / "libvoice_failing_calls.so"
    source = Path(__file__).with_name("failing_calls.c")
    compiler = os.environ.get("VOICE_CC", "cc")
    command = [compiler, "-std=c11", "-Wall", "-Wextra", "-Werror", "-O1", "-fPIC", "-shared", "-o", library, source]
    subprocess.run(list(map(str, command)), check=True)
    return library


class FailingCall(Trial):
    """A trial in which the N-th call of a kind fails; without a fault it only counts them."""

    def __init__(self, system, preload, role, kind=None, number=0):
        self.counts = system.folder / "counts"
        environment = {
            "LD_PRELOAD": str(preload),
            "VOICE_FAULT_PROGRAM": ROLES[role],
            "VOICE_FAULT_COUNTS": str(self.counts),
        }
        if kind:
            environment["VOICE_FAULT"] = f"{kind}:{number}"
        super().__init__(system, role, environment)
        self.kind, self.number = kind, number

    def read_counts(self):
        return dict(zip(COUNTED, struct.unpack(f"{ORDER}{len(COUNTED)}I", self.counts.read_bytes())))

    def struck(self):
        """Whether it has failed."""
        return bool(self.kind) and self.counts.exists() and self.read_counts()[self.kind] >= self.number

    def calls(self):
        """Calls until one has begun after the fault, and was a whole one. How many were not."""
        lost = 0
        for _ in range(4):
            struck = self.struck()
            whole = self.call()
            if struck and not whole:
                raise Wrong(f"a call after the fault did not complete: {self.problem}")
            if whole and (struck or not self.kind):
                break
            lost += not whole
        return lost

    def run(self):
        """What came of it: "unnoticed", "call lost", "started again" or "not reached"."""
        self.start_all()
        self.settle()
        lost = self.calls()
        self.stop_all()
        if self.kind and not self.struck():
            return "not reached"
        return "started again" if self.ended else "call lost" if lost else "unnoticed"
