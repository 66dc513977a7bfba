#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Kills a process of a voice system before and after each of its messages, and looks whether all comes back.

usage: ./test kills [RUNS] [--demo] [--role ROLE] [--kind KIND] [--when WHEN] [--number N] [--seed S] [--jobs J]

  RUNS          so many of all points, chosen by chance (default: all)
  --demo        at the messages that voicectl watch records of a demonstration with plugins of all kinds
  --role ROLE   only this process: application, caller or callee; with --demo fxs1, fxs2, dect1, fxo1 or dsp1
  --kind KIND   only at this kind of call: send or receive; with --demo only at messages that it sent or received
  --when WHEN   only before or after it
  --number N    only at the N-th of them
  --seed S      of the choice (1)
  --jobs J      systems at the same time (2)

In each run an application and two plugins start; 101 calls 201, takes 202 into the call, and all hang up. One of the
processes is killed (kill -9) at one of its messages and started again. Then this must hold:

  - the other processes live, and all lines are registered and idle once everybody has hung up;
  - application and plugins agree on the number of each endpoint;
  - the next call completes, and leaves as many descriptors open as there were before it;
  - at the end neither the socket is left, nor a lock that is held.

A demonstration goes further: handsets, an exchange line and DSP channels join, the codec changes, and all leave; there
the process is killed before or after it has sent a message, or handled one that it received.

