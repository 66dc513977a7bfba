# SPDX-License-Identifier: MIT
"""voicectl watch beside a running system: what it shows, and that nothing it does is felt."""

import json
import os
import pty
import signal
import subprocess
import time

import pytest

from dialling import talk
from processes import Watcher, until
from wire import APPLICATION, RawPeer, TAP_HELLO, head, text


def run(system, *arguments, **options):
    """The tool run to its end: status, output, errors."""
    done = subprocess.run(
        [system.bin / "voicectl", *arguments],
        env=system.environment,
        capture_output=True,
        text=True,
        timeout=20,
        **options,
    )
    return done.returncode, done.stdout, done.stderr


def test_status_and_error_without_an_application(system):
    status, out, err = run(system, "watch")
    assert (status, out) == (1, "")
    assert err.startswith("voicectl: ") and str(system.socket) in err and err.count("\n") == 1


@pytest.mark.parametrize(
    "arguments",
    [
        [],
        ["look"],
        ["watch", "--no-such"],
        ["watch", "--direction", "up"],
        ["watch", "--count", "0"],
        ["watch", "--for", "-1"],
        ["watch", "more"],
    ],
    ids=lambda words: " ".join(words) or "nothing",
)
def test_wrong_command_line_is_status_two(system, arguments):
    status, out, err = run(system, *arguments)
    assert status == 2 and err != "" and out == ""


def test_help_and_version(system):
    for arguments in (["--help"], ["--version"], ["watch", "--help"]):
        status, out, _ = run(system, *arguments)
        assert status == 0 and out != ""


def test_count_ends_it(system):
    system.start_application()
    watcher = system.start_watcher("--count", "3")
    system.start_fxs("fxs1")
    assert watcher.wait() == 0
    assert len(watcher.out.all) == 3
    assert [json.loads(line)["kind"] for line in watcher.out.all[:2]] == ["connected", "call"]


def test_time_ends_it(system):
    system.start_application()
    begin = time.monotonic()
    assert run(system, "watch", "--for", "0.3")[:2] == (0, "")
    assert time.monotonic() - begin >= 0.3


def test_interrupt_ends_it(system):
    system.start_application()
    watcher = system.start_watcher()
    watcher.child.send_signal(signal.SIGINT)
    assert watcher.wait() == 0


def test_end_of_the_application_ends_it(system):
    application = system.start_application()
    watcher = system.start_watcher()
    application.kill()
    assert watcher.wait() == 0
    watcher.err.expect("gone")


def test_reconnect_stays(system):
    watcher = system.start("voicectl", "voicectl", "watch", "--json", "--reconnect", kind=Watcher)
    application = system.start_application()
    watcher.err.expect("watching")
    system.start_fxs("fxs1")
    watcher.expect_message(kind="reply", function="register_plugin")
    application.kill()
    watcher.err.expect("gone")
    system.start_application()
    watcher.err.expect("watching")
    system.start_fxs("fxs2")
    watcher.expect_message(kind="reply", function="register_plugin", plugin="fxs2", result=True)
    assert watcher.terminate() == 0


def test_reader_that_leaves_ends_it(system):
    application = system.start_application()
    shell = subprocess.Popen(
        ["sh", "-c", f"{system.bin}/voicectl watch --json | head -n 1"],
        env=system.environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        start_new_session=True,
    )
    assert b"watching" in shell.stderr.readline()
    system.start_fxs("fxs1")
    assert shell.wait(20) == 0
    shell.stdout.close()
    shell.stderr.close()
    assert application.running


def test_ladder_without_a_terminal_is_plain_and_complete(system):
    system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch")
    ladder.err.expect("watching")
    first, second = system.start_fxs("fxs1"), system.start_fxs("fxs2")
    talk(first, "201", second)
    for pattern in [
        "fxs_plugin +--> voice_application +connected, process ",
        "fxs1 +--> voice_application +register_plugin ",
        'fxs1 +<-- voice_application +init +country "DE"',
        "fxs1 FXS1 +--> voice_application +register_endpoint ",
        "fxs1 FXS1 +<-- voice_application +register_endpoint answered +0 +after ",
        "fxs2 FXS2 +<-- voice_application +register_endpoint answered +3 +after ",
        "fxs1 FXS1 +--> voice_application +event +off hook +LIBVOICE_EVENT_al_of",
        "fxs1 FXS1 +<-- voice_application +signal +dial tone +LIBVOICE_SIGNAL_cg_dt",
        "fxs2 FXS1 +<-- voice_application +signal +.* +LIBVOICE_SIGNAL_al_ri",
        "fxs2 FXS1 +--> voice_application +event +off hook +LIBVOICE_EVENT_al_of",
    ]:
        ladder.expect(pattern)
    assert not any("\x1b" in line for line in ladder.out.all)


