# SPDX-License-Identifier: MIT
"""Every bus function of the library with arguments that are missing, of another type, too short, too long: over the
real socket, into real hosts. Each call is answered, and the host does its work afterwards."""

import os

import pytest

from dialling import lift
from faulty_calls import (
    APPLICATION_FUNCTIONS,
    DSP_FUNCTIONS,
    ENDPOINT_FUNCTIONS,
    PLUGIN_FUNCTIONS,
    FakeApplication,
    WITHOUT_VALUE,
    event_record,
    faults,
    set_record,
    signal_record,
)
from processes import System
from target import struct
from wire import APPLICATION, Fd, I32, RawPeer, REPLY, U16, U32


@pytest.fixture(scope="module")
def shared_application():
    """One application for all calls: it must get through every one of them."""
    with System() as system:
        system.application = system.start_application()
        system.plugin = system.start_fxs("fxs1")
        yield system
        assert system.application.running, system.report()
        lift(system.plugin)


def test_application_answers_every_fault(shared_application):
    with RawPeer.connect(shared_application.socket) as peer:
        for case in faults(APPLICATION_FUNCTIONS):
            function, arguments, error = case.values
            answer = peer.call(APPLICATION, function, arguments)
            assert answer is not None and answer.kind == REPLY, case.id
            assert answer.errors == [error], case.id
            assert answer.result is (None if function == "event" else False), case.id


def test_application_takes_texts_of_any_content(shared_application):
    texts = [
        "",
        "a" * 19,
        "a" * 20,
        "a" * 300,
        "a" * 60_000,
        "%s%n%s",
        "\x1b[2J",
        "x\0y",
        "..",
        "\u00fc" * 40,
        "VoiceService.VoiceApplication",
    ]
    with RawPeer.connect(shared_application.socket) as peer:
        for name in texts:
            assert peer.call(APPLICATION, "deregister_plugin", [("plugin_name", name)]).kind == REPLY
            arguments = [
                ("plugin_name", "fxs1"),
                ("endpoint_name", name),
                ("endpoint_path", f"fxs1.EndPoint.{name}"),
                ("type", U16(1)),
                ("codeclist", b""),
            ]
            answer = peer.call(APPLICATION, "register_endpoint", arguments)
            assert answer.kind == REPLY, repr(name[:30])
            if answer.result is not False:
                assert peer.call(APPLICATION, "deregister_endpoint", [("endpoint", U16(answer.result))]).result is True
            assert peer.call(APPLICATION, "event", [("plugin_name", name), ("event", event_record())]).kind == REPLY
    for name in texts:
        with RawPeer.connect(shared_application.socket) as peer:
            assert (
                peer.call(APPLICATION, "register_plugin", [("plugin_name", name)], answer=lambda packet: None).kind
                == REPLY
            )


def test_application_measures_events(shared_application):
    records = [
        b"",
        b"\x00",
        event_record()[:19],
        event_record(length=1),
        event_record(length=0xFFFFFFFF),
        event_record(endpoint=-1),
        event_record(endpoint=2**31 - 1),
        event_record(length=4, parameters=b"\xff" * 4),
        event_record(length=8, parameters=struct.pack("=II", 0x24090502, 0xFFFFFFFF)),
        event_record(length=90_000, parameters=b"\xff" * 90_000),
        event_record(parameters=b"more than announced"),
    ]
    with RawPeer.connect(shared_application.socket) as peer:
        for record in records:
            answer = peer.call(APPLICATION, "event", [("plugin_name", "fxs1"), ("event", record)])
            assert answer.kind == REPLY and answer.result is None and answer.errors == []


def test_application_takes_codec_lists_of_any_length(shared_application):
    with RawPeer.connect(shared_application.socket) as peer:
        for length in (1, 15, 16, 17, 255, 256, 257, 4096, 90_000):
            arguments = [
                ("plugin_name", "fxs1"),
                ("endpoint_name", f"L{length}"),
                ("endpoint_path", f"fxs1.EndPoint.L{length}"),
                ("type", U16(1)),
                ("codeclist", b"\xff" * length),
            ]
            number = peer.call(APPLICATION, "register_endpoint", arguments).result
            assert number is not False and number >= 0, length
            assert peer.call(APPLICATION, "deregister_endpoint", [("endpoint_id", U16(number))]).result is True


@pytest.fixture
def fake(system):
    one = FakeApplication(system, "fxs1", "fxs_plugin", "--lines", "1")
    yield one
    one.close()


@pytest.fixture
def fake_of_dsp(system):
    one = FakeApplication(system, "dsp1", "dsp_plugin")
    yield one
    one.close()


@pytest.mark.parametrize(
    "path, functions",
    [("fxs1", PLUGIN_FUNCTIONS), ("fxs1.EndPoint.FXS1", ENDPOINT_FUNCTIONS)],
    ids=["plugin", "endpoint"],
)
def test_plugin_answers_every_fault(fake, path, functions):
    for case in faults(functions):
        function, arguments, error = case.values
        answer = fake.call(path, function, arguments)
        assert answer.errors == [error], case.id
        name = case.id.split("-")[1]
        if function == "event":
            assert answer.result is True, case.id
        else:
            assert answer.result is (None if (function, name) in WITHOUT_VALUE else False), case.id
    fake.still_works()


