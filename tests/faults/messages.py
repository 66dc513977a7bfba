# SPDX-License-Identifier: MIT
"""The messages of a demonstration as points at which one of their two processes is killed."""

import collections
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "soak"))
import calls  # noqa: E402
from house import House  # noqa: E402
import processes  # noqa: E402
from processes import Unmet  # noqa: E402
from tables import check_lock, left_files  # noqa: E402
from trial import Wrong  # noqa: E402

PROGRAMS = {  # in the order in which they join
    "fxs1": ("fxs_plugin", 2),
    "fxs2": ("fxs_plugin", 2),
    "dect1": ("dect_plugin", 2),
    "fxo1": ("fxo_plugin", 1),
    "dsp1": ("dsp_plugin", 0),
}
MESSAGES = ("call", "one_way_call", "reply")
ENDS = {"from": "sent", "to": "received"}


class Died(Unmet):
    """The process that is to be killed has been."""


class Demonstration(House):
    """A house that goes through what the demonstration shows, until one of its processes is killed."""

    incoming = "101"

    def __init__(self, system, preload=None, victim=None, kind=None, number=0, when=None):
        self.victim = victim
        environment = {
            "LD_PRELOAD": str(preload),
            "VOICE_FAULT_PROGRAM": PROGRAMS.get(victim, ("voice_application",))[0],
            "VOICE_FAULT": f"{kind}:{number}",
            "VOICE_FAULT_KILLS": str(when),
        }
        super().__init__(system, PROGRAMS, {victim: environment} if victim else {})
        self.names, self.joined, self.watcher = {}, [], None

    def is_dead(self):
        """Its ends are closed before the kernel tells of its end."""
        process = self.processes.get(self.victim)
        return process is not None and (process.out.closed or not process.running) and process.wait() is not None

    def start_process(self, name, *words, **options):
        process = super().start_process(name, *words, **options)
        self.names[process.pid] = name
        return process

    def miss(self, name, now):
        """Nobody waits for what others may have said of it already."""
        self.drop(self.processes.pop(name))

    def wait_said(self, process, mark, pattern, limit=None):
        """Not for ever, when the process that is killed was to cause it."""
        end = time.monotonic() + processes.PATIENCE
        while True:
            try:
                return super().wait_said(process, mark, pattern, 0.05)
            except Unmet:
                if self.is_dead():
                    raise Died from None
                if process.out.closed or time.monotonic() > end:
                    raise

    # ------------------------------------------------------------------------------------------------ What happens

    def join(self, name):
        self.joined.append(name)
        self.start_plugin(name, False)
        self.wait_said(self.processes[name], 0, "^ready ")

    def talk(self, caller, callee):
        call = calls.ring(self, self.line(caller), self.line(callee))
        calls.answer(self, call)
        return call

    def show(self):
        self.start_application()
        if self.victim is None:
            self.watcher = self.system.start_watcher()
        self.join("fxs1")
        self.join("fxs2")
        call = self.talk("101", "201")
        calls.change_codec(self, call, call.caller, "PCMU")
        calls.hold(self, call, call.caller)
        both = calls.conference(self, call, self.line("202"))
        calls.end_conference(self, both, both.lines())
        self.join("dect1")
        call = self.talk("501", "102")
        calls.end(self, call, call.caller)
        self.join("fxo1")
        self.exchange_calls()
        self.join("dsp1")
        self.drive_dsp()
        for name in (*PROGRAMS, "application"):
            self.leave(name)

    def exchange_calls(self):
        call = calls.call_from_outside(self, self.line("fxo1.FXO1"), self.line(self.incoming), "03012345678", False)
        calls.answer(self, call)
        calls.end(self, call, call.caller)

    def drive_dsp(self):
        now, dsp = self.now(), self.processes["dsp1"]
        self.application.ask("dsp dsp1")
        for channel in (1, 2):
            now.expect(dsp, f"^channel D[0-9]+C{channel} hears .*Hz$")
        self.application.ask("dsp dsp1 destroy")
        for channel in (1, 2):
            now.expect(dsp, f"^channel D[0-9]+C{channel} media ended ")

    # -------------------------------------------------------------------------------------------------- And after it

    def run(self):
        """What came of the kill."""
        try:
            self.show()
        except (Unmet, OSError):
            if not self.is_dead():
                raise
        if self.victim not in self.processes:
            return "not reached"
        self.come_back()
        self.call_again()
        for name in (*self.tables, "application"):
            self.leave(name)
        if left := left_files(self.system.folder):
            raise Wrong(f"left behind: {left}")
        check_lock(self.system.socket)
        return "all came back"

    def come_back(self):
        """It starts again, as those do that had left, and all lines rest."""
        status = self.processes[self.victim].wait()
        if status != -9:
            raise Wrong(f"{self.victim} ended with status {status}")
        self.environments.clear()
        self.end(self.victim)
        self.restart([name for name in ("application", *self.joined) if name not in self.processes])
        for line in self.lines:
            line.call = None
            if line.plugin in self.joined:
                line.bring_to_rest()
        self.wait_agreed()
        self.wait_states()

    def call_again(self):
        """The next calls of all that are there."""
        if "fxs2" in self.joined:
            call = self.talk("101", "201")
            calls.end(self, call, call.caller)
        if self.victim == "dect1":
            call = self.talk("501", "101")
            calls.end(self, call, call.caller)
        if self.victim == "fxo1":
            self.exchange_calls()
        if self.victim == "dsp1":
            self.drive_dsp()
        self.wait_states()


def points(system):
    """Those of a demonstration that nobody disturbs: process, kind, number and when; and which message each is."""
    house = Demonstration(system)
    house.show()
    house.watcher.wait()
    counts, found = collections.Counter(), {}
    for message in house.watcher.messages():
        if message["kind"] not in MESSAGES:
            continue
        record = message.get("record", {}).get("identifier", {}).get("name")
        for end, kind in ENDS.items():
            name = house.names[message[end]["pid"]]
            counts[name, kind] += 1
            for when in ("before", "after"):
                found[name, kind, counts[name, kind], when] = f"{message['kind']} {record or message['function']}"
    return found
