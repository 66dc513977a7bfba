# SPDX-License-Identifier: MIT
"""Whether events are lost, repeated or out of order: what voicectl watch has seen against what users did.

What can be seen from outside, and is held here:

  - A plugin numbers what it sends, from 1 on each connection. At the application each number is one more than the last.
  - Each user's event (off hook, on hook, flash, a digit, a number, a ring of the exchange with its caller) is there as
    often as it was caused, in the order in which the users of that plugin caused it, with the number or the caller.
  - What the telephones count of their media at its end arrives as often as they said it.

From the start of the application, or a watcher's, to its end; what a process that was killed had not sent yet may be
missing at the end of its own row. Records that the watcher itself has lost are counted, and begin the rows anew.
"""

import collections
import json
import os
import threading
import time

import processes
from processes import Unmet

FUNCTIONS = "register_plugin deregister_plugin register_endpoint deregister_endpoint event".split()
EVENT = "LIBVOICE_EVENT_"
USERS_EVENTS = ("al_of", "al_on", "al_fl", "fxo_ri", "fxo_rh")  # and all of the package dd
STATISTICS = "zil_call_stats"


def item(record, name):
    """The value of the item of a record whose name ends so; None without one."""
    return next((one["value"] for one in record["items"] if one["name"].endswith(name)), None)


def event_text(record):
    """A user's event in short, with what it carries; None for another one."""
    name = record["identifier"]["name"].removeprefix(EVENT)
    if name == "dd_ce":
        return f"dd_ce {item(record, 'dd_ce_ds')}"
    if name == "fxo_ri":
        return f"fxo_ri {item(record, 'fxo_ri_cid').get('number')}"
    if name == "al_of" and item(record, "al_of_init") is not None:
        return None  # told after a registration, by the plugin itself
    return name if name in USERS_EVENTS or name.startswith("dd_") else None


class Record:
    """The rows of each plugin process, by its number."""

    def __init__(self):
        self.changed = threading.Condition()
        self.application = None  # number of the process whose messages count
        self.strangers = set()  # numbers of processes that number as they like
        self.lost = 0  # records that the watcher said it had lost
        self.messages = self.compared = 0
        self.wrong = None
        self.begin()

    def begin(self, application=None):
        """Everything anew: another application, or a gap."""
        with self.changed:
            self.application = application or self.application
            self.last = {}  # serial by process and connection
            self.seen = collections.defaultdict(list)
            self.expected = collections.defaultdict(list)
            self.reports = collections.Counter()
            self.dead = set()
            self.rung = {}  # the caller that an exchange line told of last, by process and endpoint
            self.given = {}  # endpoint numbers by process and name, as far as a watcher saw them given
            self.gap = False
            self.marks = set()

    # ------------------------------------------------------------------------------------ What the watcher has seen

    def take(self, line):
        """One line of the watcher, on the thread that reads it."""
        with self.changed:
            try:
                self.take_message(json.loads(line))
            except (KeyError, TypeError, ValueError) as problem:
                self.wrong = self.wrong or f"{problem!r} in the watcher's {line}"
            self.changed.notify_all()

    def take_message(self, message):
        self.messages += 1
        if message["kind"] == "lost":
            self.lost += message["lost"]
            self.gap = True
        elif message["to"]["pid"] == self.application and message["kind"] in ("connected", "call", "one_way_call"):
            self.take_from(message["from"]["pid"], message)
        elif message["from"]["pid"] == self.application and message.get("function") == "register_endpoint":
            self.given[message["to"]["pid"], message["to"].get("endpoint")] = message["result"]

    def take_from(self, pid, message):
        if pid in self.strangers:
            if pid == os.getpid() and message["kind"] == "call":
                self.marks.add(message["arguments"]["plugin_name"])
            return
        where = (pid, message["from"]["connection"])
        if message["kind"] == "connected":
            self.last[where] = 0
            return
        last, serial = self.last.get(where), message["serial"]
        if last is not None and serial != last + 1 and not self.gap:
            self.wrong = self.wrong or f"message {serial} of process {pid} came after message {last}: {message}"
        self.last[where] = serial
        if message["function"] == "event":
            self.take_event(pid, message["record"])

    def take_event(self, pid, record):
        if record["identifier"]["name"] == EVENT + STATISTICS:
            self.reports[pid] += 1
        text = event_text(record)
        if text and not self.rings_on(pid, record["endpoint"], text):
            self.seen[pid].append((record["endpoint"], text))

    def rings_on(self, pid, endpoint, text):
        """Each ring of a call is told; the first one is what a user did. No two callers have the same number."""
        if not text.startswith("fxo_ri "):
            return False
        before, self.rung[pid, endpoint] = self.rung.get((pid, endpoint)), text
        return before == text

    # ---------------------------------------------------------------------------------------------- What users did

    def expect(self, pid, endpoint, *events):
        """A user has caused these, at the endpoint of this number."""
        with self.changed:
            self.expected[pid] += [(endpoint, event) for event in events]

    def difference(self):
        """What is wrong, "" when nothing is; with it whether waiting may help."""
        if self.wrong:
            return self.wrong, False
        for pid in self.expected.keys() | self.seen.keys():
            wanted, seen = self.expected[pid], self.seen[pid]
            may_come = seen == wanted[: len(seen)]
            if seen != wanted and not (may_come and pid in self.dead):
                return f"process {pid} should have sent {wanted[:12]}, it sent {seen[:12]}", may_come
        return "", False

    def check(self, limit=None):
        """Waits until all that was expected is there; an error when something else is, or when it does not come."""
        end = time.monotonic() + (limit or processes.PATIENCE)
        with self.changed:
            while True:
                what, may_come = self.difference()
                if self.gap or not what:
                    break
                left = end - time.monotonic()
                if not may_come or left <= 0:
                    raise Unmet(f"events: {what}")
                self.changed.wait(left)
            for pid in self.seen.keys() - self.dead:
                self.compared += len(self.seen[pid])
                self.seen[pid].clear()
                self.expected[pid].clear()
            return not self.gap

    def started(self, pid):
        """The number belongs to a new process now."""
        with self.changed:
            self.dead.discard(pid)
            self.seen.pop(pid, None)
            self.expected.pop(pid, None)
            self.given = {key: number for key, number in self.given.items() if key[0] != pid}

    def killed(self, pid):
        """A process has ended without warning: what it still had to send may be missing, or be seen later."""
        with self.changed:
            self.dead.add(pid)

    def wait_mark(self, mark, limit=None):
        """Until the watcher has seen what a stranger calls by this name: all that was sent before is seen, too."""
        with self.changed:
            if not self.changed.wait_for(lambda: mark in self.marks, limit or processes.PATIENCE):
                raise Unmet(f"the watcher has not seen the mark '{mark}'")