def test_colour_on_a_terminal_unless_asked_not_to(system):
    system.start_application()

    def shown(environment):
        try:
            ours, theirs = pty.openpty()
        except OSError as problem:
            pytest.skip(f"no terminal here: {problem}")
        tool = subprocess.Popen(
            [system.bin / "voicectl", "watch", "--count", "1"],
            env={**system.environment, **environment},
            stdout=theirs,
            stderr=subprocess.PIPE,
        )
        os.close(theirs)
        tool.stderr.readline()
        plugin = system.start_fxs("fxs1")
        assert tool.wait(20) == 0
        text = os.read(ours, 4096)
        os.close(ours)
        tool.stderr.close()
        plugin.kill()
        return text

    assert b"\x1b[" in shown({"TERM": "xterm"})
    assert b"\x1b[" not in shown({"TERM": "xterm", "NO_COLOR": "1"})
    assert b"\x1b[" not in shown({"TERM": "dumb"})


def test_text_from_the_bus_cannot_steer_the_terminal(system):
    system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch")
    ladder.err.expect("watching")
    with RawPeer.connect(system.socket, name="\x1b[2Jraw\r") as peer:
        peer.call(APPLICATION, "\x1b]0;title\x07", [("\x9b2J", "\x1b[31m\u202e")])
        peer.call(APPLICATION, "deregister_plugin", [("plugin_name", "a\nb")])
    ladder.expect("deregister_plugin")
    ladder.expect("closed")
    for line in ladder.out.all:
        assert line.isprintable(), repr(line)


def test_filters(system):
    system.start_application()
    only_line = system.start_watcher("--endpoint", "fxs2.FXS1", "--function", "signal", "event")
    only_in = system.start_watcher("--direction", "in", "--package", "dd")
    first, second = system.start_fxs("fxs1"), system.start_fxs("fxs2")
    talk(first, "201", second)
    only_line.expect_message(name="LIBVOICE_EVENT_al_of")
    digits = [only_in.expect_message(function="event")["record"]["identifier"]["name"][-1] for _ in range(3)]
    assert digits == ["2", "0", "1"]
    for message in only_line.messages():
        assert message["function"] in ("signal", "event")
        assert "FXS1" in (message["from"].get("endpoint"), message["to"].get("endpoint"))
        assert "fxs2" in (message["from"].get("plugin"), message["to"].get("plugin"))


def test_call_that_waits_shows_as_waiting(system):
    application = system.start_application()
    watcher = system.start_watcher()
    plugin = system.start_fxs("fxs1")
    # The application asks a plugin that hangs.
    plugin.freeze()
    application.ask("get 101 tdmc_gain")
    message = watcher.expect_message(kind="still_waiting", function="get", plugin="fxs1", endpoint="FXS1")
    assert message["elapsed_ms"] >= 1000
    plugin.thaw()
    message = watcher.expect_message(kind="reply", function="get", plugin="fxs1", endpoint="FXS1")
    assert message["elapsed_ms"] >= 1000
    assert message["record"]["kind"] == "param_set"


def test_watcher_that_stops_reading_slows_no_call(system):
    system.start_application()
    first, second = system.start_fxs("fxs1"), system.start_fxs("fxs2")
    # One that says it is a watcher and reads nothing, ever; and a real one that is stopped.
    deaf = RawPeer.connect(system.socket, hello=False)
    deaf.send(head(TAP_HELLO) + text("deaf"))
    watcher = system.start_watcher()
    watcher.freeze()
    with RawPeer.connect(system.socket) as peer:
        for _ in range(20_000):  # far more than a socket holds
            peer.call(APPLICATION, "nothing", [])
    talk(first, "201", second)
    first.ask("1 on")
    # Back again it first sees what was kept for it. With the next message it learns how much it has missed.
    watcher.thaw()
    with RawPeer.connect(system.socket) as peer:
        peer.serial = 30_000
        until(
            "the watcher has read what was kept",
            lambda: peer.call(APPLICATION, "nothing", []) and watcher.messages(kind="lost"),
        )
    assert watcher.expect_message(kind="lost")["lost"] > 0
    second.ask("1 on")
    watcher.expect_message(name="LIBVOICE_EVENT_al_on", plugin="fxs2")
    deaf.close()


def test_watchers_that_die_leave_nothing(system):
    application = system.start_application()
    plugin = system.start_fxs("fxs1")
    before = application.descriptors()
    for _ in range(20):
        watcher = system.start_watcher()
        watcher.kill()
    until("the application gave back all descriptors", lambda: application.descriptors() == before)
    plugin.ask("1 off")
    plugin.expect("^1 hears dial-tone$")
