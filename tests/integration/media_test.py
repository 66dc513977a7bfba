# SPDX-License-Identifier: MIT
"""Calls with sound: RTP runs both ways, each party hears the other, counts are true, and nothing is left afterwards.
With media sockets that the application hands over, and with sockets that the plugins open from addresses."""

import signal
import time
from functools import partial

import pytest

from dialling import answer, call_from_flash, dial, hang_up, ring, start_telephones, talk
from faulty_calls import FakeApplication
from media import (
    CNX_INFO_BYTES,
    EXACT_HEAP,
    FIRST_PORT,
    FORMS,
    FRAME_BYTES,
    PCMA,
    PCMU,
    REPORT,
    STATISTICS,
    STREAM_INFO_BYTES,
    Pair,
    connection,
    held,
    identifier,
    is_heap_kept,
    items,
    numbers,
    own_address,
    rtp,
    settled_heap,
    start_application,
    udp_sockets,
)
from processes import WITHOUT_TAP, until
from target import struct
from wire import Fd, ONE_WAY, U32

FIRST_TONE, SECOND_TONE, THIRD_TONE = "1000Hz", "2200Hz", "2240Hz"  # of fxs1 1, fxs2 1, fxs2 2
FRAME_SAMPLES = 160


@pytest.fixture(params=FORMS)
def office(request, system):
    """An application and two plugins with two telephones each, on an address of their own."""
    system.form = request.param
    system.environment |= EXACT_HEAP
    system.application = start_application(system, *FORMS[system.form])
    # On a bus without a tap the tests that read what passes are left out: see platform/sdbus/tests/not_run.txt.
    system.watcher = None if WITHOUT_TAP else system.start_watcher()
    system.first, system.second = start_telephones(system, *FORMS[system.form])
    system.processes_with_media = [system.application, system.first, system.second]
    before = {process: held(process) for process in system.processes_with_media}
    yield system
    # Whatever the test did: nothing is left open, neither in the plugins nor in the application that gave them sockets.
    for process in system.processes_with_media:
        until(f"{process.name} holds what it held before", lambda process=process: held(process) == before[process])


def media(process, number, line=0, codec="PCMA"):
    """The ports that a telephone says it talks over."""
    match = process.expect(
        rf"^{number} talking line={line} codec={codec} ports=(\d+)->(\d+)( context=\d+ stream=\d+)?$"
    )
    return int(match.group(1)), int(match.group(2))


def ended(process, number, line=0):
    """The counts with which a telephone's media ended for the first time."""
    _, match = process.out.expect_from(0, rf"^{number} media ended line={line} .*rtcp=\d+/\d+ .*$")
    return numbers(STATISTICS.search(match.string))


def reported(office, call, line):
    """What the application was told of the media of one party."""
    _, match = office.application.out.expect_from(0, rf"^stats call={call} line={line} .*")
    found = numbers(REPORT.search(match.string))
    assert found["txbytes"] == found["tx"] * FRAME_BYTES and found["rxbytes"] == found["rx"] * FRAME_BYTES
    return found


def check_counts(mine, others, report):
    """One party's counts against the report and against what the other one sent."""
    for name in ("tx", "rx", "lost", "discarded"):
        assert mine[name] == report[name], name
    assert mine["rx"] > 0 and mine["tx"] > 0
    assert mine["lost"] == 0  # nothing gets lost on the loopback
    assert mine["rx"] <= others["tx"]


def check_discarded(process, counts):
    """Nothing of a clean call is of no use but what a busy machine makes late, which came like the rest."""
    _, match = process.out.expect_from(0, r"^1 media ended .* late=(\d+) twice=0 ")
    assert counts["discarded"] == int(match[1])


def media_commands(watcher, plugin):
    """The functions that were called for media of a plugin's lines, in order."""
    return [
        message["function"]
        for message in watcher.messages(plugin=plugin)
        if message["function"] in ("create", "modify", "destroy")
    ]


def end(office):
    hang_up(office.first, office.second)
    office.application.expect("^line 201 idle$")


def test_complete_call(office):
    talk(office.first, "201", office.second)
    here, there = media(office.first, 1)
    assert media(office.second, 1) == (there, here)
    assert len({here, there}) == 2 and here >= FIRST_PORT and here % 2 == there % 2 == 0
    # Media and, on the next port, control; each in the process that talks and in no other.
    for process, ours, theirs in ((office.first, here, there), (office.second, there, here)):
        wanted = [(ours, theirs), (ours + 1, theirs + 1)]
        if WITHOUT_TAP:  # sd-bus keeps what came until the function has returned, and the plugin talks before that
            until(f"{process.name} has its sockets once", lambda: udp_sockets(process) == wanted)
        assert udp_sockets(process) == wanted
    # A plugin may talk before the bus has closed the application's copies of what it was sent.
    until("the application has no socket of the call", lambda: udp_sockets(office.application) == [])
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    end(office)
    mine, others = ended(office.first, 1), ended(office.second, 1)
    check_counts(mine, others, reported(office, 1, 101))
    check_counts(others, mine, reported(office, 1, 201))
    check_discarded(office.first, mine)
    check_discarded(office.second, others)


