# SPDX-License-Identifier: MIT
"""voicectl watch beside a running system: what it shows, and that nothing it does is felt."""

import json
import re
import signal
import subprocess
import time

import pytest

from dialling import lift, start_telephones, talk
from processes import Watcher, until
from restless import restless_bus
from target import struct
from terminal import Terminal
from tool_run import tool_run
from wire import APPLICATION, RawPeer, TAP_HELLO, head, text


def test_count_ends_it(system):
    system.start_application()
    watcher = system.start_watcher("--count", "3")
    system.start_fxs("fxs1")
    assert watcher.wait() == 0
    assert len(watcher.out.all) == 3
    assert [json.loads(line)["kind"] for line in watcher.out.all[:2]] == ["connected", "call"]


def test_who_watches_late_is_told_who_is_connected(system):
    system.start_application()
    plugin = system.start_fxs("fxs1")
    watcher = system.start_watcher("--count", "1")
    assert watcher.wait() == 0
    message = json.loads(watcher.out.all[0])
    assert (message["kind"], message["before"]) == ("connected", True)
    assert message["from"]["pid"] == plugin.pid


def test_time_ends_it(system):
    system.start_application()
    begin = time.monotonic()
    assert tool_run(system, "watch", "--for", "0.3")[:2] == (0, "")
    assert time.monotonic() - begin >= 0.3


def test_what_passed_before_the_end_is_shown(system):
    system.start_application()
    watcher = system.start_watcher()
    watcher.freeze()
    system.start_fxs("fxs1")
    watcher.child.send_signal(signal.SIGINT)
    watcher.thaw()
    assert watcher.wait() == 0
    assert "register_plugin" in [json.loads(line).get("function") for line in watcher.out.all]


def test_interrupt_ends_it(system):
    system.start_application()
    watcher = system.start_watcher()
    watcher.child.send_signal(signal.SIGINT)
    assert watcher.wait() == 0


def test_tap_that_is_not_admitted(system):
    system.start_application()
    for _ in range(8):
        system.start_watcher()
    reason = "voicectl: the voice application does not admit this tap: there are too many taps\n"
    assert tool_run(system, "watch") == (1, "", reason)
    assert tool_run(system, "watch", "--endpoint", "FXS1") == (1, "", reason), "whatever is to be shown"
    assert tool_run(system, "watch", "--reconnect", "--for", "1") == (1, "", reason), "once"


def test_bus_that_never_rests_is_shown(system):
    """What a filter lets through comes at once, though the records of others never end."""
    with restless_bus(system.socket):
        watcher = system.start("voicectl", "voicectl", "watch", "--json", "--function", "event", kind=Watcher)
        watcher.expect_message(kind="one_way_call", function="event")
        assert watcher.terminate() == 0


@pytest.mark.parametrize("words", [["watch", "--count", "1"], ["top", "--count", "1"], ["--help"], ["--version"]])
def test_output_that_cannot_be_written_is_said(system, words):
    system.start_application()
    system.start_fxs("fxs1")
    with open("/dev/full", "w", encoding="ascii") as full:
        status, _, err = tool_run(system, *words, output=full)
    assert status == 1
    assert err.count("voicectl: the output cannot be written: No space left on device\n") == 1


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
        ["sh", "-c", '"$0" watch --json | head -n 1', f"{system.bin}/voicectl"],
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


CALL = [
    " fxs_plugin +--> connected, process ",
    " fxs1 +--> register_plugin$",
    ' fxs1 +<-- init  country "DE"$',
    " fxs1 FXS1 +--> register_endpoint  type FXS  codecs PCMA PCMU$",
    " fxs1 FXS1 +<-- register_endpoint answered  0  after ",
    " fxs2 FXS2 +<-- register_endpoint answered  3  after ",
    " fxs1 FXS1 +--> event  off hook  al_of$",
    " fxs1 FXS1 +<-- signal  dial tone  cg_dt$",
    " fxs2 FXS1 +<-- signal  ring  al_ri  cadence 1000/4000 ms  25 Hz$",
    " fxs2 FXS1 +--> event  off hook  al_of$",
    " fxs1 FXS1 +<-- create  both ways  PCMA 20 ms payload 8  line 0  sockets [0-9]+ [0-9]+ -$",
    " fxs1 FXS1 +--> event  on hook  al_on$",
    " fxs1 FXS1 +--> event  call statistics  zil_call_stats  "
    "sent [0-9]+ packets \\([0-9]+ bytes\\)  received [0-9]+ \\([0-9]+\\)  lost 0",
]


