# SPDX-License-Identifier: MIT
"""Balance after many complete calls: every descriptor, every byte of heap and every packet accounted for.

As a test a few rounds run. By hand, any number of calls, with the figures:

    PYTHONPATH=hosts/demo /usr/bin/python3 tests/integration/balance_test.py --calls 1000 [--convert-media]
"""

import argparse
import re
import time
from collections import Counter

import pytest

from dialling import start_telephones
from media import (
    EXACT_HEAP,
    FORMS,
    FRAME_BYTES,
    REPORT,
    STATISTICS,
    held,
    is_heap_kept,
    numbers,
    settled_heap,
    start_application,
)
from processes import System, until

LINES = 9  # of each plugin: so many calls at a time, before 110, which no telephone has
TEST_CALLS = 50
# Each telephone speaks its own tone; the tones of a plugin repeat after five lines.
CALLER_TONE, CALLEE_TONE, TONE_STEP, TONE_CYCLE = 1000, 2200, 40, 5


def tone(lowest, line):
    return f"{lowest + (line - 1) % TONE_CYCLE * TONE_STEP}Hz"


class Exchange:
    """An application and two plugins whose lines call each other pairwise, all at a time."""

    def __init__(self, system, form):
        system.environment |= EXACT_HEAP
        self.application = start_application(system, *FORMS[form])
        self.callers, self.callees = start_telephones(system, *FORMS[form], lines=LINES)
        self.hosts = {
            "voice_application": self.application,
            "calling plugin": self.callers,
            "called plugin": self.callees,
        }
        self.calls = 0
        self.packets = Counter()

    def everybody(self, process, pattern, lines, mark):
        """Every line of a plugin has said something since a mark."""
        for line in lines:
            process.out.expect_from(mark[process], pattern(line))

    def round(self, count):
        """So many calls at the same time, from the first off hook to the statistics."""
        lines = range(1, count + 1)
        mark = {process: process.out.mark() for process in self.hosts.values()}

        def all_do(process, command):
            for line in lines:
                process.tell(command(line))

        def all_end(process):  # and their answers do not come into later questions
            for line in lines:
                process.ask(f"{line} on")

        all_do(self.callers, lambda line: f"{line} off")
        self.everybody(self.callers, lambda line: f"^{line} plays dial-tone$", lines, mark)
        all_do(self.callers, lambda line: f"{line} dial {200 + line}")
        self.everybody(self.callees, lambda line: f"^{line} rings ", lines, mark)
        self.everybody(self.callers, lambda line: f"^{line} plays ring-back$", lines, mark)
        all_do(self.callees, lambda line: f"{line} off")
        # Each hears the other, and so packets have come through both ways.
        self.everybody(self.callers, lambda line: f"^{line} hears {tone(CALLEE_TONE, line)}$", lines, mark)
        self.everybody(self.callees, lambda line: f"^{line} hears {tone(CALLER_TONE, line)}$", lines, mark)
        all_end(self.callers)
        self.everybody(self.callees, lambda line: f"^{line} plays busy-tone$", lines, mark)
        all_end(self.callees)
        for line in lines:
            self.application.out.expect_from(mark[self.application], f"^line {100 + line} idle$")
            self.application.out.expect_from(mark[self.application], f"^line {200 + line} idle$")
            self.application.out.expect_from(mark[self.application], rf"^stats call=\d+ line={100 + line} ")
            self.application.out.expect_from(mark[self.application], rf"^stats call=\d+ line={200 + line} ")
        for process in (self.callers, self.callees):
            self.everybody(process, lambda line: f"^{line} media ended ", lines, mark)
        self.calls += count
        self.add_up(mark, count)

    def add_up(self, mark, count):
        """What the telephones counted is what was reported; nothing was received that was not sent."""
        said = self.application.out.since(mark[self.application], "^stats ")
        reports = [numbers(REPORT.search(line)) for line in said]
        ended = [
            line
            for process in (self.callers, self.callees)
            for line in process.out.since(mark[process], " media ended ")
        ]
        counted = [numbers(STATISTICS.search(line)) for line in ended]
        self.packets["late"] += sum(int(re.search(r" late=(\d+) ", line)[1]) for line in ended)
        self.packets["overruns"] += sum(int(re.search(r" overruns=(\d+) ", line)[1]) for line in said)
        assert len(reports) == len(counted) == 2 * count
        for name in ("tx", "rx", "lost", "discarded"):
            assert sum(row[name] for row in reports) == sum(row[name] for row in counted), name
            self.packets[name] += sum(row[name] for row in counted)
        for row in reports:
            assert row["tx"] > 0 and row["rx"] > 0, row
            assert (row["txbytes"], row["rxbytes"]) == (row["tx"] * FRAME_BYTES, row["rx"] * FRAME_BYTES)

    def figures(self):
        """Descriptors and heap of each process."""
        return {name: (len(held(host)), settled_heap(host)) for name, host in self.hosts.items()}

    def holds_no_more_than(self, before):
        """Whether calls have left each process with as many descriptors and, but for some rests, as much heap."""
        return all(
            len(held(host)) == before[name][0] and is_heap_kept(host, before[name][1])
            for name, host in self.hosts.items()
        )


def run(system, form, calls):
    """Calls in rounds, after one that is not measured: the figures before and after, the exchange, its duration."""
    exchange = Exchange(system, form)
    exchange.round(LINES)
    before = exchange.figures()
    exchange.calls, exchange.packets = 0, Counter()
    begin = time.monotonic()
    while exchange.calls < calls:
        exchange.round(min(LINES, calls - exchange.calls))
    seconds = time.monotonic() - begin
    assert exchange.application.calls() == {}
    assert {state for state, _, _ in exchange.application.lines().values()} == {"idle"}
    until("every process is what it was before", lambda: exchange.holds_no_more_than(before))
    return before, exchange.figures(), exchange, seconds


@pytest.mark.parametrize("form", FORMS)
def test_calls_leave_nothing_behind(system, form):
    _, _, exchange, _ = run(system, form, TEST_CALLS)
    assert exchange.calls == TEST_CALLS
    assert exchange.packets["lost"] == 0
    # A busy machine makes some.
    assert exchange.packets["discarded"] == exchange.packets["late"] + exchange.packets["overruns"]
    assert 0 < exchange.packets["rx"] <= exchange.packets["tx"]


def main():
    parser = argparse.ArgumentParser(description="Complete calls on real processes, and what they leave behind.")
    parser.add_argument("--calls", type=int, default=1000)
    parser.add_argument("--convert-media", action="store_true")
    options = parser.parse_args()
    with System() as system:
        before, after, exchange, seconds = run(
            system, "addresses" if options.convert_media else "descriptors", options.calls
        )
    packets = exchange.packets
    print(f"{exchange.calls} calls, {LINES} at a time, in {seconds:.1f} s")
    for name, (descriptors, heap) in before.items():
        print(
            f"{name}: descriptors {descriptors} before, {after[name][0]} after; "
            f"heap {heap} bytes before, {after[name][1]} after"
        )
    print(
        f"packets: {packets['tx']} sent, {packets['rx']} received, {packets['lost']} lost, "
        f"{packets['discarded']} discarded, "
        f"{packets['tx'] - packets['rx']} sent after the peer had closed"
    )


if __name__ == "__main__":
    main()
