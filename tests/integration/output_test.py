# SPDX-License-Identifier: MIT
"""What hosts print of a peer's texts: whatever those hold, a terminal that shows it does not obey them."""

import signal
import subprocess

import pytest

from faulty_calls import FakeApplication, event_record, set_record
from media import item
from processes import PATIENCE, until
from wire import APPLICATION, HELLO, RawPeer, U16, head, text

HOSTILE = [
    b"\x1b]0;owned\x07\x1b[2J",  # C0
    b"a\nok\nplugin fxs9 registered\r",  # line breaks
    b"\xc2\x9b31m\xc2\x85",  # C1
    b"\x9b31m\xff\xc0\x8a\xed\xa0\x80",  # no UTF-8
    b"\xe2\x80\xa8x\xe2\x80\xa9",  # U+2028, U+2029
    b"\xe2\x80\xae101\xe2\x81\xa6",  # directions
    b"\x7f\xe6\x9d",  # DEL, and half a character
]
STEERING = [*range(0x20), *range(0x7F, 0xA0), *range(0x200B, 0x2010), *range(0x2028, 0x202F), *range(0x2066, 0x206A)]


def check(output):
    """Output is whole UTF-8 lines without a character that a terminal obeys."""
    lines = output.decode().split("\n")
    assert lines.pop() == ""
    assert [line for line in lines if any(ord(letter) in STEERING for letter in line)] == []
    assert [line for line in lines if line == "plugin fxs9 registered"] == []
    return lines


class Bytes:
    """A host whose output is kept as it is written."""

    def __init__(self, system, program, *words):
        self.path = system.folder / f"{program}.out"
        with open(self.path, "wb") as file:
            self.child = subprocess.Popen(
                [system.bin / program, "--no-stdin", *words], stdout=file, stderr=file, env=system.environment
            )
        until("it is ready", lambda: b"\n" in self.path.read_bytes())

    def end(self):
        self.child.send_signal(signal.SIGTERM)
        assert self.child.wait(PATIENCE) == 0
        return self.path.read_bytes()


def raw_text(value):
    """A text of the wire whose bytes are no UTF-8."""
    return value.decode("utf-8", "surrogateescape")


@pytest.mark.parametrize("hostile", HOSTILE, ids=range(len(HOSTILE)))
def test_texts_of_a_peer_on_the_applications_output(system, hostile):
    system.environment["ZIL_TRACE_LEVEL"] = "0"  # the traces are written by others
    application = Bytes(system, "voice_application")
    name = raw_text(hostile)
    with RawPeer.connect(system.socket, hello=False) as holder, RawPeer.connect(system.socket, hello=False) as other:
        for peer in (holder, other):
            peer.send(head(HELLO) + text(name))  # the name of the process
        assert holder.register("raw1") is True
        assert other.register("raw1") is False
        other.call(APPLICATION, "deregister_plugin", [("plugin_name", "raw1")])
        assert other.register(name + "x" * 40) is False
        holder.call(
            APPLICATION,
            "register_endpoint",
            [
                ("plugin_name", "raw1"),
                ("endpoint_name", name),
                ("endpoint_path", f"raw1.EndPoint.{name}"),
                ("type", U16(1)),
                ("codeclist", b""),
            ],
        )
        holder.register(name[:10])
        holder.call(APPLICATION, "event", [("plugin_name", "raw1"), ("event", event_record(0x7FFFFFFF))])
    lines = check(application.end())
    for part in (" wants the name of ", " stays: ", "name too long", "endpoint refused ", " of unknown endpoint "):
        assert [line for line in lines if part in line] != [], part


@pytest.mark.parametrize("hostile", HOSTILE, ids=range(len(HOSTILE)))
def test_texts_of_the_application_on_a_plugins_output(system, hostile):
    application = FakeApplication(system, "fxs1", "fxs_plugin", "--lines", "1")
    parameters = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_zil_ep_dispname", hostile + b"\0")
    record = set_record(len(parameters), parameters)
    application.call("fxs1.EndPoint.FXS1", "set", [("param_set_params", record)])
    application.peer.call("fxs1", "init", [("country", raw_text(hostile))], answer=application.answer)
    application.plugin.expect("^1 param zil_ep_dispname=")
    application.plugin.expect("^ready country=")
    check("".join(line + "\n" for line in application.plugin.out.all).encode())
    application.close()
