# SPDX-License-Identifier: MIT
"""One part of a soak: a house, its strangers, and actions by chance until the time is up."""

import json
import random
import re
import time
from pathlib import Path

from accidents import STEADY, Accidents
from house import House
from lines import PROGRAMS
from processes import WITHOUT_TAP, Process, System, Unmet, until
from tables import check_lock, left_files
from target import BYTE_ORDER

REST = 40  # actions
CHANNEL_PORTS = 4  # of two DSP channels that talk to each other
PARTS = {1: 0.4, 2: 0.6}  # of the time: the application lives; it is killed, too
WEIGHTS = {
    "ring": 10,
    "ring_wideband": 2,
    "answer": 12,
    "give_up": 2,
    "end": 7,
    "end_conference": 3,
    "hold": 6,
    "resume": 5,
    "conference": 8,
    "codec": 2,
    "call_outside": 3,
    "call_from_outside": 3,
    "wrong_number": 1,
    "busy_number": 1,
    "messages": 1,
    "parameter": 1,
    "reach": 1,
    "dsp": 2,
    "mischief": 12,
    "kill": 24,
    "kill_in_a_call": 16,
    "kill_watcher": 1,
    "restart": 2,
    "restart_application": 2,
    "deregister": 1,
    "stop_plugin": 2,
    "stop_application": 2,
}


# What all are asked after each action is no news.
ASKED = re.compile(
    r"(line|plugin) |country |\S+ (connected|idle)$|\d+ (on|off) hook(, .*)?$|\d+ (type=|seized|rings in$)|channel|ok$"
)


class Stranger(Process):
    """The program strangers.py, with what it was told last."""

    def begin(self, house):
        self.house, self.word, self.mark = house, None, 0

    def tell_mischief(self, word):
        self.finish()
        self.word, self.mark, self.told_beside = word, self.out.mark(), self.house.application
        self.tell(word)

    def finish(self):
        """Waits until it has done what it was told."""
        if self.word is None:
            return
        row = self.out.expect_from(self.mark, f"^done {self.word} (.*)$", 120)[1][1]
        answer = json.loads(row)
        self.word = None
        if answer["wrong"] == "gone" or (answer["wrong"] and self.house.application is not self.told_beside):
            self.house.count("mischief cut off by a kill, or for want of a place")
        elif answer["wrong"]:
            raise Unmet(f"{self.name} told of '{row}'")
        for why in answer["refusals"]:
            self.house.count(re.sub(r"\d+", "N", why), table="strangers")


class Failed(Exception):
    """Something did not hold: what, the last actions, and what all processes said."""