def test_what_the_bus_carries_for_a_call(office):
    talk(office.first, "201", office.second)
    for plugin in ("fxs1", "fxs2"):
        # Media requests ask for no answer: how they went shows in what the plugins report.
        create = office.watcher.expect_message(kind="one_way_call", function="create", plugin=plugin, endpoint="FXS1")
        assert create["flags"] == 0x8001
        arguments = create["arguments"]
        assert arguments["ep_line_id"] == 0
        if office.form == "descriptors":
            assert list(arguments) == ["ep_line_id", "filedesc", "cnx_info"]
            media_fd, control_fd, fax = (one["fd"] for one in arguments["filedesc"])
            assert media_fd >= 0 and control_fd >= 0 and media_fd != control_fd and fax == -1
            assert len(bytes.fromhex(arguments["cnx_info"]["hex"])) == CNX_INFO_BYTES
        else:
            assert list(arguments) == ["ep_line_id", "cnx_info"]
            assert len(bytes.fromhex(arguments["cnx_info"]["hex"])) == CNX_INFO_BYTES + 2 * 16
    end(office)
    for plugin in ("fxs1", "fxs2"):
        destroy = office.watcher.expect_message(function="destroy", plugin=plugin, endpoint="FXS1")
        assert destroy["arguments"] == {"ep_line_id": 0}


def test_codec_change(office):
    talk(office.first, "201", office.second)
    ports = media(office.first, 1), media(office.second, 1)
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    mark = office.first.out.mark()
    office.application.ask("codec 101 PCMU")
    office.application.expect("^call 1 101->201 codec=PCMU$")
    changed = media(office.first, 1, codec="PCMU"), media(office.second, 1, codec="PCMU")
    assert changed[0] == changed[1][::-1]
    office.first.expect(f"^1 hears {SECOND_TONE}$")  # as before: what was sent is understood again
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    if office.form == "descriptors":
        assert changed == ports  # the sockets stay
        assert office.first.out.since(mark, "media ended") == []
    else:
        assert set(changed[0]).isdisjoint(ports[0])
        assert len(office.first.out.since(mark, "^1 media ended ")) == 1
    for plugin in ("fxs1", "fxs2"):
        wanted = ["create", "modify"] if office.form == "descriptors" else ["create", "destroy", "create"]
        until(
            f"{plugin} got {wanted}",
            lambda plugin=plugin, wanted=wanted: media_commands(office.watcher, plugin) == wanted,
        )
    for modify in office.watcher.messages(function="modify"):
        assert [one["fd"] for one in modify["arguments"]["filedesc"]] == [-1, -1, -1]
    end(office)


def test_hold_silences_the_line_and_resuming_brings_it_back(office):
    talk(office.first, "201", office.second)
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    office.first.ask("1 flash")
    office.second.expect("^1 hears held-tone$")
    if office.form == "descriptors":
        office.second.out.expect_from(0, "^1 on hold line=0 ")
    else:
        ended(office.second, 1)
    office.first.expect("^1 plays dial-tone$")
    office.first.ask("1 flash")
    office.application.expect("^call 1 101->201 resumed$")
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    end(office)


def test_three_parties(office):
    talk(office.first, "201", office.second)
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    call_from_flash(office.first, "202", office.second, line=2)
    office.application.expect("^call 2 101->202 answered")
    office.first.expect(f"^1 hears {THIRD_TONE}$")
    office.first.ask("1 flash")
    office.application.expect("^conference 1 101: 201, 202$")
    for line in (0, 1):
        office.first.expect(rf"^1 talking line={line} codec=PCMA ports=\d+->\d+ context=1 stream={line + 1}$")
    # Everybody hears everybody but himself.
    mark = office.second.out.mark()
    office.first.expect(rf"^1 hears {SECOND_TONE}\+{THIRD_TONE}$")
    office.second.out.expect_from(mark - 1, rf"^1 hears {FIRST_TONE}\+{THIRD_TONE}$")
    office.second.out.expect_from(0, rf"^2 hears {FIRST_TONE}\+{SECOND_TONE}$")
    assert office.watcher.expect_message(function="create_ctx", plugin="fxs1")["arguments"] == {"ctx_id": 1}
    for line in (0, 1):
        # A context's streams come with descriptors in either form.
        added = office.watcher.expect_message(function="add_stream", plugin="fxs1")["arguments"]
        assert list(added) == ["ep_id", "ctx_id", "line_id", "stream_info", "filedesc"]
        assert (added["ep_id"], added["ctx_id"], added["line_id"]) == (0, 1, line)
        assert len(bytes.fromhex(added["stream_info"]["hex"])) == STREAM_INFO_BYTES
        media_fd, control_fd, fax = (one["fd"] for one in added["filedesc"])
        assert media_fd >= 0 and control_fd >= 0 and fax == -1
    assert len(udp_sockets(office.first)) == 4

    mark = office.second.out.mark()
    office.second.ask("2 on")
    office.application.expect("^call 2 101->202 ended: 202 hung up$")
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.second.out.expect_from(mark, f"^1 hears {FIRST_TONE}$")
    assert len(udp_sockets(office.first)) == 2
    office.first.ask("1 on")
    office.application.expect("^conference 1 ended$")
    office.second.ask("1 on")
    for stream in (2, 1):
        removed = office.watcher.expect_message(function="remove_stream", plugin="fxs1")
        assert removed["arguments"] == {"ctx_id": 1, "stream_id": stream}
    assert office.watcher.expect_message(function="destroy_ctx", plugin="fxs1")["arguments"] == {"ctx_id": 1}
    for line in (101, 201):
        office.application.out.expect_from(0, f"^stats call=1 line={line} ")
    for line in (101, 202):
        office.application.out.expect_from(0, f"^stats call=2 line={line} ")


