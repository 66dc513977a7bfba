# SPDX-License-Identifier: MIT
"""Wrong arguments for every bus function, missing or of another type, and an application that sends them."""

from typing import NamedTuple

from processes import QUICK_RETRY
from target import struct
from wire import CALL, Fd, I16, I32, ONE_WAY, RawListener, REPLY, U16, U32, reply

SENTENCE = 196638  # an error with a sentence of its own
MISSING = 196640
MISSING_TEXT = "Missing mandatory argument"

# What stands where another type is expected.
WRONG = {
    "none": None,
    "text": "x",
    "number": U32(7),
    "negative": I32(-1),
    "boolean": True,
    "bytes": b"\x01\x02",
    "list": [],
    "list_of_lists": [[["x"]]],
    "no_descriptor": Fd(-1),
    "small_number": I16(-5),
}


def is_kind(kind, item):
    """Whether a value is of the kind that an argument wants."""
    numbers = {"u16": (0, 0xFFFF), "u32": (0, 0xFFFFFFFF), "i32": (-(2**31), 2**31 - 1)}
    if kind in numbers:
        low, high = numbers[kind]
        return isinstance(item, (U16, U32, I16, I32)) and low <= item <= high
    return {"text": isinstance(item, str), "bytes": isinstance(item, bytes), "list": isinstance(item, list)}[kind]


def event_record(endpoint=0, length=0, parameters=b""):
    return struct.pack("=iIIII", endpoint, 0x20090500, 0, 0xDEADBEEF, length) + parameters


# Functions of the application: arguments in reading order with their kind, a good value, the error when it is missing.
NAME_ERROR = (SENTENCE, "Missing 'name' parameter.", "name")
APPLICATION_FUNCTIONS = {
    "register_plugin": [("plugin_name", "text", "raw", (SENTENCE, "Missing 'plugin_name' parameter.", "plugin_name"))],
    "deregister_plugin": [("plugin_name", "text", "nobody", NAME_ERROR)],
    "register_endpoint": [
        ("plugin_name", "text", "nobody", NAME_ERROR),
        ("endpoint_name", "text", "R1", NAME_ERROR),
        ("endpoint_path", "text", "raw.EndPoint.R1", NAME_ERROR),
        ("type", "u16", U16(1), (SENTENCE, "Missing 'type' parameter.", "type")),
        ("codeclist", "bytes", b"", (MISSING, MISSING_TEXT, "codeclist")),
    ],
    "deregister_endpoint": [("endpoint", "u16", U16(999), (SENTENCE, "Missing 'type' parameter.", "type"))],
    "event": [
        ("plugin_name", "text", "raw", NAME_ERROR),
        ("event", "bytes", event_record(), (MISSING, MISSING_TEXT, "event")),
    ],
}


class Case(NamedTuple):
    values: tuple  # function, arguments, and the error that answers them
    id: str


def faults(functions):
    """Each argument of each function once left out and once of every other kind."""
    for function, arguments in functions.items():
        for index, (name, kind, _, error) in enumerate(arguments):

            def given(item, index=index, arguments=arguments):
                return [
                    (other, item if place == index else good) for place, (other, _, good, _) in enumerate(arguments)
                ]

            left_out = given(None)[:index] + given(None)[index + 1 :]
            yield Case((function, left_out, error), f"{function}-{name}-left_out")
            for wrong, item in WRONG.items():
                if item is not None and not is_kind(kind, item):
                    yield Case((function, given(item), error), f"{function}-{name}-{wrong}")


# Functions of a plugin and its endpoints.
def set_record(length=0, parameters=b""):
    return struct.pack("=II", 0xDEADBEEF, length) + parameters


def signal_record(length=0, parameters=b""):
    return struct.pack("=iIIIIII", 0, 0x10073000, 0, 0, 0, 0xDEADBEEF, length) + parameters


def argument(name, kind, good, info=None):
    return name, kind, good, (MISSING, MISSING_TEXT, info or name)