def test_ladder_without_a_terminal_is_one_plain_line_a_message(system):
    system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch")
    ladder.err.expect("watching")
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.ask("1 on")
    for pattern in CALL:
        ladder.expect(pattern)
    assert not any("\x1b" in line for line in ladder.out.all)
    assert all(re.match(r"\d\d:\d\d:\d\d\.\d{3} ", line) and len(line) <= 160 for line in ladder.out.all)


def test_caller_display_and_empty_items_in_words(system):
    application = system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch", "--function", "signal", "get", "set")
    ladder.err.expect("watching")
    first, second = start_telephones(system)
    first.ask("1 off")
    first.ask("1 dial 201")
    second.expect("displays")
    ladder.expect(
        r" fxs2 FXS1 +<-- signal  display data  andisp_data  "
        r'shows 101 "FXS1" at \d\d-\d\d \d\d:\d\d for 201  alerting signal 0$'
    )
    application.ask("set 101 tdmc_gain -3")
    ladder.expect(" fxs1 FXS1 +<-- set  endpoint number 0  gain -3 dB$")
    application.ask("get 101 tdmc_gain")
    ladder.expect(" fxs1 FXS1 +<-- get  endpoint number 0  gain$")
    ladder.expect(" fxs1 FXS1 +--> get answered  endpoint number 0  gain -3 dB  after ")
    application.ask("mwi 102 3")
    ladder.expect(" fxs1 FXS2 +<-- signal  display data  andisp_data  shows 3 messages, lamp on, at ")


def test_long_form_has_full_names(system):
    system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch", "--long")
    ladder.err.expect("watching")
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.ask("1 on")
    for pattern in [
        "fxs1 FXS1 +--> voice_application +register_endpoint "
        '+endpoint_path "fxs1.EndPoint.FXS1" +type FXS +codeclist PCMA PCMU$',
        "fxs1 FXS1 +--> voice_application +event +off hook +LIBVOICE_EVENT_al_of",
        "fxs2 FXS1 +<-- voice_application +signal +ring +LIBVOICE_SIGNAL_al_ri +LIBVOICE_PARAM_al_ri_cad 1000/4000 ms +"
        "LIBVOICE_PARAM_al_ri_freq 25 Hz$",
        "fxs1 FXS1 +<-- voice_application +create .*LIBVOICE_PARAM_sdp_upstream_codec PCMA "
        ".*filedesc \\[fd [0-9]+, fd [0-9]+, fd -\\]$",
        "LIBVOICE_EVENT_zil_call_stats .*LIBVOICE_PARAM_zil_call_stats_discarded [0-9]+ .*_tsLastRxRtpInUs [0-9]+$",
    ]:
        ladder.expect(pattern)


def on_terminal(system, columns, *arguments, environment=None):
    """What the tool wrote to a terminal of so many columns while a call was made."""
    screen = Terminal(columns)
    tool = screen.start(
        [system.bin / "voicectl", "watch", *arguments],
        env={**system.environment, "TERM": "xterm", **(environment or {})},
        stderr=subprocess.PIPE,
    )
    tool.stderr.readline()
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.ask("1 on")
    second.expect("plays busy-tone$")
    for plugin in (first, second):
        assert plugin.terminate() == 0
    until("both plugins have left", lambda: screen.written.count(b"closed") == 2)
    tool.terminate()
    assert tool.wait(20) == 0
    tool.stderr.close()
    return screen.finish().decode().replace("\r\n", "\n")


@pytest.mark.parametrize(
    "columns, environment, width",
    [(80, {}, 80), (100, {}, 100), (0, {"COLUMNS": "90"}, 90), (0, {"COLUMNS": "-4x"}, 80), (0, {}, 80)],
)
def test_message_takes_two_rows_of_a_terminal_at_most(system, columns, environment, width):
    system.start_application()
    rows = on_terminal(system, columns, environment={"NO_COLOR": "1", **environment}).splitlines()
    assert len(rows) > 30 and max(map(len, rows)) <= width
    indents = "".join("m" if re.match(r"\d\d:", row) else "-" if row.startswith(" " * 14) else "?" for row in rows)
    assert re.fullmatch("(m-?)+", indents)
    text = "\n".join(rows)
    assert re.search(r"fxs2 FXS1      <-- signal  ring  al_ri  cadence 1000/4000 ms  25 Hz$", text, re.MULTILINE)
    assert re.search(r"call statistics  zil_call_stats(  |\n {14})sent \d+ packets \(\d+ bytes\)", text)