Time between two attempts of a plugin to connect runs forty times as fast, in a demonstration four hundred times. Ends
with status 1 when something else was seen; each such row shows how to run it again.
"""

import collections
import random
import sys
import time
from functools import partial
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from failing_calls import FailingCall, compile_preload  # noqa: E402
from messages import PROGRAMS, Demonstration, points  # noqa: E402
from runs import parse, parser_of, side_by_side  # noqa: E402
from tables import EndpointTable, check_lock, differences  # noqa: E402
from trial import ROLES, SHORT, Wrong  # noqa: E402
from processes import System, Unmet, default_bin, until  # noqa: E402

KINDS = ("send", "receive", "sent", "received")
WHEN = ("before", "after")


class Kill(FailingCall):
    """A trial in which a process is killed at one of its messages; without a kind it only counts them."""

    def __init__(self, system, preload, role, kind=None, number=0, when="before"):
        super().__init__(system, preload, role, kind, number)
        self.environment["VOICE_FAULT_KILLS"] = when
        self.words["callee"] = ("fxs_plugin", "--name", "fxs2", "--lines", 2)
        self.numbers = ("101", "201", "202")

    def is_dead(self):
        return self.role in self.processes and not self.processes[self.role].running

    def has_died(self):
        """Asked when something is missing: its output ends a moment before the system says that it is dead."""
        try:
            until("it is dead", self.is_dead, 1)
        except Unmet:
            return False
        return True

    def start(self, role, faulty):
        process = self.spawn(role, faulty)
        ready = "^ready " if role == "application" else "^ready .*lines=[1-9]"
        until(f"{role} is ready", lambda: process.out.since(0, ready) or self.is_dead())

    def check_ended(self, role, process):
        if role != self.role or process.wait() != -9:
            raise Wrong(f"{role} ended with status {process.wait()}")
        self.ended = True

    def step(self, role, command, *hears):
        """Somebody does something, and somebody hears it, unless the one that is killed is dead by now."""
        if self.is_dead():
            return
        marks = {who: self.processes[who].out.mark() for who in ROLES}
        self.processes[role].ask(command)
        for who, what in hears:
            end = time.monotonic() + SHORT
            while not self.processes[who].out.since(marks[who], what) and not self.is_dead():
                if time.monotonic() > end:
                    raise Unmet(f"after '{command}' {who} never said /{what}/")
                time.sleep(0.005)

    def meet(self):
        """Call set-up, media, conference, and its end."""
        self.step("caller", "1 off", ("caller", "^1 plays dial-tone$"))
        self.step("caller", "1 dial 201", ("caller", "^1 plays ring-back$"), ("callee", "^1 rings "))
        self.step("callee", "1 off", ("caller", "^1 hears .*Hz$"), ("callee", "^1 hears .*Hz$"))
        self.step("caller", "1 flash", ("caller", "^1 plays dial-tone$"))
        self.step("caller", "1 dial 202", ("callee", "^2 rings "))
        self.step("callee", "2 off", ("application", "->202 answered"))
        self.step("caller", "1 flash", ("application", "^conference "), ("callee", "^2 hears .*Hz$"))
        for role, command in (("caller", "1 on"), ("callee", "1 on"), ("callee", "2 on")):
            self.step(role, command)

    def goes_on(self):
        """Whether the tables agree and the next call completes, with nobody dying in between."""
        try:
            until("the tables agree", lambda: not self.differences(), 10)
            return self.call()
        except (Unmet, OSError) as problem:
            died = self.has_died()
            self.problem = f"{problem} {'' if died else self.differences()}"
            if not died:
                raise Wrong(self.problem) from None
            self.settle()
            return False

    def differences(self):
        """Which endpoint numbers a plugin and the application do not agree on."""
        tables = {name: EndpointTable(self.processes[role]) for role, name in (("caller", "fxs1"), ("callee", "fxs2"))}
        return differences(self.processes["application"], tables)

    def run(self):
        self.start_all()
        try:
            if not self.is_dead():
                self.wait_idle()
            self.meet()
        except (Unmet, OSError):
            if not self.has_died():
                raise
        self.settle()
        if not self.kind:
            counts = self.read_counts()
            self.stop_all()
            return counts
        came_back = self.ended
        # The N-th message may only come now: no two runs are alike.
        if not self.goes_on() and (came_back or not self.ended or not self.goes_on()):
            raise Wrong(f"the next call did not complete: {self.problem}")
        came_back = self.ended
        self.stop_all()
        check_lock(self.system.socket)
        return "all came back" if came_back else "at its own end" if self.ended else "not reached"


def trial(run, preload, *point):
    """Outcome, and what all said when it went wrong; `run` is what goes through it."""
    with System() as system:
        try:
            return run(system, preload, *point).run(), ""
        except (Wrong, Unmet, OSError) as problem:
            return f"WRONG: {problem}", system.report()


def points_of_calls(arguments, preload):
    """Points of the system calls of a call with a conference: process, kind of call, number and when."""
    found = {}
    for role in ROLES:
        if arguments.role in (None, role):
            counts, said = trial(Kill, preload, role)
            if said:
                raise SystemExit(f"without any kill: {counts}\n{said}")
            for kind in ("send", "receive"):
                numbers = range(1, max(counts[kind], arguments.number or 0) + 1)
                found |= {(role, kind, number, when): kind for number in numbers for when in WHEN}
    return found


def plan(arguments, preload):
    """The points that were asked for, and what each is."""
    if arguments.demo:
        with System() as system:
            found = points(system)
    else:
        found = points_of_calls(arguments, preload)
    for place, wanted in enumerate((arguments.role, arguments.kind, arguments.number, arguments.when)):
        found = {point: what for point, what in found.items() if wanted in (None, point[place])}
    if arguments.runs and arguments.runs < len(found):
        found = dict(random.Random(arguments.seed).sample(list(found.items()), arguments.runs))
    return found


def main():
    parser = parser_of("kills")
    parser.add_argument("runs", type=int, nargs="?")
    parser.add_argument("--demo", action="store_true")
    parser.add_argument("--role", choices=(*ROLES, *PROGRAMS))
    parser.add_argument("--kind", choices=KINDS)
    parser.add_argument("--when", choices=WHEN)
    arguments = parse(parser, __doc__)
    if arguments is None:
        return 0
    preload = compile_preload(default_bin().parent / "faults")
    begin, wrong, results = time.monotonic(), 0, collections.Counter()
    run, chosen = Demonstration if arguments.demo else Kill, plan(arguments, preload)
    print(f"{len(chosen)} kills", flush=True)
    for point, (outcome, said) in side_by_side(arguments.jobs, partial(trial, run, preload), chosen):
        role, kind, number, when = point
        results[role, kind, when, outcome.partition(":")[0]] += 1
        if said:
            wrong += 1
            words = f"--role {role} --kind {kind} --when {when} --number {number}{' --demo' * arguments.demo}"
            print(f"{said}\n{when} {kind} {number}, {chosen[point]}: {outcome}\n    ./test kills {words}", flush=True)
    for (role, kind, when, outcome), count in sorted(results.items()):
        print(f"{role:13}{when:8}{kind:9}{outcome:16}{count:5}")
    print(f"{len(chosen)} kills, {wrong} wrong, seed {arguments.seed}, {time.monotonic() - begin:.0f} s")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