CNX = argument("cnx_info", "bytes", bytes(704))
LINE = argument("ep_line_id", "u32", U32(0))
FILES = argument("filedesc", "list", [Fd(-1)])
CTX = argument("ctx_id", "u32", U32(1))
STREAM = argument("stream_info", "bytes", bytes(712), "cnx_info")

PLUGIN_FUNCTIONS = {
    "exit": [argument("reason", "u32", U32(0))],
    "create_ctx": [CTX],
    "add_stream": [argument("ep_id", "i32", I32(0)), CTX, argument("line_id", "u32", U32(0)), STREAM, FILES],
    "modify_stream": [CTX, STREAM],
    "remove_stream": [CTX, argument("stream_id", "u32", U32(0))],
    "destroy_ctx": [CTX],
    "init": [argument("country", "text", "DE")],
}
ENDPOINT_FUNCTIONS = {
    "signal": [argument("signal", "bytes", signal_record())],
    "event": [argument("event", "bytes", event_record()), argument("channel_id", "u32", U32(0))],
    "create": [CNX, FILES, LINE],
    "modify": [CNX, FILES, LINE],
    "destroy": [LINE],
    "get": [argument("param_set_request", "bytes", set_record())],
    "set": [argument("param_set_params", "bytes", set_record())],
}
# Which argument, left out, ends a call without a return value; elsewhere it is false, and always true for "event".
WITHOUT_VALUE = {
    ("create_ctx", "ctx_id"),
    ("add_stream", "ctx_id"),
    ("add_stream", "ep_id"),
    ("modify_stream", "ctx_id"),
    ("remove_stream", "ctx_id"),
    ("remove_stream", "stream_id"),
    ("destroy_ctx", "ctx_id"),
    ("destroy", "ep_line_id"),
    ("get", "param_set_request"),
}


DSP_NAME_ERROR = (SENTENCE, "Missing 'name' parameter.", "name")
DSP_CNX = argument("cnx_info", "bytes", bytes(704))
DSP_LINE = argument("ep_line_id", "u32", U32(0), "filedesc")
DSP_FUNCTIONS = {
    "dsp1.DSPPlugin": {"createDsp": [("name", "text", "D1", DSP_NAME_ERROR)]},
    "dsp1.DSPPlugin.DSP.D1": {"createDspChannel": [("name", "text", "C1", DSP_NAME_ERROR)]},
    "dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.C1": {
        "signal": [argument("signal", "bytes", signal_record(), "cnx_info")],
        "create": [DSP_CNX, FILES, argument("endpoint_path", "text", ""), DSP_LINE],
        "modify": [DSP_CNX, FILES, DSP_LINE],
        "destroy": [DSP_LINE],
    },
}


class FakeApplication:
    """A raw listener that a real plugin registers with, and that then calls it."""

    def __init__(self, system, name, *words):
        self.listener = RawListener(system.socket)
        self.plugin = system.start(name, *words, "--name", name, environment=QUICK_RETRY)
        self.peer = self.listener.accept()
        registration = self.peer.receive()
        assert (registration.kind, registration.function) == (CALL, "register_plugin")
        self.peer.send(reply(registration.serial, True))
        assert self.peer.call(name, "init", [("country", "DE")], answer=self.answer).result is True
        self.plugin.expect("^ready ")

    def close(self):
        self.peer.close()
        self.listener.close()

    def answer(self, packet):
        if packet.kind == CALL:
            self.peer.send(reply(packet.serial, I16(0) if packet.function == "register_endpoint" else True))

    def call(self, path, function, arguments):
        answer = self.peer.call(path, function, arguments, answer=self.answer)
        assert answer is not None and answer.kind == REPLY, (function, arguments)
        return answer

    def still_works(self):
        """The line plays what it is told."""
        self.plugin.ask("1 off")
        while True:
            packet = self.peer.receive()
            if packet.kind == ONE_WAY and packet.function == "event":
                break
            self.answer(packet)
        assert self.call("fxs1.EndPoint.FXS1", "signal", [("signal", signal_record())]).result is True
        self.plugin.expect("^1 plays dial-tone$")
