# SPDX-License-Identifier: MIT
"""The demonstration that ./demo runs: telephones call each other, the voice application dies and everything comes back.

Every step waits for what must happen, with a limit, and the first thing that does not happen ends the demonstration
with status 1. What stands behind "|" is the traffic between the processes, as `voicectl watch` shows it; with
VOICE_TEST_WITHOUT_TAP set, for a bus that has no tap, nothing of it is shown or waited for.

  demo.py [FOLDER]    recordings of all lines, and a page about them, stay in FOLDER, else in a new temporary folder
"""

import contextlib
import os
import statistics
import sys
import tempfile
import threading
import time
from pathlib import Path

import sound_page
from processes import QUICK_RETRY, WITHOUT_TAP, System, Unmet, until

COLOUR = sys.stdout.isatty() and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"
# Telephones by their number: plugin, place in it, endpoint.
TELEPHONES = {
    "101": ("fxs1", 1, "FXS1"),
    "102": ("fxs1", 2, "FXS2"),
    "201": ("fxs2", 1, "FXS1"),
    "202": ("fxs2", 2, "FXS2"),
}
HANDSETS = {"501": ("dect1", 1, "DECT1"), "502": ("dect1", 2, "DECT2")}
# What is recorded: plugin and place in it, by the name of the file.
RECORDED = {name: place[:2] for name, place in (TELEPHONES | HANDSETS).items()} | {"exchange": ("fxo1", 1)}
LONGEST_FOLDER = 400  # bytes; a command has 511


def paint(code, text):
    return f"\x1b[{code}m{text}\x1b[0m" if COLOUR else text


printing = threading.Lock()  # the traffic is printed by the thread that reads it


def say(text=""):
    with printing:
        print(text, flush=True)


def bus_line(line):
    say(paint("2", "  | ") + line)


class Telephone:
    """One telephone, at its own process's text interface. What it causes is awaited on the bus too, in order."""

    def __init__(self, number, plugin, line, endpoint, ladder):
        self.number, self.plugin, self.line, self.endpoint = number, plugin, line, endpoint
        self.watch(ladder)

    def watch(self, ladder):
        self.ladder, self.seen = ladder, 0

    def on_bus(self, pattern):
        """Waits until the next message of this telephone that fits has been shown."""
        if self.ladder is None:
            return
        at, _ = self.ladder.out.expect_from(self.seen, f" {self.plugin.name} {self.endpoint} .* {pattern}")
        self.seen = at + 1

    def does(self, command, words, event):
        say(f"  {self.number} {words}")
        self.plugin.ask(f"{self.line} {command}")
        self.on_bus(f"event .* {event}\\b")

    def lifts(self):
        self.does("off", "lifts the receiver", "al_of")

    def hangs_up(self):
        self.does("on", "hangs up", "al_on")

    def dials(self, digits):
        # A handset sends a number at once, a telephone digit by digit.
        self.does(f"dial {digits}", f"dials {digits}", f"dd_(d{digits[-1]}|ce)")

    def flashes(self):
        self.does("flash", "presses the flash key", "al_fl")

    def expect(self, pattern):
        """Waits for something that this telephone says; the groups of the pattern."""
        return self.plugin.expect(f"^{self.line} {pattern}").groups()

    def hears(self, tone, signal):
        self.expect(f"hears {tone}$")
        self.on_bus(f"signal .* {signal}\\b")
        say(f"  {self.number} hears the {tone}")

    def rings(self):
        self.expect("rings ")
        self.on_bus("signal .* al_ri ")
        say(f"  {self.number} rings")

    def displays(self, number):
        shown, name = self.expect('displays number=(\\S+) name="(.*?)"')
        if shown != number:
            raise Unmet(f"{self.number} should display {number}, it displays {shown}")
        self.on_bus("signal .* andisp_data ")
        say(f"  {self.number} displays {number}, {name}")

    def hears_sound(self):
        (tones,) = self.expect(r"hears (\S*Hz)$")
        say(f"  {self.number} hears sound: {tones}")


