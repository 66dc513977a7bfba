# SPDX-License-Identifier: MIT
"""Cordless handsets, exchange lines and DSP channels beside analogue telephones."""

import contextlib

import pytest

import recordings
from dialling import answer, dial
from faulty_calls import FakeApplication
from media import Pair, connection, identifier, own_address
from processes import Unmet, until
from target import struct
from wire import Fd, U32


@pytest.fixture
def house(system):
    """Telephones 101 and 102, handsets 501 and 502, one line to the exchange, and a DSP."""
    system.application = system.start_application()
    system.telephones = system.start_fxs("fxs1")
    system.handsets = system.start("dect1", "dect_plugin", "--name", "dect1")
    system.exchange = system.start("fxo1", "fxo_plugin", "--name", "fxo1")
    system.dsp = system.start("dsp1", "dsp_plugin", "--name", "dsp1")
    for plugin in (system.handsets, system.exchange, system.dsp):
        plugin.expect("^ready ")
    return system


@pytest.fixture
def outside(system):
    """Telephone 101, which has dialled 0, for the line to the exchange, and the number 30."""
    plan = system.folder / "plan.conf"
    plan.write_text("exchange 0 FXO1\n")
    system.application = system.start_application("--config", plan)
    system.telephones = system.start_fxs("fxs1")
    system.exchange = system.start("fxo1", "fxo_plugin", "--name", "fxo1")
    system.exchange.expect("^ready ")
    dial(system.telephones, "030#")
    return system


def idle(application, label):
    until(f"{label} is idle", lambda: application.lines()[label][0] == "idle")


def talk_and_hang_up(house, caller, end):
    """Telephone 101 and the caller hear each other until the caller ends the call by a command."""
    caller.expect("^1 hears .*Hz$")
    house.telephones.expect("^1 hears .*Hz$")
    caller.ask(end)
    house.telephones.expect("^1 plays busy-tone$")
    house.telephones.ask("1 on")
    idle(house.application, "101")


def test_all_kinds_register(house):
    assert sorted(house.application.plugins()) == ["dect1", "dsp1", "fxo1", "fxs1"]
    assert house.application.lines().keys() == {"101", "102", "501", "502", "fxo1.FXO1"}


def test_handset_calls_a_telephone(house):
    dial(house.handsets, "101")
    answer(house.telephones)
    talk_and_hang_up(house, house.handsets, "1 on")


def test_no_common_codec(house):
    dial(house.telephones, "502")
    house.telephones.expect("^1 plays congestion-tone$")
    house.application.expect("^call 1 101->502 refused: no common codec$")


def test_one_handset_is_deregistered_alone(house):
    house.handsets.ask("2 deregister")
    house.application.expect("^endpoint [0-9]+ dect1.DECT2 gone$")
    assert "501" in house.application.lines() and "502" not in house.application.lines()


def test_exchange_calls_in(house):
    house.exchange.ask('1 ring 03012345678 "Aunt Mary"')
    house.telephones.expect("^1 rings ")
    house.telephones.expect('^1 displays number=03012345678 name="Aunt Mary" ')
    house.telephones.ask("1 off")
    house.exchange.expect("^1 (answered|seized)$")
    talk_and_hang_up(house, house.exchange, "1 hangup")


def test_exchange_stops_ringing(house):
    house.exchange.ask("1 ring 030")
    house.telephones.expect("^1 rings ")
    house.exchange.ask("1 stop")
    house.telephones.expect("^1 stops ringing$")
    idle(house.application, "101")


def test_call_out_over_the_exchange(outside):
    outside.exchange.expect("^1 seized$")
    outside.exchange.expect("^1 dials 30$")
    outside.telephones.expect("^1 hears .*Hz$")
    outside.telephones.ask("1 on")
    outside.exchange.expect("^1 released$")
    idle(outside.application, "101")


