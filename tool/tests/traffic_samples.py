# SPDX-License-Identifier: MIT
"""Traffic of an evening for captures: plugins register, telephones call each other, one waits, one is refused."""

import struct

from captures import APPLICATION, CALL, CONNECTED, ONE_WAY, ORDERS, REPLY, UPPER_LAYER, WAITING
from captures import Writer, block, padded, record, tag

FXS = ("fxs_plugin", 200, 1)
DECT = ("dect_plugin", 300, 2)
OFF_HOOK, ON_HOOK, DIGIT_2, RING, DIAL_TONE = 0x20090500, 0x20090400, 0x20061200, 0x10090200, 0x10073000
DISPLAY, DISPLAY_BLOCK = 0x103C0400, 0x133C0401
SHOWN = b"801A010831313231313133380203313031070446585331030331303292"
CONTROLLER = "VoiceService.VoiceApplication"


class Evening:
    """Packets of a capture, each with its time in us; `texts` are hostile or not."""

    def __init__(self, order="little", names=("fxs1", "dect1"), ids=None):
        self.bus = Writer(order)
        self.order = order
        self.packets = []
        self.time = 1_700_000_000_000_000
        self.serial = 0
        self.plugins = dict(zip((FXS, DECT), names))
        self.ids = ids or {}

    def add(self, kind, message, sender, receiver, after=500, **more):
        self.time += after
        self.packets.append((self.time, tags_of("kexbus"), record(kind, message, sender, receiver, **more)))

    def call(self, sender, receiver, path, function, arguments, answer=b"\x0a\x01", takes=400, errors=(), after=500):
        self.serial += 1
        self.add(CALL, self.bus.call(self.serial, path, function, arguments), sender, receiver, after)
        if answer is not None or errors:
            self.add(REPLY, self.bus.reply(self.serial, answer, errors), receiver, sender, takes)

    def register(self, plugin, endpoints):
        name = self.plugins[plugin]
        self.add(CONNECTED, b"", plugin, APPLICATION)
        self.call(plugin, APPLICATION, CONTROLLER, "register_plugin", [("plugin_name", name)])
        for number, endpoint in endpoints:
            arguments = [("plugin_name", name), ("endpoint_name", endpoint)]
            value = b"\x03" + struct.pack(self.bus.form + "h", number)
            self.call(plugin, APPLICATION, CONTROLLER, "register_endpoint", arguments, value)

    def event(self, plugin, endpoint, identifier, after=500_000):
        self.serial += 1
        raw = b"".join(map(self.bus.word, (endpoint, identifier, 0, 0, 0)))
        message = self.bus.call(self.serial, CONTROLLER, "event", [("event", raw)], 3)
        self.add(ONE_WAY, message, plugin, APPLICATION, after)

    def signal(self, plugin, endpoint, number, identifier, items=(), after=700):
        self.serial += 1
        buffer = b"".join(self.bus.word(item) + self.bus.word(len(raw)) + padded(raw) for item, raw in items)
        raw = b"".join(map(self.bus.word, (number, identifier, 0, 9, 0, 0, len(buffer)))) + buffer
        path = f"{self.plugins[plugin]}.EndPoint.{endpoint}"
        message = self.bus.call(self.serial, path, "signal", [("signal", raw)], 3)
        self.add(ONE_WAY, message, APPLICATION, plugin, after)

    def telephone_call(self, number=0):
        self.event(FXS, 1, OFF_HOOK)
        self.signal(FXS, "FXS1", 1, DIAL_TONE)
        for _ in range(3):
            self.event(FXS, 1, DIGIT_2, 200_000)
        self.signal(DECT, "HS1", 3, DISPLAY, [(DISPLAY_BLOCK, SHOWN + b"\0")])
        self.signal(DECT, "HS1", 3, RING)
        self.event(DECT, 3, OFF_HOOK)
        missing = [(196640, "Missing mandatory argument", f"filedesc {number}")] if number % 50 == 7 else ()
        answer = b"\x0a\x00" if missing else b"\x0a\x01"
        self.call(APPLICATION, FXS, f"{self.plugins[FXS]}.EndPoint.FXS1", "create", [], answer, errors=missing)
        self.call(APPLICATION, DECT, f"{self.plugins[DECT]}.EndPoint.HS1", "create", [])
        self.event(DECT, 3, ON_HOOK)
        self.call(APPLICATION, FXS, f"{self.plugins[FXS]}.EndPoint.FXS1", "destroy", [], takes=2000)
        self.event(FXS, 1, ON_HOOK)

    def wait(self, seconds=3):
        """The handset's plugin waits for an answer."""
        self.serial += 1
        self.add(CALL, self.bus.call(self.serial, CONTROLLER, "event", []), DECT, APPLICATION)
        self.add(WAITING, self.bus.message(6, self.serial, b""), DECT, APPLICATION, 2_000_000)
        self.add(REPLY, self.bus.reply(self.serial), APPLICATION, DECT, (seconds - 2) * 1_000_000)

    def sound(self, packets=100, missing=(), late=()):
        """An RTP stream of 20 ms, whose end is not waited for."""
        for number in range(packets):
            if number not in missing:
                raw = struct.pack(">BBHII", 0x80, 8, 1000 + number, 160 * number, 0x1234) + bytes(160)
                delay = 15_000 if number in late else 0
                self.packets.append((self.time + number * 20_000 + delay, tags_of("rtp"), raw))

    def file(self):
        form = ORDERS[self.order]
        section = struct.pack(form + "IHHq", 0x1A2B3C4D, 1, 0, -1)
        whole = [block(form, 0x0A0D0D0A, section), block(form, 1, struct.pack(form + "HHI", UPPER_LAYER, 0, 0))]
        for time, origin, raw in self.packets:
            raw = origin + raw
            head = struct.pack(form + "IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(raw), len(raw))
            whole.append(block(form, 6, head + padded(raw)))
        return b"".join(whole)


def tags_of(dissector):
    ends = (
        ([127, 0, 0, 1], 30000, [127, 0, 0, 1], 30002) if dissector == "rtp" else ([127, 1, 0, 1], 1, [127, 1, 0, 2], 1)
    )
    return (
        tag(12, dissector.encode())
        + tag(20, bytes(ends[0]))
        + tag(21, bytes(ends[2]))
        + tag(25, struct.pack(">I", ends[1]))
        + tag(26, struct.pack(">I", ends[3]))
        + bytes(4)
    )


def evening(calls=2, **more):
    """Two plugins with two endpoints each, a wait, and so many telephone calls."""
    whole = Evening(**more)
    whole.register(FXS, [(1, "FXS1"), (2, "FXS2")])
    whole.register(DECT, [(3, "HS1"), (4, "HS2")])
    whole.wait()
    for number in range(calls):
        whole.telephone_call(number)
    return whole


def evening_of(messages, **more):
    """An evening with so many messages exactly."""
    whole = evening(0, **more)
    number = 0
    while len(whole.packets) < messages:
        whole.telephone_call(number)
        number += 1
    del whole.packets[messages:]
    return whole