def test_plugin_measures_records(fake):
    path = "fxs1.EndPoint.FXS1"
    for length in (0, 1, 7, 8, 19, 20, 27, 28, 29, 90_000):
        for fill in (b"\x00", b"\xff"):
            for function, name in (("signal", "signal"), ("get", "param_set_request"), ("set", "param_set_params")):
                fake.call(path, function, [(name, fill * length)])
            assert fake.call(path, "event", [("event", fill * length), ("channel_id", U32(0))]).result is True
    for announced in (1, 4, 8, 0x7FFFFFFF, 0xFFFFFFFF):
        for body in (b"", b"\xff" * 3, struct.pack("=II", 0x24090502, 0xFFFFFFFC)):
            fake.call(path, "signal", [("signal", signal_record(announced, body))])
            fake.call(path, "set", [("param_set_params", set_record(announced, body))])
            fake.call(path, "get", [("param_set_request", set_record(announced, body))])
    fake.still_works()


def test_plugin_keeps_no_descriptor_of_failed_media(fake):
    before = fake.plugin.descriptors()
    with open(os.devnull, "rb") as null:
        some = Fd(null.fileno())
        for function in ("create", "modify"):
            for files in ([], [some] * 12, [some, Fd(-1), some], ["x"], [some, "x"], [[some]], [U32(3)]):
                for info in (b"", b"\xff" * 704, b"\xff" * 705, b"\xff" * 735, b"\xff" * 736, b"\xff" * 90_000):
                    fake.call(
                        "fxs1.EndPoint.FXS1",
                        function,
                        [("cnx_info", info), ("filedesc", files), ("ep_line_id", U32(0))],
                    )
            fake.call(
                "fxs1.EndPoint.NONE", function, [("cnx_info", b""), ("filedesc", [some] * 3), ("ep_line_id", U32(0))]
            )
        # No more than the three that a stream has: how many others came, the callback cannot tell.
        for files in ([], [some], [some] * 3, ["x"]):
            fake.call(
                "fxs1",
                "add_stream",
                [
                    ("ep_id", I32(0)),
                    ("ctx_id", U32(9)),
                    ("line_id", U32(0)),
                    ("stream_info", b"\xff" * 712),
                    ("filedesc", files),
                ],
            )
    assert fake.plugin.descriptors() == before
    fake.still_works()


def test_template_and_unknown_endpoints_take_no_calls(fake):
    for path in ("fxs1.EndPoint", "fxs1.EndPoint.FXS2", "fxs1.EndPoint.", "fxs1.x", "fxs2"):
        answer = fake.call(path, "signal", [("signal", signal_record())])
        assert answer.result is None and answer.errors[0][0] == 0x00010001, path


def test_dsp_plugin_answers_every_fault(fake_of_dsp):
    for path, functions in DSP_FUNCTIONS.items():
        for case in faults(functions):
            function, arguments, error = case.values
            answer = fake_of_dsp.call(path, function, arguments)
            assert answer.errors == [error] and answer.result is False, case.id
        for function, arguments in functions.items():
            # What the next path names is made here; a second one of the same name is refused without an error entry.
            if function.startswith("createDsp"):
                given = [(name, good) for name, _, good, _ in arguments]
                assert fake_of_dsp.call(path, function, given).result is True
                again = fake_of_dsp.call(path, function, given)
                assert again.result is False and again.errors == []


def test_dsp_names_of_any_content(fake_of_dsp):
    for name in ["", ".", "a.b", "DSP", "x" * 300, "x" * 60_000, "%n%s", "\x1b[2J", "\u00fc"]:
        answer = fake_of_dsp.call("dsp1.DSPPlugin", "createDsp", [("name", name)])
        assert answer.errors == [] and answer.result in (True, False), repr(name[:20])
    assert fake_of_dsp.call("dsp1.DSPPlugin", "createDsp", [("name", "after")]).result is True


def test_dsp_channel_keeps_no_descriptor_of_failed_media(fake_of_dsp):
    path = "dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.C1"
    fake_of_dsp.call("dsp1.DSPPlugin", "createDsp", [("name", "D1")])
    assert fake_of_dsp.call("dsp1.DSPPlugin.DSP.D1", "createDspChannel", [("name", "C1")]).result is True
    before = fake_of_dsp.plugin.descriptors()
    with open(os.devnull, "rb") as null:
        some = Fd(null.fileno())
        for files in ([], [some] * 12, [some, Fd(-1), some], ["x"], [[some]]):
            for info in (b"", b"\xff" * 704, b"\xff" * 90_000):
                arguments = [("cnx_info", info), ("filedesc", files), ("endpoint_path", "x"), ("ep_line_id", U32(0))]
                assert fake_of_dsp.call(path, "create", arguments).result is False
                assert fake_of_dsp.call(path, "modify", arguments).result is False
    assert fake_of_dsp.plugin.descriptors() == before