class Run:
    def __init__(self, part, seed, samples=None):
        self.part, self.seed, self.samples = part, seed, samples
        self.random = random.Random(f"{seed} {part}")
        self.number = 0
        self.done, self.now = [], "start"

    def run(self, end, most):
        """Until a moment, or so many actions; the figures."""
        with System() as system:
            self.house = House(system)
            try:
                self.open()
                while time.monotonic() < end and (most is None or self.number < most):
                    self.step()
                self.close()
            except (Unmet, OSError) as problem:
                raise Failed(problem, self.last_actions(), self.report()) from problem
        return self.house.figures

    def open(self):
        self.strangers = []
        self.house.start()
        self.strangers = [] if WITHOUT_TAP else [self.start_stranger(number) for number in (1, 2)]
        victims = [name for name in PROGRAMS if name not in STEADY]
        victims = [*victims, "application"] if self.part == 2 else [name for name in victims if name != "dsp1"]
        self.actions = Accidents(self.house, self.random, self.strangers, victims)
        self.at_first = self.house.settled()
        self.take_the_most()
        self.reports = {}
        self.objects = self.house.objects()

    def take_the_most(self):
        """What strangers may make the application keep, at once and in the beginning: later on that is no growth."""
        for word in ("deaf", "crowd", "drop"):
            for stranger in self.strangers:
                stranger.tell_mischief(word)
            for stranger in self.strangers:
                stranger.finish()

    def start_stranger(self, number):
        words = ["/usr/bin/python3", "-B", Path(__file__).with_name("strangers.py"), self.house.system.socket]
        words += [f"{self.seed} {number}"]
        environment = {"VOICE_BYTE_ORDER": BYTE_ORDER}
        stranger = self.house.system.start(f"stranger{number}", *words, kind=Stranger, environment=environment)
        stranger.begin(self.house)
        self.house.record.strangers.add(stranger.pid)
        return stranger

    def step(self):
        self.number += 1
        begin = time.monotonic()
        what, text = self.act()
        self.done.append(f"{self.number:5} {what}: {text}")
        self.house.check()
        if what == "rest":
            self.check_rest()
        self.house.count(what, table="actions")
        self.house.count(what, time.monotonic() - begin, table="seconds")
        if self.samples:
            self.samples.take(self.house.processes)

    def act(self):
        """What was done: its name, and what it was in words."""
        self.now = "rest" if self.number % REST == 0 else "overdue"
        text = self.actions.rest() if self.now == "rest" else self.actions.overdue()
        return (self.now, text) if text else self.choose()

    def choose(self):
        while True:
            self.now = self.random.choices(list(WEIGHTS), WEIGHTS.values())[0]
            text = getattr(self.actions, self.now)()
            if text:
                return self.now, text

    def check_rest(self):
        """All have hung up: nothing is held that was not held at first."""
        for stranger in self.strangers:
            stranger.tell_mischief("drop")
            stranger.finish()
        wanted = dict(self.at_first)
        if self.actions.dsp_codec:
            wanted["dsp1"] = sorted(wanted["dsp1"] + ["socket"] * CHANNEL_PORTS)
        try:
            until("each process holds what it held at first", lambda: self.house.held() == wanted)
        except Unmet as problem:
            found = self.house.held()
            raise Unmet(
                f"{problem}: { {name: (wanted[name], found[name]) for name in wanted if wanted[name] != found[name]} }"
            ) from None
        if not WITHOUT_TAP:
            self.check_reports()
        ports = {"dsp1": CHANNEL_PORTS} if self.actions.dsp_codec else {}
        if self.house.ports() != ports:
            raise Unmet(f"media ports are open: {self.house.ports()}")
        objects = self.house.objects()
        if objects != self.objects:
            raise Unmet(f"the application has the objects {objects}, at first {self.objects}")

    def check_reports(self):
        """Since the last rest as many reports of media have arrived as were sent, of those that lived all the time."""
        house, base = self.house, self.reports
        if base.get("whose") != (house.application.pid, house.record.lost):
            house.wait_watched()  # those under way would count from now on
        whose = (house.application.pid, house.record.lost)

        def missing():
            found = house.reports()
            return [
                pid
                for pid, (said, came) in found.items()
                if base.get("whose") == whose and pid in base and said - base[pid][0] != came - base[pid][1]
            ]

        try:
            until("the reports of media are there", lambda: not missing())
        except Unmet as problem:
            raise Unmet(f"{problem}: {house.reports()}, at the last rest {base}") from None
        self.reports = {"whose": whose, **house.reports()}

    def close(self):
        self.actions.rest()
        self.house.check()
        self.check_rest()
        for name in (*PROGRAMS, "application"):
            self.house.leave(name)
        self.check_counts()
        if left := left_files(self.house.system.folder):
            raise Unmet(f"left behind: {left}")
        check_lock(self.house.system.socket)

    def check_counts(self):
        """No call that was made is forgotten."""
        house, record = self.house, self.house.record
        made, *ends = (house.figures["what", f"calls {word}"] for word in ("made", "completed", "given up", "cut off"))
        if made != sum(ends):
            raise Unmet(f"{made} calls were made, {ends} were completed, given up and cut off")
        house.count("messages to the application that a watcher saw", record.messages)
        house.count("users' events, each once and in order", record.compared)
        house.count("records that the watcher lost", record.lost)

    def last_actions(self):
        return "\n".join([*self.done[-10:], f"{self.number:5} {self.now}: failed"])

    def report(self):
        """What all have said last, but for what they are asked all the time."""
        parts = []
        for process in (*self.house.gone, *self.house.processes.values(), *self.strangers):
            rows = [row for row in process.out.all[-400:] if not ASKED.match(row)] + process.err.all[-20:]
            parts.append(f"--- {process.name} {process.pid}\n" + "\n".join(row[:200] for row in rows[-50:]))
        return "\n".join(parts)
