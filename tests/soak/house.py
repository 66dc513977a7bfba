# SPDX-License-Identifier: MIT
"""A whole house: the application, eight plugins of all kinds with 32 lines, two watchers."""

import collections
import os
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("hosts/demo", "tests", "tests/faults", "tests/integration")]
import processes  # noqa: E402
from media import held, udp_sockets  # noqa: E402
from lines import INCOMING, OUTGOING, PROGRAMS, Line, Moment  # noqa: E402
from processes import WITHOUT_TAP, Application, Unmet, own_address, until  # noqa: E402
from record import FUNCTIONS, Record  # noqa: E402
from tables import EndpointTable, differences  # noqa: E402
from wire import APPLICATION, RawPeer  # noqa: E402

processes.PATIENCE = max(processes.PATIENCE, 30)  # seconds: a slow machine is no failure
WATCHERS = () if WITHOUT_TAP else ("watch", "ladder")
QUICK = {"KEX_TIME_FACTOR": "400"}  # the 10 s between two attempts to connect become 25 ms


class House:
    """`programs` are its plugins. What a process lacks or is to suffer may be given as its `environments`, by name."""

    incoming = INCOMING

    def __init__(self, system, programs=PROGRAMS, environments=None):
        self.system, self.programs, self.environments = system, programs, environments or {}
        self.processes = {}
        self.tables = {}
        self.record = Record()
        self.figures = collections.Counter()  # by (table, row)
        self.record.strangers.add(os.getpid())
        self.marks = 0
        self.gone = []  # what the last processes that were killed had said
        self.lines = [Line(self, name, place + 1) for name, (_, count) in programs.items() for place in range(count)]
        self.settings = system.folder / "plan.conf"
        self.settings.write_text(f"address {own_address()}\nincoming {self.incoming}\nexchange 0 {OUTGOING}\n")

    def count(self, row, number=1, table="what"):
        self.figures[table, row] += number

    def line(self, label):
        return next(line for line in self.lines if line.label == label)

    def lines_of(self, plugin):
        return [line for line in self.lines if line.plugin == plugin]

    @property
    def application(self):
        return self.processes["application"]

    def now(self):
        return Moment(self)

    def wait_said(self, process, mark, pattern, limit=None):
        """What a process has said since a mark; waits for it."""
        return process.out.expect_from(mark, pattern, limit)[1]

    # ------------------------------------------------------------------------------------------------ Processes

    def start(self):
        self.start_application()
        for name in WATCHERS:
            self.start_watcher(name)
        for name in self.programs:
            self.start_plugin(name)
        self.wait_agreed()

    def start_process(self, name, *words, **options):
        environment = (QUICK if name in self.programs else {}) | self.environments.get(name, {})
        self.processes[name] = process = self.system.start(name, *words, environment=environment, **options)
        return process

    def start_application(self):
        words = ("voice_application", "--config", self.settings)
        application = self.start_process("application", *words, kind=Application)
        self.record.begin(application.pid)
        application.out.expect("^ready ")

    def plugins(self):
        return [self.processes[name] for name in self.programs if name in self.processes]

    def start_plugin(self, name, is_waited_for=True):
        program, count = self.programs[name]
        lines = ("--lines", count) if program in ("fxs_plugin", "fxo_plugin") else ()
        plugin = self.start_process(name, program, "--name", name, *lines)
        self.record.started(plugin.pid)
        self.tables[name] = EndpointTable(plugin)
        if is_waited_for:
            plugin.out.expect("^ready ")

    def start_watcher(self, name):
        words = ["voicectl", "watch", "--reconnect"]
        if name == "watch":
            self.start_process(name, *words, "--json", "--function", *FUNCTIONS, listener=self.record.take)
        else:
            self.start_process(name, *words)
        self.processes[name].err.expect("watching")

    def end(self, name):
        """Kills a process, and forgets it."""
        now = self.now()
        self.processes[name].kill()
        self.miss(name, now)

    def leave(self, name):
        """Asks a process to end, and forgets it."""
        now, status = self.now(), self.processes[name].terminate()
        if status != 0:
            raise Unmet(f"{name} ended with status {status} when asked to")
        self.miss(name, now)

    def miss(self, name, now):
        """Without the application, until all plugins have noticed."""
        self.drop(self.processes.pop(name))
        if name == "application":
            for plugin in self.plugins():
                now.expect(plugin, "^application lost$")

    def drop(self, process):
        self.gone = [*self.gone[-1:], process]
        self.tables.pop(process.name, None)
        if process.name in self.programs:
            self.record.killed(process.pid)
        self.system.forget(process)

    def restart(self, names):
        """Processes that run no more are started in this order; waits until all have found each other."""
        now, watchers = self.now(), [self.processes[name] for name in WATCHERS if name in self.processes]
        marks = [process.err.mark() for process in watchers]
        for name in names:
            if name == "application":
                self.start_application()
            else:
                self.start_plugin(name, False)
        for plugin in self.plugins():
            if "application" in names or plugin.name in names:
                now.expect(plugin, "^ready ")
        for process, mark in zip(watchers, marks):
            if "application" in names:
                process.err.expect_from(mark, "watching")
        self.wait_agreed()

    # --------------------------------------------------------------------------------------------- What must hold

    def expect_events(self, line, events):
        number = self.tables[line.plugin].now().get(line.endpoint)
        if number is not None and "application" in self.processes and "watch" in self.processes:
            self.record.expect(line.process.pid, number, *events)

    def wait_agreed(self):
        """Until the tables of the application and of the plugins are the same, and have all lines."""
        try:
            until("the tables agree", lambda: not self.differences())
        except Unmet as problem:
            raise Unmet(f"{problem}: {self.differences()}") from None

    def differences(self):
        plugins = sorted(self.application.plugins())
        if plugins != sorted(self.tables):
            return [f"the application has the plugins {plugins}"]
        missing = {line.name for line in self.lines if line.plugin in self.tables} - {
            f"{plugin}.{name}" for plugin, table in self.tables.items() for name in table.now()
        }
        if missing:
            return [f"not registered: {sorted(missing)}"]
        return differences(self.application, self.tables) + self.differences_to_record()

    def differences_to_record(self):
        """Endpoint numbers that a plugin has in another way than the watcher saw them given."""
        return [
            f"{plugin}.{name}: {number} here, {given} by the record"
            for plugin, table in self.tables.items()
            for name, number in table.now().items()
            if (given := self.record.given.get((self.processes[plugin].pid, name), number)) != number
        ]

    def wait_states(self):
        """Until application and plugins say of each line and each call what is known of it here."""
        try:
            until("the lines are in their states", lambda: not self.wrong_states())
        except Unmet as problem:
            raise Unmet(f"{problem}: {self.wrong_states()}") from None

    def wrong_states(self):
        states = {label: state for label, (state, _, _) in self.application.lines().items()}
        wrong = [
            f"{line} is {states.get(line.label)}"
            for line in self.lines
            if line.plugin in self.tables and (line.call is None) != (states.get(line.label) == "idle")
        ]
        calls = {line.call for line in self.lines if line.call is not None}
        wanted = {text: state for call in calls for text, state in call.texts().items()}
        found = self.application.calls()
        return wrong + ([f"calls {found} instead of {wanted}"] if found != wanted else []) + self.wrong_hooks()

    def wrong_hooks(self):
        wrong = []
        for plugin in self.tables:
            rows = self.processes[plugin].ask("status")
            for line in self.lines_of(plugin):
                rest = any(row in (f"{line.place} on hook", f"{line.place} idle") for row in rows)
                if rest != (line.call is None):
                    wrong.append(f"{line} rests: {rest}")
        return wrong

    def check(self):
        """What must hold after each action."""
        ended = [name for name, process in self.processes.items() if not process.running]
        if ended:
            raise Unmet(f"ended by themselves: {ended}")
        self.wait_agreed()
        self.wait_states()
        if not self.record.check():
            self.pass_gap()
        for name in WATCHERS:
            if name in self.processes:
                self.processes[name].out.all.clear()

    def pass_gap(self):
        """The watcher has lost something: all that was sent until now is passed over."""
        self.wait_watched()
        self.record.begin()

    def wait_watched(self):
        """Until the watcher has shown all that was sent until now."""
        self.marks += 1
        with RawPeer.connect(self.system.socket, "mark") as peer:
            peer.call(APPLICATION, "deregister_plugin", [("plugin_name", f"mark {self.marks}")])
        self.record.wait_mark(f"mark {self.marks}")

    def reports(self):
        """How often each plugin has said that media ended, and how often that has reached the application."""
        return {
            plugin.pid: (len(plugin.out.since(0, " media ended ")), self.record.reports[plugin.pid])
            for plugin in self.plugins()
            if plugin.name != "dsp1"  # channels do not report
        }

    def held(self):
        """The kinds of what each process keeps open."""
        return {name: held(process) for name, process in self.processes.items()}

    def ports(self):
        """How many media ports each process has open, of those that have any."""
        counts = {name: len(udp_sockets(process)) for name, process in self.processes.items()}
        return {name: count for name, count in counts.items() if count}

    def settled(self):
        """The same, once it has not changed for a moment."""
        before = None
        while (now := self.held()) != before:
            before = now
            time.sleep(0.1)
        return now

    def objects(self):
        if WITHOUT_TAP:
            return None
        with RawPeer.connect(self.system.socket, "list") as peer:
            return peer.call("kex", "list", []).result
