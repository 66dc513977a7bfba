#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes one allocation or system call after the other fail, in each process of a voice system, over a complete call.

usage: ./test faults [--role ROLE] [--kind KIND] [--number N] [--sample N] [--seed S] [--jobs J]

  --role ROLE   only in this process: application, caller or callee
  --kind KIND   only calls of this kind: memory, send, receive, accept, connect, socket, bind, listen, epoll, timer,
                event, dup, lock, open, read or write, which fail once; or descriptors, memory-limit, streams or
                stopped, which last: the table of descriptors holds N, the address space N times 64 KiB more than
                loading takes, standard streams are closed (1 input, 2 output, 4 error output, and their sums), or
                the process stands still for a second in the N-th state of the call
  --number N    only the N-th of them
  --sample N    so many of all, chosen by chance (default: all)
  --seed S      of the choice (1)
  --jobs J      systems at the same time (2)

In each run an application and two plugins start, line 101 calls 201, both talk with media and hang up, again and again
until it has happened, and everything ends; in one of the processes one call fails once, or something is amiss all the
time. Then this must hold:

  - no process crashes or hangs; one that cannot start or go on ends with status 1 and says why;
  - the call that it happens in completes, or somebody says why it did not; the lines are idle again after both have
    hung up;
  - the next call completes, after a new start of what has ended;
  - each process holds as many descriptors after it as before, and ends when it is asked to.

Ends with status 1 when something else was seen; each such row shows how to run it again.
"""

import collections
import random
import sys
import time
from functools import partial
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from failing_calls import KINDS, FailingCall, compile_preload  # noqa: E402
from runs import parse, parser_of, side_by_side  # noqa: E402
from shortages import SHORTAGES  # noqa: E402
from trial import ROLES, Wrong  # noqa: E402
from processes import System, Unmet, default_bin  # noqa: E402


def trial(preload, role, kind=None, number=0):
    """Outcome, and what all said when it went wrong; without a kind the counts of a run in which nothing fails."""
    with System() as system:
        shortage = SHORTAGES.get(kind)
        one = shortage(system, role, number) if shortage else FailingCall(system, preload, role, kind, number)
        try:
            outcome = one.run()
            return outcome, "" if kind else one.read_counts()
        except (Wrong, Unmet, OSError) as problem:
            return f"WRONG: {problem}", system.report()


def plan(arguments, preload):
    """All faults to try: process, kind and number."""
    found = []
    for role in ROLES:
        if arguments.role not in (None, role):
            continue
        if arguments.kind not in SHORTAGES:
            outcome, counts = trial(preload, role)
            if outcome != "unnoticed":
                raise SystemExit(f"without any fault: {outcome}\n{counts}")
            for kind in KINDS:
                found += [(role, kind, n) for n in range(1, max(counts[kind], arguments.number or 0) + 1)]
        found += [(role, kind, number) for kind, shortage in SHORTAGES.items() for number in shortage.numbers]
    if arguments.kind:
        found = [fault for fault in found if fault[1] == arguments.kind]
    if arguments.number is not None:
        found = [fault for fault in found if fault[2] == arguments.number]
    if arguments.sample and arguments.sample < len(found):
        found = random.Random(arguments.seed).sample(found, arguments.sample)
    return found


def report(results):
    outcomes = ["not reached", "unnoticed", "call lost", "started again", "WRONG"]
    print(f"{'process':13}{'kind':13}{'faults':>8}" + "".join(f"{outcome:>15}" for outcome in outcomes))
    for (role, kind), counts in sorted(results.items()):
        print(f"{role:13}{kind:13}{counts.total():8}" + "".join(f"{counts[outcome]:15}" for outcome in outcomes))


def main():
    parser = parser_of("faults")
    parser.add_argument("--role", choices=ROLES)
    parser.add_argument("--kind", choices=[*KINDS, *SHORTAGES])
    arguments = parse(parser, __doc__, "sample")
    if arguments is None:
        return 0
    preload = compile_preload(default_bin().parent / "faults")
    begin = time.monotonic()
    results, wrong = collections.defaultdict(collections.Counter), 0
    faults = plan(arguments, preload)
    print(f"{len(faults)} faults", flush=True)
    for (role, kind, number), (outcome, said) in side_by_side(arguments.jobs, partial(trial, preload), faults):
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