def test_codec_change_in_a_conference(office):
    talk(office.first, "201", office.second)
    call_from_flash(office.first, "202", office.second, line=2)
    office.first.expect(f"^1 hears {THIRD_TONE}$")
    office.first.ask("1 flash")
    office.first.expect(rf"^1 hears {SECOND_TONE}\+{THIRD_TONE}$")
    office.application.ask("codec 201 PCMU")
    office.first.expect(r"^1 talking line=0 codec=PCMU ports=\d+->\d+ context=1 stream=1$")
    office.first.expect(rf"^1 hears {SECOND_TONE}\+{THIRD_TONE}$")
    office.first.ask("1 on")
    office.application.expect("^conference 1 ended$")


def test_calls_side_by_side_do_not_mix(office):
    talk(office.first, "201", office.second)
    dial(office.first, "202", line=2)
    answer(office.second, line=2)
    for process, number, tone in [
        (office.first, 1, SECOND_TONE),
        (office.first, 2, THIRD_TONE),
        (office.second, 1, FIRST_TONE),
        (office.second, 2, "1040Hz"),
    ]:
        process.out.expect_from(0, f"^{number} hears {tone}$")
    assert len(udp_sockets(office.first)) == len(udp_sockets(office.second)) == 4
    office.first.ask("1 on")
    office.first.ask("2 on")
    for line in (101, 102, 201, 202):
        office.application.out.expect_from(0, rf"^stats call=\d line={line} ")


def test_plugin_that_dies_in_a_call_leaves_the_other_without_sockets(office):
    talk(office.first, "201", office.second)
    office.second.expect(f"^1 hears {FIRST_TONE}$")
    office.first.kill()
    office.application.expect("^call 1 101->201 ended: ")
    ended(office.second, 1)
    office.second.ask("1 on")
    office.processes_with_media = [office.second]


def test_application_that_dies_in_a_call_leaves_both_without_sockets(office):
    talk(office.first, "201", office.second)
    office.first.expect(f"^1 hears {SECOND_TONE}$")
    office.application.kill()
    for process in (office.first, office.second):
        process.expect("^application lost$")
        ended(process, 1)
    until("all sockets are closed", lambda: udp_sockets(office.first) == udp_sockets(office.second) == [])
    office.processes_with_media = []