def test_a_tone_of_the_exchange_is_recognised_from_its_samples(outside):
    """What the exchange plays comes over RTP: the telephone in the other process says its name."""
    outside.exchange.expect("^1 talking ")
    outside.exchange.ask("1 tone busy-tone")
    outside.exchange.out.expect_from(0, "^1 plays busy-tone$")
    outside.telephones.expect("^1 hears busy-tone$")
    outside.exchange.ask("1 tone ring-back")
    # Beside the exchange's voice three bursts in a row may be needed, 15 s, without a standstill of the machine.
    outside.telephones.expect("^1 hears ring-back$", 60)
    outside.exchange.tell("1 tone shrill")
    outside.exchange.expect("^error: 'shrill': no tone; ")
    outside.telephones.ask("1 on")
    outside.exchange.expect("^1 released$")
    idle(outside.application, "101")


def test_each_ring_offers_the_call_to_whoever_is_free_now(system):
    application = system.start_application()
    telephones = system.start_fxs("fxs1", lines=1)
    # Five seconds from ring to ring pass faster.
    exchange = system.start("fxo1", "fxo_plugin", "--name", "fxo1", environment={"KEX_TIME_FACTOR": "20"})
    exchange.expect("^ready ")
    telephones.ask("1 off")
    telephones.expect("^1 plays dial-tone$")
    exchange.ask("1 ring 030")
    application.expect("^call 1 fxo1.FXO1->101 refused: busy$")
    # It rings: whoever calls out now would answer it.
    telephones.ask("1 dial 0123#")
    application.expect("^call 2 101->0123 refused: no exchange line is free$")
    telephones.ask("1 on")
    answer(telephones)
    exchange.expect("^1 answered$")
    exchange.ask("1 hangup")
    exchange.expect("^1 released$")
    assert exchange.out.since(0, "^1 dials ") == []


def test_handset_out_of_reach_reaches_nobody_and_does_not_ring(house):
    house.handsets.ask("1 off")
    house.handsets.ask("1 away")
    for command in ("1 dial 101", "1 flash"):
        with pytest.raises(Unmet, match="1 is out of reach"):
            house.handsets.ask(command)
    house.handsets.ask("1 on")
    house.application.expect("^handset 501 .*reachable=no$")
    dial(house.telephones, "501")
    house.application.expect("^call 1 101->501 refused: no answer from the handset$")
    house.telephones.expect("^1 plays congestion-tone$")
    house.telephones.ask("1 on")
    house.handsets.ask("1 back")
    house.application.expect("^handset 501 .*reachable=yes$")
    dial(house.telephones, "501")
    answer(house.handsets)
    assert len(house.handsets.out.since(0, "^1 rings ")) == 1


def test_handset_out_of_reach_displays_nothing(house):
    house.handsets.ask("1 away")
    house.application.ask("mwi 501 2")
    house.handsets.expect("^1 is out of reach: displays nothing$")
    house.handsets.ask("1 back")
    house.application.ask("mwi 501 3")
    house.handsets.expect("^1 displays messages=3 lamp=on$")
    assert len(house.handsets.out.since(0, "^1 displays ")) == 1


def test_emergency_numbers_reach_the_exchange(house):
    dial(house.telephones, "112")
    house.exchange.expect("^1 seized$")
    house.exchange.expect("^1 dials 112$")


def test_gain_changes_what_is_heard(house):
    dial(house.telephones, "102")
    house.application.ask("set 101 tdmc_gain -60")
    house.telephones.expect("^1 param tdmc_gain=-60$")
    house.telephones.out.expect_from(0, "^2 rings ")
    house.telephones.ask("2 off")
    house.telephones.expect("^2 hears 1000Hz$")
    assert house.telephones.out.since(0, "^1 hears .*Hz$") == []
    house.application.ask("set 101 tdmc_gain 0")
    house.telephones.out.expect_from(0, "^1 hears 1040Hz$")


