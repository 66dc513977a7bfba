# SPDX-License-Identifier: MIT
"""A voice system that goes through calls while something is wrong with one of its processes; what must hold then."""

import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "hosts" / "demo"))
from processes import QUICK_RETRY, Unmet, own_address, until  # noqa: E402
from tables import left_files, targets  # noqa: E402

ROLES = {"application": "voice_application", "caller": "fxs_plugin", "callee": "fxs_plugin"}
SHORT = 3  # seconds until the people of the first call give up
REASONS = "refuses|rejected|failed|lost|cannot|no media|ended: [^0-9]|plays nothing|busy-tone|error"


class Wrong(Exception):
    """What must hold did not."""


def one_has_ended(processes):
    """Also one that is about to: its ends are closed before the kernel tells of it."""
    try:
        return until("a process ends", lambda: not all(process.running for process in processes), 2)
    except Unmet:
        return False


class Trial:
    """One run of a system in which one process, that of `role`, has a fault until it is started again. The fault is an
    environment, or words in front of its own."""

    def __init__(self, system, role, environment=None, prefix=(), patience=None):
        self.system, self.role = system, role
        self.environment, self.prefix = environment or {}, prefix
        self.patience = patience  # seconds until a process is ready
        settings = system.folder / "plan.conf"
        settings.write_text(f"address {own_address()}\n")
        self.words = {
            "application": ("voice_application", "--config", settings),
            "caller": ("fxs_plugin", "--name", "fxs1", "--lines", 1),
            "callee": ("fxs_plugin", "--name", "fxs2", "--lines", 1),
        }
        self.numbers = ("101", "201")
        self.processes = {}
        self.ended = False
        self.problem = None  # why the last call was none

    # -------------------------------------------------------------------------------------------- Processes

    def spawn(self, role, faulty):
        environment, words = {} if role == "application" else dict(QUICK_RETRY), self.words[role]
        if faulty and role == self.role:
            environment |= self.environment
            if self.prefix:
                words = (*self.prefix, self.system.bin / words[0], *words[1:])
        process = self.system.start(role, *words, environment=environment)
        self.processes[role] = process
        return process

    def start(self, role, faulty):
        process = self.spawn(role, faulty)
        ready = "^ready " if role == "application" else "^ready .*lines=1"
        until(f"{role} is ready or ends", lambda: process.out.since(0, ready) or not process.running, self.patience)

    def start_all(self):
        for role in ROLES:
            self.start(role, faulty=True)
            self.restart_ended()

    def restart_ended(self):
        """A process that has ended must have said why. It starts again, and this time nothing fails in it."""
        for role, process in list(self.processes.items()):
            if process.running:
                continue
            self.check_ended(role, process)
            self.start(role, faulty=False)

    def check_ended(self, role, process):
        status = process.wait()
        said = process.err.all + process.out.since(0, "^error")
        if role != self.role or status != 1 or not said:
            raise Wrong(f"{role} ended with status {status} and said: {said[-3:]}")
        self.ended = True

    def reasons(self):
        """What was said about failures."""
        rows = []
        for process in self.system.processes:
            rows += process.err.all
            rows += process.out.since(0, REASONS)
        return rows

    # -------------------------------------------------------------------------------------------- The call

    def lines(self):
        rows = self.processes["application"].ask("status")
        return {words[1]: words[2] for words in map(str.split, rows) if words[:1] == ["line"]}

    def wait_idle(self):
        until("all lines are idle", lambda: self.lines() == dict.fromkeys(self.numbers, "idle"), 15)

    def talk(self, limit):
        caller, callee = self.processes["caller"], self.processes["callee"]
        marks = caller.out.mark(), callee.out.mark()
        self.pause("at rest")
        caller.ask("1 off")
        caller.out.expect_from(marks[0], "^1 plays dial-tone$", limit)
        self.pause("dial tone")
        caller.ask("1 dial 201")
        caller.out.expect_from(marks[0], "^1 plays ring-back$", limit)
        callee.out.expect_from(marks[1], "^1 rings ", limit)
        self.pause("ringing")
        callee.ask("1 off")
        for process, mark in zip((caller, callee), marks):
            process.out.expect_from(mark, "^1 hears .*Hz$", limit)  # the other one's sound
        self.pause("talking")

    def pause(self, state):
        """For trials in which something happens in a state of the call."""

    def hang_up(self):
        for role in ("caller", "callee"):
            for row in self.processes[role].ask("status"):
                if " off hook" in row:
                    self.processes[role].ask(f"{row.split()[0]} on")

    def settle(self):
        """Both hang up and are idle, also when a process ends meanwhile and starts again."""
        while True:
            self.restart_ended()
            processes = list(self.processes.values())
            try:
                self.hang_up()
                return self.wait_idle()
            except (Unmet, OSError):
                if not one_has_ended(processes):
                    raise

    def call(self):
        """True: it was a whole call, with nothing left over."""
        held, processes = self.held_at_rest(), dict(self.processes)
        try:
            self.talk(SHORT)
            self.hang_up()
            self.wait_idle()
            self.wait_held(held)
            return True
        except (Unmet, OSError) as problem:
            self.problem = problem
        self.restart_ended()
        if processes == self.processes and not self.reasons():
            raise Wrong(f"nobody said why a call did not complete: {self.problem}")
        self.settle()
        return False

    def held_at_rest(self):
        """As held(), once it has stayed the same for a moment: connections of before may still be on their way out."""
        before = None
        while True:
            now = self.held()
            if now == before:
                return now
            before = now
            time.sleep(0.05)

    def wait_held(self, held):
        try:
            until("no descriptor is left over", lambda: self.held() == held)
        except Unmet as problem:
            raise Unmet(f"{problem}: {held} before, {self.held()} after") from None

    def held(self):
        """How many descriptors each process has. The clock of sound is made with the first sound and stays."""
        return {role: process.descriptors() for role, process in self.processes.items() if role == "application"} | {
            role: sum("socket" in target for target in targets(process))
            for role, process in self.processes.items()
            if role != "application"
        }

    def stop_all(self):
        for role in ("caller", "callee", "application"):
            self.end(role)
        left = left_files(self.system.folder)
        if left:
            raise Wrong(f"left behind: {left}")

    def end(self, role):
        process = self.processes[role]
        if not process.running:
            self.check_ended(role, process)
        elif process.terminate() not in ((0, 1) if role == self.role else (0,)):
            raise Wrong(f"{role} ended with status {process.child.returncode} when asked to")
