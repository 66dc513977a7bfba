# SPDX-License-Identifier: MIT
"""What happens in a house: each action is chosen by chance from what is possible, and waits for all that it causes.

What is chosen depends on the seed and on earlier actions only, never on time: the same seed makes the same actions.
"""

import calls
from calls import Call, Conference
from lines import INCOMING, OUTGOING, PARTNERS
from strangers import MISCHIEF

LONGEST_RINGING = 15  # actions: well below the two minutes after which the application gives up
CODECS = ("PCMA", "PCMU")


class Actions:
    """What users do. Each method takes part in the choice; it answers what it did, or None when it is not possible."""

    def __init__(self, house, choice, strangers):
        self.house, self.random, self.strangers = house, choice, strangers
        self.numbers = 0  # dialled and shown: each one is used once
        self.dsp_codec = None

    def pick(self, found):
        return self.random.choice(found) if found else None

    def next_number(self):
        self.numbers += 1
        return f"{4000000 + self.numbers}"

    def idle(self, *programs):
        """Lines that rest, but for those that are kept for a purpose."""
        return [
            line
            for line in self.house.lines
            if line.call is None and line.program in programs and line.label not in (*PARTNERS, INCOMING, OUTGOING)
        ]

    def idle_telephones(self):
        return [line for line in self.idle("fxs_plugin", "dect_plugin") if not line.is_wideband]

    def calls(self, *states, kind=Call):
        found = {id(line.call): line.call for line in self.house.lines if type(line.call) is kind}
        return [call for call in found.values() if call.state in states]

    def inner_calls(self, *states):
        """Those between telephones that speak narrowband."""
        return [call for call in self.calls(*states) if not call.has_exchange() and not call.caller.is_wideband]

    # ------------------------------------------------------------------------------------------------------- Calls

    def ring(self):
        lines = self.idle_telephones()
        if len(lines) < 2:
            return None
        caller, callee = self.random.sample(lines, 2)
        calls.ring(self.house, caller, callee)
        return f"{caller} calls {callee}"

    def ring_wideband(self):
        lines = [line for line in self.idle("dect_plugin") if line.is_wideband]
        if len(lines) < 2:
            return None
        caller, callee = self.random.sample(lines, 2)
        calls.answer(self.house, calls.ring(self.house, caller, callee))
        return f"{caller} talks to {callee} in wideband"

    def answer(self):
        call = self.pick(self.calls("ringing"))
        if call:
            calls.answer(self.house, call)
            return f"{call.callee} answers {call.text}"

    def give_up(self):
        call = self.pick(self.calls("ringing"))
        if call:
            calls.give_up(self.house, call)
            return f"{call.caller} gives up"

    def end(self):
        call = self.pick(self.calls("talking"))
        if call:
            first = self.pick(call.lines())
            calls.end(self.house, call, first)
            return f"{first} ends {call.text}"

    def end_conference(self):
        call = self.pick(self.calls("talking", kind=Conference))
        if call:
            order = self.random.sample(call.lines(), 3)
            calls.end_conference(self.house, call, order)
            return f"{order} end their conference"

    def hold(self):
        call = self.pick(self.inner_calls("talking"))
        if call:
            holder = self.pick(call.lines())
            calls.hold(self.house, call, holder)
            return f"{holder} holds {call.text}"

    def resume(self):
        call = self.pick(self.calls("held"))
        if call:
            calls.resume(self.house, call)
            return f"{call.text} goes on"

    def conference(self):
        call, third = self.pick(self.inner_calls("talking")), self.pick(self.idle_telephones())
        if call and third:
            calls.hold(self.house, call, self.pick(call.lines()))
            return repr(calls.conference(self.house, call, third))

    def codec(self):
        call = self.pick(self.inner_calls("talking"))
        if call:
            line, codec = self.pick(call.lines()), self.pick(CODECS)
            calls.change_codec(self.house, call, line, codec)
            return f"{line} speaks {codec}"

    # ---------------------------------------------------------------------------------------------- The exchange

    def call_outside(self):
        caller = self.pick(self.idle_telephones())
        if caller and self.house.line(OUTGOING).call is None:
            number = self.next_number()
            calls.call_outside(self.house, caller, number)
            return f"{caller} calls {number} outside"

    def call_from_outside(self):
        exchange_line, callee = self.pick(self.idle("fxo_plugin")), self.house.line(INCOMING)
        if exchange_line and callee.call is None:
            shown = self.random.random() < 0.3
            number = self.next_number()
            calls.call_from_outside(self.house, exchange_line, callee, number, shown)
            return f"{exchange_line} rings for {number}{', which is displayed' if shown else ''}"

    # --------------------------------------------------------------------------------------- Without a call

    def wrong_number(self):
        caller = self.pick(self.idle_telephones())
        if caller:
            calls.refused(self.house, caller, "9", "sit-tone")
            return f"{caller} dials a number that nobody has"

    def busy_number(self):
        caller = self.pick(self.idle_telephones())
        callee = self.pick([line for line in self.house.lines if line.call and line.number])
        if caller and callee:
            calls.refused(self.house, caller, callee.number, "busy-tone")
            return f"{caller} dials {callee}, who is busy"

    def messages(self):
        line = self.pick(self.idle_telephones())
        if line:
            now, count = self.house.now(), self.random.randrange(100)
            self.house.application.ask(f"mwi {line.label} {count}")
            line.says(now, f"displays messages={count} ")
            return f"{count} messages wait for {line}"

    def parameter(self):
        line = self.pick([line for line in self.house.lines if not line.is_exchange])
        now = self.house.now()
        gain = self.random.choice([each for each in range(-9, 9) if each != -1])  # that asks for automatic gain
        self.house.application.ask(f"set {line.label} tdmc_gain {gain}")
        line.says(now, f"param tdmc_gain={gain}$")
        self.house.application.ask(f"get {line.label} tdmc_gain")
        now.expect(self.house.application, f"^param {line.label} tdmc_gain={gain}$")
        return f"{line} has a gain of {gain}"

    def reach(self):
        line = self.pick([line for line in self.house.lines if line.program == "dect_plugin"])
        for command, word in (("away", "no"), ("back", "yes")):
            now = self.house.now()
            line.does(command)
            now.expect(self.house.application, f"^handset {line.label} .*reachable={word}$")
        return f"{line} is away, and back"

    def dsp(self):
        """Channels are made once: nothing in the contract unmakes them. Then they change their codec."""
        now, dsp = self.house.now(), self.house.processes["dsp1"]
        if self.dsp_codec is None:
            self.dsp_codec = CODECS[0]
            self.house.application.ask("dsp dsp1")
            now.expect(dsp, "^channel D[0-9]+C1 hears .*Hz$")
            now.expect(dsp, "^channel D[0-9]+C2 hears .*Hz$")
            return "dsp1 has channels"
        self.dsp_codec = CODECS[self.dsp_codec == CODECS[0]]
        self.house.application.ask(f"dsp dsp1 codec {self.dsp_codec}")
        for channel in (1, 2):
            now.expect(dsp, f"^channel D[0-9]+C{channel} talking .*codec={self.dsp_codec} ")
        return f"dsp1 speaks {self.dsp_codec}"

    # ---------------------------------------------------------------------------------------------- Strangers

    def mischief(self):
        stranger, word = self.pick(self.strangers), self.pick(MISCHIEF)
        if stranger is None:
            return None
        stranger.tell_mischief(word)
        return f"{stranger.name}: {word}"

    # ---------------------------------------------------------------------------------------------- The choice

    def overdue(self):
        """Who has rung long enough is answered or left."""
        for call in self.calls("ringing"):
            call.age += 1
            if call.age > LONGEST_RINGING:
                calls.give_up(self.house, call)
                return f"{call.caller} has waited long enough"
        return None

    def rest(self):
        """Everybody hangs up."""
        for call in self.calls("held"):
            calls.resume(self.house, call)
        for call in self.calls("ringing"):
            calls.give_up(self.house, call)
        for call in self.calls("talking"):
            calls.end(self.house, call, call.caller)
        for call in self.calls("talking", kind=Conference):
            calls.end_conference(self.house, call, call.lines())
        return "everybody hangs up"
