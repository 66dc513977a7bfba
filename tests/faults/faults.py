#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes one allocation or system call after the other fail, in each process of a voice system, over a complete call.

usage: ./test faults [--role ROLE] [--kind KIND] [--number N] [--sample N] [--seed S] [--jobs J]

  --role ROLE   only in this process: application, caller or callee
  --kind KIND   only calls of this kind: memory, send, receive, accept, connect, socket, bind, listen, epoll, timer,
                event, dup, lock, open, read or write
  --number N    only the N-th of them
  --sample N    so many of all, chosen by chance (default: all)
  --seed S      of the choice (1)
  --jobs J      systems at the same time (2)

In each run an application and two plugins start, line 101 calls 201, both talk with media and hang up, again and again
until it has happened, and everything ends; in one of the processes one call fails once. Then this must hold:

  - no process crashes or hangs; one that cannot start or go on ends with status 1 and says why;
  - the call that it happens in completes, or somebody says why it did not; the lines are idle again after both have
    hung up;
  - the next call completes, after a new start of what has ended;
  - each process holds as many descriptors after it as before, and ends when it is asked to.

Ends with status 1 when something else was seen; each such row shows how to run it again.
"""

import argparse
import collections
import concurrent.futures
import os
import random
import struct
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "hosts" / "demo"))
from processes import QUICK_RETRY, System, Unmet, own_address, until  # noqa: E402

KINDS = (
    "memory send receive accept connect socket bind listen epoll timer event dup lock open read write".split()
)  # in the order of their counters
ROLES = {"application": "voice_application", "caller": "fxs_plugin", "callee": "fxs_plugin"}
SHORT = 3  # seconds until the people of the first call give up
BUILD = Path(os.environ.get("VOICE_BUILD_DIR", "build"))


class Wrong(Exception):
    """What must hold did not."""


class Trial:
    """One run of a system with at most one fault."""

    def __init__(self, system, role, fault, preload):
        self.system, self.role, self.fault = system, role, fault
        self.counts = system.folder / "counts"
        self.preload = {
            "LD_PRELOAD": str(preload),
            "VOICE_FAULT_PROGRAM": ROLES[role],
            "VOICE_FAULT_COUNTS": str(self.counts),
            **({"VOICE_FAULT": fault} if fault else {}),
        }
        settings = system.folder / "plan.conf"
        settings.write_text(f"address {own_address()}\n")
        self.words = {
            "application": ("voice_application", "--config", settings),
            "caller": ("fxs_plugin", "--name", "fxs1", "--lines", 1),
            "callee": ("fxs_plugin", "--name", "fxs2", "--lines", 1),
        }
        self.processes = {}
        self.ended = False
        self.problem = None  # why the last call was none

    # -------------------------------------------------------------------------------------------- Processes

    def start(self, role, faulty):
        environment = {} if role == "application" else dict(QUICK_RETRY)
        if faulty and role == self.role:
            environment |= self.preload
        process = self.system.start(role, *self.words[role], environment=environment)
        self.processes[role] = process
        until(f"{role} is ready or ends", lambda: self.is_ready(process) or not process.running)

    def is_ready(self, process):
        # Its first line may be the one that could not be written.
        return process.out.since(0, "^ready ") or (self.fault or "").startswith("write:") and process.err.all

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
            rows += process.out.since(0, "refuses|rejected|failed|lost|cannot|no media|ended: [^0-9]|busy-tone|error")
        return rows

    # -------------------------------------------------------------------------------------------- The call

    def lines(self):
        rows = self.processes["application"].ask("status")
        return {words[1]: words[2] for words in map(str.split, rows) if words[:1] == ["line"]}

    def wait_idle(self):
        until("both lines are idle", lambda: self.lines() == {"101": "idle", "201": "idle"}, 15)

    def talk(self, limit):
        caller, callee = self.processes["caller"], self.processes["callee"]
        marks = caller.out.mark(), callee.out.mark()
        caller.ask("1 off")
        caller.out.expect_from(marks[0], "^1 hears dial-tone$", limit)
        caller.ask("1 dial 201")
        caller.out.expect_from(marks[0], "^1 hears ring-back$", limit)
        callee.out.expect_from(marks[1], "^1 rings ", limit)
        callee.ask("1 off")
        for process, mark in zip((caller, callee), marks):
            process.out.expect_from(mark, "^1 hears .*Hz$", limit)  # the other one's sound

    def hang_up(self):
        for role in ("caller", "callee"):
            if not any(row.startswith("1 on hook") for row in self.processes[role].ask("status")):
                self.processes[role].ask("1 on")

    def settle(self):
        """Both hang up and are idle, also when a process ends meanwhile and starts again."""
        while True:
            self.restart_ended()
            processes = list(self.processes.values())
            try:
                self.hang_up()
                return self.wait_idle()
            except (Unmet, OSError):
                if all(process.running for process in processes):
                    raise

    def call(self):
        """True: it was a whole call, with nothing left over."""
        held, processes = self.held(), dict(self.processes)
        try:
            self.talk(SHORT)
            self.hang_up()
            self.wait_idle()
            until("no descriptor is left over", lambda: self.held() == held)
            return True
        except (Unmet, OSError) as problem:
            self.problem = problem
        self.restart_ended()
        if processes == self.processes and not self.reasons():
            raise Wrong(f"nobody said why a call did not complete: {self.problem}")
        self.settle()
        return False

    def calls(self):
        """Calls until one has begun after the fault, and was a whole one. How many were not."""
        lost = 0
        for _ in range(4):
            struck = self.struck()
            whole = self.call()
            if struck and not whole:
                raise Wrong(f"a call after the fault did not complete: {self.problem}")
            if whole and (struck or not self.fault):
                break
            lost += not whole
        return lost

    def struck(self):
        """Whether the fault has happened."""
        if not self.fault or not self.counts.exists():
            return False
        kind, _, number = self.fault.partition(":")
        return self.read_counts()[kind] >= int(number)

    def read_counts(self):
        return dict(zip(KINDS, struct.unpack(f"={len(KINDS)}I", self.counts.read_bytes())))

    def held(self):
        """How many descriptors each process has. The clock of sound is made with the first sound and stays."""
        return {role: process.descriptors() for role, process in self.processes.items() if role == "application"} | {
            role: sum("socket" in target for target in targets(process))
            for role, process in self.processes.items()
            if role != "application"
        }

    def stop_all(self):
        for role in ("caller", "callee", "application"):
            process = self.processes[role]
            if not process.running:
                self.check_ended(role, process)
            elif process.terminate() not in ((0, 1) if role == self.role else (0,)):
                raise Wrong(f"{role} ended with status {process.child.returncode} when asked to")
        left = [path.name for path in self.system.folder.iterdir() if path.name == "bus"]
        if left:
            raise Wrong(f"left behind: {left}")

    def run(self):
        """What came of it: "unnoticed", "call lost", "started again" or "not reached"."""
        self.start_all()
        self.settle()
        lost = self.calls()
        self.stop_all()
        if self.fault and not self.struck():
            return "not reached"
        return "started again" if self.ended else "call lost" if lost else "unnoticed"


def targets(process):
    found = []
    for name in os.listdir(f"/proc/{process.pid}/fd"):
        try:
            found.append(os.readlink(f"/proc/{process.pid}/fd/{name}"))
        except FileNotFoundError:
            pass
    return found


def trial(role, fault, preload):
    """Outcome, counters of the process, and what all said when it went wrong."""
    with System(ROOT / BUILD / "bin") as system:
        one = Trial(system, role, fault, preload)
        try:
            outcome, said = one.run(), ""
        except (Wrong, Unmet, OSError) as problem:
            outcome, said = f"WRONG: {problem}", system.report()
        return outcome, one.read_counts() if one.counts.exists() else {}, said


def compile_preload(folder):
    folder.mkdir(parents=True, exist_ok=True)
    library = folder / "libvoice_failing_calls.so"
    source = Path(__file__).with_name("failing_calls.c")
    command = ["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-O1", "-fPIC", "-shared", "-o", library, source]
    subprocess.run(list(map(str, command)), check=True)
    return library


def plan(arguments, preload):
    """All faults to try: process, and kind:number."""
    found = []
    for role in ROLES:
        if arguments.role not in (None, role):
            continue
        outcome, counts, said = trial(role, None, preload)
        if outcome != "unnoticed":
            raise SystemExit(f"without any fault: {outcome}\n{said}")
        for kind in KINDS:
            if arguments.kind in (None, kind):
                found += [(role, f"{kind}:{number}") for number in range(1, counts[kind] + 1)]
    if arguments.number:
        found = [(role, fault) for role, fault in found if fault.endswith(f":{arguments.number}")]
    if arguments.sample and arguments.sample < len(found):
        found = random.Random(arguments.seed).sample(found, arguments.sample)
    return found


def report(results):
    outcomes = ["not reached", "unnoticed", "call lost", "started again", "WRONG"]
    print(f"{'process':13}{'kind':10}{'faults':>8}" + "".join(f"{outcome:>15}" for outcome in outcomes))
    for (role, kind), counts in sorted(results.items()):
        print(f"{role:13}{kind:10}{counts.total():8}" + "".join(f"{counts[outcome]:15}" for outcome in outcomes))


def main():
    parser = argparse.ArgumentParser(prog="./test faults", usage=__doc__, add_help=False)
    parser.add_argument("-h", "--help", action="store_true")
    parser.add_argument("--role", choices=ROLES)
    parser.add_argument("--kind", choices=KINDS)
    for name, default in [("number", None), ("sample", None), ("seed", 1), ("jobs", 2)]:
        parser.add_argument(f"--{name}", type=int, default=default)
    arguments = parser.parse_args()
    if arguments.help:
        print(__doc__.partition("\n\n")[2])
        return 0
    preload = compile_preload(ROOT / BUILD / "faults")
    begin = time.monotonic()
    results, wrong = collections.defaultdict(collections.Counter), 0
    with concurrent.futures.ProcessPoolExecutor(arguments.jobs) as pool:
        futures = {pool.submit(trial, role, fault, preload): (role, fault) for role, fault in plan(arguments, preload)}
        print(f"{len(futures)} faults", flush=True)
        for future in concurrent.futures.as_completed(futures):
            (role, fault), (outcome, _, said) = futures[future], future.result()
            kind, _, number = fault.partition(":")
            results[role, kind][outcome.partition(":")[0]] += 1
            if outcome.startswith("WRONG"):
                wrong += 1
                print(f"{outcome}\n    ./test faults --role {role} --kind {kind} --number {number}\n{said}", flush=True)
    report(results)
    total = sum(counts.total() for counts in results.values())
    print(f"{total} faults, {wrong} wrong, {time.monotonic() - begin:.0f} s")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
