# SPDX-License-Identifier: MIT
"""A process that lacks something for as long as it lives, or stands still for a while: how a trial with it goes."""

import functools
import socket
import subprocess
import threading

from processes import Lines, Unmet, until
from trial import Trial, Wrong

PATIENCE = 5  # seconds until a process that lacks something is given up
STOPPED = 1  # seconds that a process stands still
STATES = ("at rest", "dial tone", "ringing", "talking")


class Shortage(Trial):
    """A call with one process that lacks something; whatever comes of it, one without the lack works again."""

    def run(self):
        """What came of it: "unnoticed", "call lost" or "started again"."""
        whole = False
        try:
            self.start_all()
            self.settle()
            whole = self.call()
        except (Unmet, OSError) as problem:
            if not self.reasons():
                raise Wrong(f"nobody said why: {problem}") from None
        if not self.ended:
            self.end(self.role)
            self.start(self.role, faulty=False)
        for role in self.words:
            if role not in self.processes:
                self.start(role, faulty=False)
        self.settle()
        if not self.call():
            raise Wrong(f"without the lack a call did not complete: {self.problem}")
        self.stop_all()
        return "started again" if self.ended else "unnoticed" if whole else "call lost"


class FewDescriptors(Shortage):
    """Its table holds so many descriptors."""

    numbers = range(8, 65)

    def __init__(self, system, role, number):
        super().__init__(system, role, prefix=("/usr/bin/prlimit", f"--nofile={number}"), patience=PATIENCE)


UNIT = 64 * 1024  # of an address space


@functools.cache
def units_to_load(program):
    """The smallest address space in which the kernel and the loader get as far as the program's own code."""
    low, high = 1, 1024
    while low < high:
        middle = (low + high) // 2
        words = ["/usr/bin/prlimit", f"--as={middle * UNIT}", "/usr/bin/env", "LD_TRACE_LOADED_OBJECTS=1", program]
        if subprocess.run(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0:
            high = middle
        else:
            low = middle + 1
    return low


class LittleMemory(Shortage):
    """Its address space has so many times 64 KiB more than what it takes to load it: up to plenty."""

    numbers = range(48)

    def __init__(self, system, role, number):
        super().__init__(system, role, patience=PATIENCE)
        limit = (units_to_load(system.bin / self.words[role][0]) + number) * UNIT
        self.prefix = ("/usr/bin/prlimit", f"--as={limit}")

    def check_ended(self, role, process):
        if process.wait() == 127 and "error while loading shared libraries" in " ".join(process.err.all):
            self.ended = True  # it has never begun
        else:
            super().check_ended(role, process)


class ClosedStreams(Shortage):
    """Standard input (1), output (2), error output (4) or several of them are closed; commands come by another way."""

    numbers = range(1, 8)

    def __init__(self, system, role, number):
        closing = " ".join(f"{fd}<&-" for fd in range(3) if number & 1 << fd)
        super().__init__(system, role, prefix=("/bin/sh", "-c", f'exec "$@" {closing}', "sh"))
        self.path = system.folder / "control"
        self.words[role] += ("--control", self.path)
        self.control = None

    def start(self, role, faulty):
        if role != self.role or not faulty:
            return super().start(role, faulty)
        process = self.spawn(role, faulty)
        until(f"{role} listens or ends", lambda: self.reaches_control() or not process.running)
        if not process.running:
            return None
        process.child.stdin = self.control.makefile("wb")
        process.out = Lines(role, self.control.makefile("rb"))
        process.ask("watch")
        if role != "application":
            until(
                f"{role} is registered",
                lambda: "1 registered" in " ".join(self.processes[role].out.all) or self.idle(role),
            )
        return process

    def reaches_control(self):
        self.control = socket.socket(socket.AF_UNIX)
        return self.control.connect_ex(str(self.path)) == 0

    def idle(self, role):
        number = {"caller": "101", "callee": "201"}[role]
        return self.lines().get(number) == "idle"

    def end(self, role):
        super().end(role)
        self.control.close()


class StoodStill(Trial):
    """It stands still for a second in one of the states of a call, while the others go on."""

    numbers = range(len(STATES))

    def __init__(self, system, role, number):
        super().__init__(system, role)
        self.state = STATES[number]

    def pause(self, state):
        if state != self.state:
            return
        process = self.processes[self.role]
        process.freeze()
        threading.Timer(STOPPED, process.thaw).start()

    def run(self):
        """ "unnoticed": the very call completes."""
        self.start_all()
        self.settle()
        if not self.call():
            raise Wrong(f"a call did not complete: {self.problem}")
        self.state = None
        if not self.call():
            raise Wrong(f"the call after it did not complete: {self.problem}")
        self.stop_all()
        return "unnoticed"


SHORTAGES = {
    "descriptors": FewDescriptors,
    "memory-limit": LittleMemory,
    "streams": ClosedStreams,
    "stopped": StoodStill,
}
