# SPDX-License-Identifier: MIT
"""SIGTERM at any moment: a host that has said something takes its leave, and one that has not leaves nothing behind."""

import fcntl
import os
import random
import re
import signal
import subprocess
import time
from pathlib import Path

import pytest

from dialling import start_telephones, talk
from processes import PATIENCE, QUICK_RETRY, until
from wire import RawListener, U32, call, reply

PLUGINS = ["fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"]
SEED = 4711
MOMENTS = 24  # signals to each plugin
LATEST = 1.5  # times what a host needs until it says "ready": a third of the signals come later


def latest_moment(system, *words):
    """Seconds after its start at which a program waits for commands, here and now."""
    begin = time.monotonic()
    process = system.start(words[0], *words)
    process.expect("^ready ")
    latest = (time.monotonic() - begin) * LATEST
    assert process.terminate() == 0
    return latest


def leave(process, delay):
    """Its exit status when SIGTERM comes so many seconds after its start."""
    time.sleep(delay)
    return process.terminate()


@pytest.mark.parametrize("program", PLUGINS)
def test_plugin_leaves_at_any_moment(system, program):
    application = system.start_application()
    latest = latest_moment(system, program, "--name", "some1")
    application.expect("^plugin some1 left$")
    moments = random.Random(SEED)
    mark = application.out.mark()

    def said(what):
        return len(application.out.since(mark, f"^plugin some1 {what}$"))

    interrupted = 0  # while they waited for the answer to their registration: they know of no name that is theirs
    for _ in range(MOMENTS):
        plugin = system.start(program, program, "--name", "some1")
        status = leave(plugin, moments.uniform(0, latest))
        if status != 0:  # it did not get as far as to hear the signal
            assert (status, plugin.out.all, plugin.err.all) == (-signal.SIGTERM, [], [])
        interrupted += any("Plugin registration failed." in line for line in plugin.err.all)
        # What it said last may be read after it has ended.
        until(
            "the table forgets it",
            lambda: application.plugins() == [] and said("registered") == said("left") + said("lost"),
        )
    assert said("lost") <= interrupted, "who was taken in takes leave"
    assert said("registered") > 0, "no moment was late enough to mean something"


def test_application_leaves_at_any_moment(system):
    latest = latest_moment(system, "voice_application")
    moments = random.Random(SEED)
    heard = 0
    for _ in range(MOMENTS):
        application = system.start("voice_application", "voice_application")
        status = leave(application, moments.uniform(0, latest))
        if status != 0:
            assert (status, application.out.all, application.err.all) == (-signal.SIGTERM, [], [])
            continue
        heard += 1
        assert not system.socket.exists(), "its socket is left behind"
    assert heard > 0, "no moment was late enough to mean something"


def test_plugin_that_waits_for_a_hanging_application_leaves(system):
    application = system.start_application()
    application.freeze()
    plugin = system.start_fxs("fxs1", ready=False, environment=QUICK_RETRY)
    plugin.err.expect("wait")  # the bus says so after 2 s
    assert plugin.terminate() == 0
    application.thaw()
    until("the table forgets it", lambda: application.plugins() == [])


def sleeps(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        return file.read().rpartition(")")[2].split()[0] == "S"


def test_signal_between_ready_and_the_loop_is_heard(system):
    # Nobody reads the pipe that "ready" goes into, and it is full: there the process stands still.
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    filled = 0
    try:
        while True:
            filled += os.write(writing, b"." * 4096)
    except BlockingIOError:
        os.set_blocking(writing, True)
    assert filled >= fcntl.fcntl(writing, fcntl.F_GETPIPE_SZ) // 2
    with subprocess.Popen(
        [system.bin / "voice_application", "--no-stdin"], stdout=writing, env=system.environment
    ) as application:
        os.close(writing)
        until("it listens", system.socket.exists)
        until("it waits for its reader", lambda: sleeps(application.pid))
        application.terminate()
        written = b""
        while part := os.read(reading, 65536):
            written += part
        os.close(reading)
        assert application.wait(PATIENCE) == 0
    assert written[filled:].startswith(b"ready ")
    assert not system.socket.exists()


def signal_taken(pid):
    """Whether no signal waits for a process any more: its handler has run."""
    pending = re.findall(r"^(?:Sig|Shd)Pnd:\s*(\w+)$", Path(f"/proc/{pid}/status").read_text(encoding="ascii"), re.M)
    return all(int(mask, 16) == 0 for mask in pending)


def test_signal_between_registration_and_init_is_no_loss(system):
    with RawListener(system.socket) as listener:
        plugin = system.start("fxs1", "fxs_plugin", "--no-stdin", environment=QUICK_RETRY)
        with listener.accept() as application:
            registration = application.receive()
            assert registration.function == "register_plugin"
            application.send(reply(registration.serial, True))
            plugin.child.terminate()
            until("the plugin has the signal", lambda: signal_taken(plugin.pid))
            application.send(call(1, "fxs1", "init", [("country", "DE")], one_way=True)[0])
            # It registers no line any more, and takes leave under the name that it now knows to be its own.
            leave_taking = application.receive()
            assert (leave_taking.function, leave_taking.arguments) == ("deregister_plugin", {"plugin_name": "fxs1"})
            application.send(call(2, "fxs1", "exit", [("reason", U32(32))], one_way=True)[0])
            assert plugin.wait() == 0
            assert plugin.out.all == ["exit reason=32"]


def test_plugin_that_leaves_in_a_call_ends_its_media(system):
    system.start_application()
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.ask(f"1 record {system.folder}/call.wav")
    mark = first.out.mark()
    assert first.terminate() == 0
    first.out.expect_from(mark, "^1 media ended line=0 tx=[0-9]+ ")
    second.expect("^1 media ended line=0 ")
    assert "\tmedia ended\n" in (system.folder / "call.labels.txt").read_text(encoding="utf-8")


def test_dsp_plugin_that_leaves_ends_the_media_of_its_channels(system):
    application = system.start_application()
    plugin = system.start("dsp1", "dsp_plugin", "--name", "dsp1")
    application.expect("^plugin dsp1 registered$")
    application.ask("dsp dsp1")
    plugin.expect("^channel D1C2 talking ")
    mark = plugin.out.mark()
    assert plugin.terminate() == 0
    for channel in ("D1C1", "D1C2"):
        plugin.out.expect_from(mark, f"^channel {channel} media ended line=0 ")