class Demonstration:
    def __init__(self, system, folder):
        self.system, self.folder = system, folder
        self.ladder, self.watchers = None, []  # without a tap it stays so
        self.steps = []  # title, seconds, remark
        self.title = "setting up"
        self.remark = ""

    @contextlib.contextmanager
    def step(self, title):
        self.title, self.remark = title, ""
        say()
        say(paint("1", f"{len(self.steps) + 1}. {title}"))
        begin = time.monotonic()
        yield
        self.steps.append((title, time.monotonic() - begin, self.remark))

    # ---------------------------------------------------------------------------------------------- What happens

    def run(self):
        begin = time.monotonic()
        with self.step("Three processes find each other on a private socket"):
            self.start_application()
            self.plugins = {}
            self.telephones = {}
            self.start_plugin("fxs1", "fxs_plugin", TELEPHONES)
            self.start_plugin("fxs2", "fxs_plugin", TELEPHONES)
            self.everything_registers()
        with self.step("Telephone 101 of process fxs1 calls 201 of process fxs2"):
            self.call("101", "201", listens=True)
        with self.step("They talk"):
            self.talk("101", "201")
        with self.step("The codec changes in the middle of the call"):
            self.change_codec("101", "201")
        with self.step("101 takes a third party into the call"):
            self.three_parties("101", "201", "202")
        with self.step("All hang up"):
            self.hang_up("101", "201", "202")
        with self.step("A cordless handset joins and calls a telephone"):
            self.start_plugin("dect1", "dect_plugin", HANDSETS)
            self.everything_registers()
            self.call("501", "102")
            self.talk("501", "102")
            self.hang_up("501", "102")
        with self.step("The telephone exchange calls in"):
            self.start_plugin("fxo1", "fxo_plugin", {})
            self.everything_registers()
            self.exchange_calls("101")
        with self.step("DSP channels are created and driven"):
            self.start_plugin("dsp1", "dsp_plugin", {})
            self.everything_registers()
            self.drive_dsp()
        with self.step("The voice application is killed (kill -9) and started again"):
            self.crash()
        with self.step("After the crash: a call the other way round"):
            self.call("201", "101")
            self.talk("201", "101")
            self.hang_up("201", "101")
        with self.step("The plugins take their leave"):
            self.leave()
        self.summary(time.monotonic() - begin)

    def start_application(self):
        self.application = self.system.start_application()
        say("  voice_application listens")
        self.registered = set()  # plugins that the application of now has told to begin
        if not WITHOUT_TAP:
            self.watch()

    def watch(self):
        self.ladder = self.system.start("voicectl watch", "voicectl", "watch", listener=bus_line)
        self.watchers.append(self.system.start_watcher())
        self.ladder.err.expect("watching")

    def bus_shows(self, pattern):
        if self.ladder is not None:
            self.ladder.expect(pattern)

    def start_plugin(self, name, program, telephones):
        self.plugins[name] = self.system.start(name, program, "--name", name, environment=QUICK_RETRY)
        self.telephones |= {
            number: Telephone(number, self.plugins[plugin], line, endpoint, self.ladder)
            for number, (plugin, line, endpoint) in telephones.items()
            if plugin == name
        }

    def everything_registers(self):
        """Waits for the plugins that are not registered yet, and looks whether the application has them all."""
        for name in [name for name in self.plugins if name not in self.registered]:  # in the order of their start
            self.plugins[name].expect("^ready ")
            if self.ladder is not None:
                self.ladder.out.expect_from(0, f" {name} .* register_plugin answered +true")
            self.registered.add(name)
            self.record(name)
        plugins, lines = self.application.plugins(), self.application.lines()
        if set(plugins) != self.plugins.keys() or not self.telephones.keys() <= lines.keys():
            raise Unmet(
                f"{sorted(self.plugins)} with {sorted(self.telephones)} should be registered, "
                f"these are: {plugins}, {sorted(lines)}"
            )
        self.remark = f"{len(plugins)} plugins, {len(lines)} lines"

    def record(self, plugin):
        """From its first registration on, until it leaves."""
        for name, (owner, line) in RECORDED.items():
            file = self.folder / f"{name}.wav"
            if owner == plugin and not file.exists():
                self.plugins[plugin].ask(f'{line} record "{file}"')

    def call(self, caller, callee, listens=False):
        """Who listens waits until the tones have been recognised in the sound; else dials at once, as one may."""
        one, other = self.telephones[caller], self.telephones[callee]
        one.lifts()
        if listens:
            one.hears("dial-tone", "cg_dt")
        begin = time.monotonic()
        one.dials(callee)
        other.rings()
        rang = time.monotonic() - begin
        other.displays(caller)
        if listens:
            one.hears("ring-back", "cg_rt")
        other.lifts()
        self.application.expect(f"^call [0-9]+ {caller}->{callee} answered")
        for telephone in (one, other):
            telephone.expect("talking ")
        other.on_bus("create ")
        self.remark = f"rang after {rang * 1000:.1f} ms, displayed {caller}"

    def talk(self, *numbers):
        """Each sends a tone of its own and must hear that of the others."""
        for number in numbers:
            self.telephones[number].hears_sound()

    def change_codec(self, *numbers):
        self.application.ask(f"codec {numbers[0]} PCMU")
        for number in numbers:
            self.telephones[number].expect("talking .*codec=PCMU")
            self.telephones[number].on_bus("modify ")
            say(f"  {number} talks on in PCMU")
        self.remark = "PCMA to PCMU by modify"

    def three_parties(self, host, first, second):
        self.telephones[host].flashes()
        self.telephones[host].on_bus("signal .* cg_dt\\b")
        self.telephones[host].dials(second)
        self.telephones[second].rings()
        self.telephones[second].lifts()
        self.application.expect(f"^call [0-9]+ {host}->{second} answered")
        self.telephones[host].flashes()
        (members,) = self.application.expect(f"^conference [0-9]+ {host}: (.*)$").groups()
        self.telephones[host].on_bus("add_stream ")
        say(f"  {host} talks with {members}")
        self.talk(host, first, second)
        self.remark = f"a context of {host}, {first} and {second}"

    def hang_up(self, *numbers):
        for number in numbers:
            self.telephones[number].hangs_up()
        self.count(*numbers)
        for number in numbers:
            until(f"{number} is idle", lambda number=number: self.application.lines()[number][0] == "idle")

    def count(self, *numbers):
        """What each telephone has sent and received itself."""
        counted = []
        for number in numbers:
            sent, received, lost = map(
                int, self.telephones[number].expect(r"media ended .*tx=(\d+) rx=(\d+) lost=(\d+)")
            )
            say(f"  {number} has sent {sent} packets of sound and received {received}, {lost} were lost")
            counted.append((number, sent, received))
        self.carried(counted)

    def carried(self, counted):
        for name, sent, received in counted:
            if sent == 0 or received == 0:
                raise Unmet(f"{name} should have sent and received sound: {sent} sent, {received} received")
        self.remark = (
            ", ".join(f"{name} {sent}/{received}" for name, sent, received in counted) + " packets sent/received"
        )

    def exchange_calls(self, callee):
        exchange, telephone = self.plugins["fxo1"], self.telephones[callee]
        say("  the exchange rings, the caller is 03012345678")
        exchange.ask('1 ring 03012345678 "Aunt Mary"')
        telephone.rings()
        telephone.displays("03012345678")
        telephone.lifts()
        exchange.expect("^1 answered$")
        self.talk(callee)
        say("  the exchange releases the line")
        exchange.ask("1 hangup")
        self.count(callee)
        telephone.hears("busy-tone", "cg_bt")
        telephone.hangs_up()

    def drive_dsp(self):
        dsp = self.plugins["dsp1"]
        self.application.ask("dsp dsp1")
        for _ in range(2):
            channel, tone = dsp.expect("^channel (D1C[12]) hears (.*Hz)$").groups()
            say(f"  channel {channel} hears sound: {tone}")
        self.application.ask("dsp dsp1 codec PCMU")
        for _ in range(2):
            dsp.expect("^channel D1C[12] talking .*codec=PCMU")
        self.application.ask("dsp dsp1 destroy")
        counted = []
        for _ in range(2):
            channel, sent, received = dsp.expect(r"^channel (D1C[12]) media ended .*tx=(\d+) rx=(\d+)").groups()
            counted.append((channel, int(sent), int(received)))
        self.carried(counted)
        for _ in range(2):
            self.bus_shows("dsp1 D1C[12] .* destroy answered +true")

    def crash(self):
        self.application.kill()
        for plugin in self.plugins.values():
            plugin.expect("^application lost$")
        for watcher in (self.ladder, *self.watchers[-1:]):
            if watcher is not None:
                watcher.wait()
        say("  the plugins notice, silence their lines and try again by themselves")
        # A watcher sees what passes from when it is there: the plugins come after it.
        for plugin in self.plugins.values():
            plugin.freeze()
        begin = time.monotonic()
        self.start_application()
        for telephone in self.telephones.values():
            telephone.watch(self.ladder)
        for plugin in self.plugins.values():
            plugin.thaw()
        self.everything_registers()
        self.remark = f"all back after {time.monotonic() - begin:.1f} s"

    def leave(self):
        for name, plugin in self.plugins.items():
            if plugin.terminate() != 0:
                raise Unmet(f"{name} should leave with status 0")
            self.application.expect(f"^plugin {name} left$")
            self.bus_shows(f" {name} .*closed")
            say(f"  {name} has left")
        if self.application.terminate() != 0:
            raise Unmet("voice_application should leave with status 0")

    # ------------------------------------------------------------------------------------------------- The summary

    def summary(self, seconds):
        say()
        say(paint("1", "Summary"))
        for number, (title, took, remark) in enumerate(self.steps, 1):
            say(f"  {number:2}  {took * 1000:6.0f} ms  {title}" + (f": {remark}" if remark else ""))
        if self.watchers:
            self.messages_count()
        self.recordings_show()
        say(f"All {len(self.steps)} steps happened, in {seconds:.1f} s.")

    def messages_count(self):
        messages = [message for watcher in self.watchers for message in watcher.messages()]
        kinds = [message["kind"] for message in messages]
        answers = [
            message["elapsed_ms"] for message in messages if message["kind"] == "reply" and "elapsed_ms" in message
        ]
        records = [message["record"]["kind"] for message in messages if "record" in message]
        say(
            f"  {len(messages)} messages on the bus: {kinds.count('call')} calls, answered after "
            f"{statistics.median(answers):.2f} ms (median), {max(answers):.2f} ms at most; "
            f"{records.count('event')} events, {records.count('signal')} signals"
        )

    def recordings_show(self):
        """Makes the page, and says what reads the rest."""
        try:
            page = sound_page.write(self.folder, RECORDED)
        except OSError as problem:
            raise Unmet(f"the page about the recordings: {problem}") from problem
        say(f"  {len(RECORDED)} lines were recorded: {page}")
        say("    index.html     in a browser: pictures of the sound, what happened, players")
        say("    *.wav          heard left, said right: sox, soxi, Audacity, ffplay, aplay")
        say("    *.labels.txt   Audacity: File, Import, Labels")


def folder_make(words):
    """Where recordings stay; those of a run before are taken away."""
    if not words:
        return Path(tempfile.mkdtemp(prefix="voice-demo-"))
    folder = Path(words[0]).resolve()
    if len(os.fsencode(folder)) > LONGEST_FOLDER or '"' in str(folder) or not str(folder).isprintable():
        raise OSError(
            f"a command cannot name this folder: {LONGEST_FOLDER} bytes of printable text without quotes can be"
        )
    folder.mkdir(parents=True, exist_ok=True)
    for name in RECORDED:
        (folder / f"{name}.wav").unlink(missing_ok=True)
    return folder


def main():
    if len(sys.argv) > 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        folder = folder_make(sys.argv[1:])
    except OSError as problem:
        print(f"error: {problem}", file=sys.stderr)
        return 2
    with System() as system:
        demonstration = Demonstration(system, folder)
        try:
            demonstration.run()
        except Unmet as problem:
            say()
            say(system.report())
            say()
            say(f"What was recorded until then is in {folder}")
            say(f"FAILED in step {len(demonstration.steps) + 1}, {demonstration.title}: {problem}")
            return 1
        except KeyboardInterrupt:
            return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
