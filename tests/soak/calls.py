# SPDX-License-Identifier: MIT
"""Calls between the lines of a house: what users do, and what each of them must then hear and see."""

from lines import OUTGOING


class Call:
    """Two lines, from dialling to the end; `text` is what the application calls it."""

    def __init__(self, caller, callee, text=None):
        self.caller, self.callee = caller, callee
        self.text = text or f"{caller}->{callee}"
        self.state, self.holder = "ringing", None
        self.age = 0  # in actions
        for line in self.lines():
            line.call = self

    def __repr__(self):
        return f"{self.text} ({self.state})"

    def lines(self):
        return [self.caller, self.callee]

    def other(self, line):
        return self.callee if line is self.caller else self.caller

    def texts(self):
        return {self.text: self.state}

    def has_exchange(self):
        return self.caller.is_exchange or self.callee.is_exchange

    def close(self):
        for line in self.lines():
            line.call = None


class Conference(Call):
    """A line and those of its two calls; the second one has just been answered."""

    def __init__(self, first, host, third):
        self.first, self.host, self.third = first, host, third
        super().__init__(host, first.other(host), first.text)
        self.second_text = f"{host}->{third}"
        self.state = "talking"

    def __repr__(self):
        return f"conference of {self.host}: {self.text}, {self.second_text}"

    def lines(self):
        return [self.caller, self.callee, self.third]

    def texts(self):
        return {self.text: "talking", self.second_text: "talking"}


def ring(house, caller, callee):
    """The caller lifts and dials, the callee rings."""
    now = house.now()
    caller.lift()
    caller.plays(now, "dial-tone")
    caller.dial(callee.number)
    caller.plays(now, "ring-back")
    callee.says(now, "rings ")
    house.count("calls made")
    return Call(caller, callee)


def answer(house, *found):
    """Those who ring lift, and in each of these calls both hear each other."""
    now = house.now()
    for call in found:
        call.callee.lift()
        call.callee.says(now, "stops ringing$")
        if call.caller.is_exchange:
            call.caller.says(now, "answered$")
    for call in found:
        for line in call.lines():
            line.hears_speech(now)
        call.state = "talking"


def give_up(house, call):
    """The caller of a call that rings hangs up, or the exchange stops ringing."""
    now = house.now()
    if call.caller.is_exchange:
        call.caller.does("stop", "fxo_rh")
    else:
        call.caller.hang_up()
    call.callee.says(now, "stops ringing$")
    house.count("calls given up")
    call.close()


def end(house, call, first):
    """Of two who talk one hangs up first; the other one hears it and hangs up."""
    now, other = house.now(), call.other(first)
    if first.is_exchange:
        first.does("hangup", "fxo_rh")
    else:
        first.hang_up()
    if other.is_exchange:
        other.says(now, "released$")
    else:
        other.plays(now, "busy-tone")
        other.hang_up()
    for line in call.lines():
        sent, received = map(int, line.says(now, r"media ended line=\d+ tx=(\d+) rx=(\d+) ").groups())
        house.count("packets sent", sent)
        house.count("packets received", received)
    house.count("calls completed")
    call.close()


def end_conference(house, call, order):
    """Its three hang up one after the other, without listening."""
    now = house.now()
    for line in order:
        line.hang_up()
    for line in order:
        line.says(now, "media ended ")
    house.count("calls completed", 2)
    call.close()


def hold(house, call, holder):
    now, held = house.now(), call.other(holder)
    holder.flash()
    holder.plays(now, "dial-tone")
    if not held.is_exchange:
        held.plays(now, "held-tone")
    held.says(now, "on hold ")
    call.state, call.holder = "held", holder


def resume(house, call):
    now = house.now()
    call.holder.flash()
    for line in call.lines():
        line.says(now, "talking ")
    call.state, call.holder = "talking", None


def conference(house, call, third):
    """The holder of a call takes a third one into it."""
    now, host = house.now(), call.holder
    host.dial(third.number)
    third.says(now, "rings ")
    third.lift()
    third.hears_speech(now)
    now = house.now()
    host.flash()
    host.says(now, r"talking line=0 .* context=\d")
    host.says(now, r"talking line=1 .* context=\d")
    for line in (call.other(host), third):
        line.says(now, "talking ")
    house.count("calls made")
    return Conference(call, host, third)


def change_codec(house, call, line, codec):
    now = house.now()
    house.application.ask(f"codec {line.label} {codec}")
    for each in call.lines():
        each.says(now, f"talking .*codec={codec} ")


def call_outside(house, caller, digits):
    """Over the exchange line; it hears just the digits that the caller dialled."""
    now, outside = house.now(), house.line(OUTGOING)
    caller.lift()
    caller.plays(now, "dial-tone")
    caller.dial(f"0{digits}#")
    outside.says(now, "seized$")
    outside.says(now, f"dials {digits}$")
    call = Call(caller, outside, f"{caller}->0{digits}")
    for line in call.lines():
        line.hears_speech(now)
    call.state = "talking"
    house.count("calls made")
    return call


def call_from_outside(house, exchange_line, callee, digits, shown):
    """The exchange rings; with `shown` the number is waited for on the display, which comes between two rings."""
    now = house.now()
    exchange_line.does(f"ring {digits}", f"fxo_ri {digits}")
    callee.says(now, "rings ")
    if shown:
        callee.says(now, f"displays number={digits} ")
    house.count("calls made")
    return Call(exchange_line, callee)


def refused(house, caller, number, tone):
    """A number that cannot be called: the tone says so."""
    now = house.now()
    caller.lift()
    caller.plays(now, "dial-tone")
    caller.dial(number)
    caller.plays(now, tone)
    caller.hang_up()


def steps(house, caller, callee):
    """A call step by step: what came of a step is waited for before the next one."""
    now = house.now()
    caller.lift()
    yield
    caller.plays(now, "dial-tone")
    caller.dial(callee.number)
    yield
    callee.says(now, "rings ")
    callee.lift()
    yield
    caller.hears_speech(now)
    now = house.now()
    caller.flash()
    yield
    caller.plays(now, "dial-tone")
    caller.hang_up()
    yield