def test_colour_on_a_terminal_unless_asked_not_to(system):
    system.start_application()
    assert "\x1b[" in on_terminal(system, 80)
    assert "\x1b[" not in on_terminal(system, 80, environment={"NO_COLOR": "1"})
    assert "\x1b[" not in on_terminal(system, 80, environment={"TERM": "dumb"})


def test_text_from_the_bus_cannot_steer_the_terminal(system):
    system.start_application()
    ladder = system.start("voicectl", "voicectl", "watch")
    ladder.err.expect("watching")
    full = system.start("voicectl", "voicectl", "watch", "--long")
    full.err.expect("watching")
    with RawPeer.connect(system.socket, name="\x1b[2Jraw\r") as peer:
        peer.call(APPLICATION, "\x1b]0;title\x07", [("\x9b2J", "\x1b[31m\u202e")])
        peer.call(APPLICATION, "deregister_plugin", [("plugin_name", "a\nb")])
        peer.call(APPLICATION, "f" * 200, [("n" * 200, "t" * 20000)])
        peer.call(APPLICATION, "event", [("plugin_name", "p" * 2000), ("event", b"\xff" * 3000)])
    for shown in (ladder, full):
        shown.expect("deregister_plugin")
        shown.expect("closed")
        for line in shown.out.all:
            assert line.isprintable(), repr(line)
    assert max(map(len, ladder.out.all)) <= 160


def items(message):
    return {item["name"].removeprefix("LIBVOICE_PARAM_"): item for item in message["record"]["items"]}


def test_json_holds_typed_values_and_bytes(system):
    application = system.start_application()
    watcher = system.start_watcher()
    first, second = start_telephones(system)
    message = watcher.expect_message(function="register_endpoint", kind="call")
    assert [(codec["codec"], codec["name"]) for codec in message["codecs"]] == [(8, "PCMA"), (0, "PCMU")]
    assert len(bytes.fromhex(message["arguments"]["codeclist"]["hex"])) == 32
    first.ask("1 off")
    first.ask("1 dial 201")
    ring = items(watcher.expect_message(name="LIBVOICE_SIGNAL_al_ri"))
    assert ring["al_ri_cad"]["value"] == [1000, 4000] and ring["al_ri_cad"]["text"] == "1000/4000 ms"
    assert struct.unpack("=2I", bytes.fromhex(ring["al_ri_cad"]["bytes"])) == (1000, 4000)
    assert ring["al_ri_freq"]["value"] == 25 and ring["al_ri_freq"]["text"] == "25 Hz"
    shown = items(watcher.expect_message(name="LIBVOICE_SIGNAL_andisp_data"))["andisp_data_db"]
    assert {key: shown["value"][key] for key in ("kind", "number", "name", "called")} == {
        "kind": "call",
        "number": "101",
        "name": "FXS1",
        "called": "201",
    }
    assert re.fullmatch(r"\d{8}", shown["value"]["time"])
    block = bytes.fromhex(bytes.fromhex(shown["bytes"]).rstrip(b"\0").decode())
    assert block[0] == 0x80 and block[-1] == sum(block[:-1]) % 256
    second.ask("1 off")
    media = items(watcher.expect_message(function="create"))
    assert media["sdp_upstream_codec"]["value"] == 8 and media["sdp_upstream_codec"]["text"] == "PCMA"
    application.ask("get 101 tdmc_gain")
    gain = items(watcher.expect_message(function="get", kind="call"))["tdmc_gain"]
    assert (gain["value"], gain["bytes"], gain["text"]) == (None, "", "")
    gain = items(watcher.expect_message(function="get", kind="reply"))["tdmc_gain"]
    assert (gain["value"], gain["text"]) == (0, "0 dB") and len(gain["bytes"]) == 8
    first.ask("1 on")
    statistics = items(watcher.expect_message(name="LIBVOICE_EVENT_zil_call_stats"))
    assert isinstance(statistics["zil_call_stats_txpkts"]["value"], int)


def test_filters(system):
    system.start_application()
    only_line = system.start_watcher("--endpoint", "fxs2.FXS1", "--function", "signal", "event")
    only_in = system.start_watcher("--direction", "in", "--package", "dd")
    first, second = start_telephones(system)
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
    first, second = start_telephones(system)
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
            lambda: peer.call(APPLICATION, "nothing", []) and watcher.out.since(0, '"kind": ?"lost"'),
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
    lift(plugin)