def test_dsp_channels_are_created_and_driven(house):
    watcher = house.start_watcher()
    file = house.folder / "channel.wav"
    house.dsp.ask(f"2 record {file}")
    house.dsp.ask(f"2 listen {house.folder}/channel.raw")
    house.application.ask("dsp dsp1")
    for function, endpoint in [
        ("createDsp", "DSPPlugin"),
        ("createDspChannel", "D1"),
        ("createDspChannel", "D1"),
        ("create", "D1C1"),
        ("create", "D1C2"),
        ("signal", "D1C1"),
    ]:
        watcher.expect_message(kind="reply", plugin="dsp1", function=function, endpoint=endpoint, result=True)
    heard = {house.dsp.expect("^channel (D1C[12]) hears .*Hz$").group(1) for _ in range(2)}
    assert heard == {"D1C1", "D1C2"}
    # The ringing tone that one plays is recognised at the other, from what has come over RTP.
    house.dsp.out.expect_from(0, "^channel D1C2 hears ring-back$")
    house.application.ask("dsp dsp1 codec PCMU")
    watcher.expect_message(kind="reply", function="modify", result=True)
    house.application.ask("dsp dsp1 destroy")
    for _ in range(2):
        assert int(house.dsp.expect(r"^channel D1C[12] media ended .*rx=(\d+)").group(1)) > 0
    for command in ("record", "listen"):
        house.dsp.ask(f"2 {command} off")
    heard, said = recordings.read(file)
    assert max(heard) > 5000 and max(said) > 5000
    texts = {text for _, _, text in recordings.labels(file.with_suffix(".labels.txt"))}
    assert {"talking", "hears ring-back", "media ended"} <= texts and "off hook" not in texts, texts
    assert (house.folder / "channel.raw").stat().st_size > 16000


def test_tone_of_a_channel_ends_with_its_media(system):
    application = FakeApplication(system, "dsp1", "dsp_plugin")
    near, far = Pair(own_address()), Pair(own_address())
    near.connect(far)
    dsp, channel = "dsp1.DSPPlugin.DSP.D1", "dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.C1"
    line = ("ep_line_id", U32(0))
    files = [Fd(number) for number in near.filenos()]
    create = [("cnx_info", connection()), ("filedesc", files), ("endpoint_path", ""), line]
    dial_tone = struct.pack("=iIIIIII", 0, identifier("LIBVOICE_SIGNAL_cg_dt"), 0, 0, 0, 0, 0)
    assert application.call("dsp1.DSPPlugin", "createDsp", [("name", "D1")]).result is True
    assert application.call(dsp, "createDspChannel", [("name", "C1")]).result is True
    file = system.folder / "place.wav"
    application.plugin.ask(f"1 record {file}")  # which goes on when there is no channel any more
    assert application.call(channel, "create", create).result is True
    assert application.call(channel, "signal", [("signal", dial_tone)]).result is True
    assert application.call(channel, "destroy", [line]).result is True
    application.plugin.expect("^channel C1 media ended ")
    size = file.stat().st_size
    until("0.6 s more are recorded", lambda: file.stat().st_size > size + 4 * recordings.RATE * 6 // 10)
    application.plugin.ask("1 record off")
    _, said = recordings.read(file)
    assert max(said[-recordings.RATE // 4 :]) == 0, "nobody plays it any more"
    for one in (near, far, application):
        one.close()


def test_dsp_channel_without_media_hears_nothing(house):
    """A burst of the ringing tone has come; media is destroyed before the pause behind it tells which tone it was."""
    house.application.ask("dsp dsp1")
    house.dsp.expect("^channel D1C2 hears 2200Hz$")
    with contextlib.suppress(Unmet):  # so long, in any case
        house.dsp.ask("2 expect ring-back 1200ms")
    house.application.ask("dsp dsp1 destroy")
    house.dsp.expect("^channel D1C2 media ended ")
    with pytest.raises(Unmet, match="not ring-back"):
        house.dsp.ask("2 expect ring-back 2s")


def test_every_plugin_is_killed_at_once(house):
    for plugin in (house.telephones, house.handsets, house.exchange, house.dsp):
        plugin.child.kill()
    until("all are gone", lambda: house.application.plugins() == [] and house.application.lines() == {})