def test_counts_agree_with_what_a_stranger_sent_and_received(system):
    """The far end is not ours: it knows exactly what it sent, what it left out, and what it got."""
    fake = FakeApplication(system, "fxs1", "fxs_plugin", "--lines", "1")
    near, far = Pair(own_address()), Pair(own_address())
    near.connect(far)
    far.connect(near)
    events = []

    def take(packet):
        if packet.kind == ONE_WAY and packet.function == "event":
            events.append(packet.arguments["event"])
        fake.answer(packet)

    def call(function, arguments):
        return fake.peer.call("fxs1.EndPoint.FXS1", function, arguments, answer=take).result

    with open("/dev/null", "rb") as fax:
        descriptors = [Fd(number) for number in near.filenos() + [fax.fileno()]]
        assert call("create", [("ep_line_id", U32(0)), ("filedesc", descriptors), ("cnx_info", connection())]) is True
    near.close()  # its copies are the plugin's now
    for place in range(11):
        if place != 5:
            far.sockets[0].send(
                rtp(65530 + place, 1000 + place * FRAME_SAMPLES)
            )  # the sequence number wraps on the way
    for place in (11, 12):  # of another codec: these came, and were of no use
        far.sockets[0].send(rtp(65530 + place, 1000 + place * FRAME_SAMPLES, payload_type=PCMU))
    far.sockets[0].send(b"no RTP")
    far.sockets[0].settimeout(20)
    got = [far.sockets[0].recv(2048) for _ in range(5)]
    assert call("destroy", [("ep_line_id", U32(0))]) is True
    statistics = ended(fake.plugin, 1)
    far.sockets[0].setblocking(False)
    while len(got) < statistics["tx"]:
        got.append(far.sockets[0].recv(2048))
    with pytest.raises(BlockingIOError):
        far.sockets[0].recv(2048)
    assert statistics == {"line": 0, "tx": len(got), "rx": 10, "lost": 1, "discarded": 3}

    heads = [struct.unpack_from("!BBHII", packet) for packet in got]
    _, _, sequence, timestamp, source = heads[0]
    for place, head in enumerate(heads):
        marker = head[1] & 0x80  # at the begin, and behind a stop of the process: samples were left out there
        if marker and place > 0:
            assert 0 < head[3] - timestamp & 0xFFFFFFFF < 1 << 31
            timestamp = head[3]
        assert marker or place > 0
        assert head == (0x80, marker | PCMA, sequence + place & 0xFFFF, timestamp, source)
        timestamp = timestamp + FRAME_SAMPLES & 0xFFFFFFFF
        assert len(got[place]) == 12 + FRAME_BYTES

    while not events:
        take(fake.peer.receive())
    counts = items(events[0][20:])

    def count(name):
        return counts[identifier(f"LIBVOICE_PARAM_zil_call_stats_{name}")]

    assert struct.unpack_from("=iII", events[0]) == (0, identifier("LIBVOICE_EVENT_zil_call_stats"), 0)
    assert (count("txpkts"), count("txbytes")) == (len(got), len(got) * FRAME_BYTES)
    assert (count("rxpkts"), count("rxbytes")) == (10, 10 * FRAME_BYTES)
    assert (count("lost"), count("discarded")) == (1, 3)
    far.close()
    fake.close()


def test_a_process_that_was_stopped_is_not_behind_afterwards(system):
    """RTP time goes by the clock, what was not said in time is not sent, and no sequence number is left out."""
    fake = FakeApplication(system, "fxs1", "fxs_plugin", "--lines", "1")
    near, far = Pair(own_address()), Pair(own_address())
    near.connect(far)
    far.connect(near)
    files = [Fd(number) for number in near.filenos()]
    call = partial(fake.peer.call, "fxs1.EndPoint.FXS1", answer=fake.answer)
    arguments = [("ep_line_id", U32(0)), ("filedesc", files), ("cnx_info", connection())]
    assert call("create", arguments).result is True
    near.close()
    far.sockets[0].settimeout(20)
    heads = [struct.unpack_from("!BBHII", far.sockets[0].recv(2048)) for _ in range(10)]
    fake.plugin.child.send_signal(signal.SIGSTOP)
    time.sleep(1)
    far.sockets[0].setblocking(False)
    while True:  # what left before it stood still
        try:
            heads.append(struct.unpack_from("!BBHII", far.sockets[0].recv(2048)))
        except BlockingIOError:
            break
    far.sockets[0].settimeout(20)
    stopped = len(heads)
    fake.plugin.child.send_signal(signal.SIGCONT)
    heads += [struct.unpack_from("!BBHII", far.sockets[0].recv(2048)) for _ in range(20)]
    for before, head in zip(heads, heads[1:]):
        assert head[2] == before[2] + 1 & 0xFFFF, "a sequence number is left out"
    steps = [head[3] - before[3] & 0xFFFFFFFF for before, head in zip(heads, heads[1:])]
    assert all(step % FRAME_SAMPLES == 0 for step in steps)
    gap = steps.index(max(steps))
    assert gap in (stopped - 1, stopped), "one packet at most was about to leave when it was stopped"
    assert steps[gap] >= 40 * FRAME_SAMPLES, "RTP time stood still"
    assert heads[gap + 1][1] & 0x80, "no marker behind the gap"
    far.close()
    fake.close()


def test_media_of_many_calls_leaves_no_memory(office):
    """The heap after the twelfth call is what it was after the first."""
    first = None
    for turn in range(12):
        ring(office.first, "201", office.second)
        office.second.ask("1 off")
        media(office.first, 1)
        media(office.second, 1)
        office.application.ask("codec 101 PCMU")
        media(office.first, 1, codec="PCMU")
        media(office.second, 1, codec="PCMU")
        end(office)
        reported(office, turn + 1, 101)
        reported(office, turn + 1, 201)
        if turn == 0:
            first = [settled_heap(process) for process in office.processes_with_media]
    kept = [is_heap_kept(process, before) for process, before in zip(office.processes_with_media, first)]
    assert all(kept), kept
