# SPDX-License-Identifier: MIT
"""Accidents in a house: processes that are killed, stopped and started again, and what must then come back."""

import time

import calls
from calls import Call
from actions import Actions
from lines import INCOMING, PARTNERS, PROGRAMS
from processes import WITHOUT_TAP

SLOWEST = 0.004  # seconds from a user's step to the kill
STEADY = ("fxs1", "dect1", "fxo1")  # never killed: what they need must not grow with what others suffer


class Accidents(Actions):
    """`victims` are who may be killed."""

    def __init__(self, house, choice, strangers, victims):
        super().__init__(house, choice, strangers)
        self.victims = victims

    # ------------------------------------------------------------------------------------------------- Killing

    def kill(self):
        """One process, or some at the same time."""
        victims = self.random.sample(self.victims, self.random.choice((1, 1, 2, 3)))
        self.kill_and_return(victims)
        return f"{', '.join(victims)} killed and back"

    def kill_in_a_call(self):
        """Between two steps of a call, or a moment after one."""
        steps, delay = self.random.randrange(5), self.random.random() * SLOWEST
        lines = self.idle_telephones()
        if len(lines) < 2:
            return None
        caller, callee = self.random.sample(lines, 2)
        victims = [name for name in self.victims if name in (caller.plugin, callee.plugin, "application")]
        if not victims:
            return None
        victim = self.pick(victims)
        self.house.count("calls begun until a kill")
        begun = calls.steps(self.house, caller, callee)
        for _ in range(steps + 1):
            next(begun)
        time.sleep(delay)
        self.kill_and_return([victim], (caller, callee))
        return f"{victim} killed {delay * 1000:.1f} ms after step {steps} of {caller}->{callee}, and back"

    def kill_and_return(self, victims, others=()):
        for victim in victims:
            self.house.count(victim, table="kills")
        self.end_and_return(victims, self.house.end, others)

    def end_and_return(self, victims, end, others=()):
        """They come back in this order; at the end somebody tries a call of each."""
        house = self.house
        ends_all = "application" in victims
        involved = {line: line.call for line in house.lines if line.call or line in others}
        for call in {call for call in involved.values() if call}:
            if ends_all or any(line.plugin in victims for line in call.lines()):
                house.count("calls cut off", len(call.texts()))
                call.close()
        early = self.random.random() < 0.5  # hang up while it is gone, or find it again first
        for victim in victims:
            end(victim)
        if ends_all or "dsp1" in victims:
            self.dsp_codec = None
        mine = [line for line in involved if line.call is None and line.plugin not in victims]
        if early:
            self.bring_to_rest(mine)
        house.restart(victims)
        self.bring_to_rest(mine)
        house.check()
        self.try_calls(victims)

    @staticmethod
    def bring_to_rest(lines):
        for line in lines:
            line.bring_to_rest()

    def try_calls(self, victims):
        """The next calls of processes that are back, at the same time."""
        house, tried = self.house, []
        in_turn = sorted(victims, key="application".__eq__)  # it may take any line that no other one needs
        for victim, partner in zip(in_turn, map(house.line, PARTNERS)):
            if victim == "fxo2":
                tried.append(self.call_in(house.lines_of(victim)[-1]))
            elif victim != "dsp1":
                mine = house.lines_of(victim)[0] if victim in PROGRAMS else self.pick(self.idle_telephones())
                tried.append(calls.ring(house, partner, mine))
        calls.answer(house, *tried)
        for call in tried:
            calls.end(house, call, self.pick(call.lines()))
        if "dsp1" in victims:
            self.dsp()
        house.count("calls tried after kills and restarts", len(tried))

    def call_in(self, line):
        """From outside, for which whoever is in such a call ends it."""
        call = self.house.line(INCOMING).call
        if call is not None and call.state == "ringing":
            calls.give_up(self.house, call)
        elif call is not None:
            calls.end(self.house, call, call.callee)
        return calls.call_from_outside(self.house, line, self.house.line(INCOMING), self.next_number(), False)

    def kill_watcher(self):
        if WITHOUT_TAP:
            return None
        self.house.end("ladder")
        self.house.start_watcher("ladder")
        return "a watcher is killed, and another one started"

    # ------------------------------------------------------------------------------------- Leaving and standing still

    def restart(self):
        """A plugin whose lines rest takes its leave and comes back."""
        name = self.pick([name for name in PROGRAMS if name in self.victims and name != "dsp1"])
        if name is None or any(line.call for line in self.house.lines_of(name)):
            return None
        now = self.house.now()
        self.house.leave(name)
        now.expect(self.house.application, f"^plugin {name} left$")
        self.house.start_plugin(name)
        self.house.count("restarts")
        return f"{name} leaves and comes back"

    def restart_application(self):
        """It takes its leave in the middle of everything, and comes back."""
        if "application" not in self.victims:
            return None
        self.end_and_return(["application"], self.house.leave)
        self.house.count("restarts")
        return "the application leaves and comes back"

    def deregister(self):
        """A handset leaves; it is back when its base station is started again."""
        name = self.pick([name for name in self.victims if name.startswith("dect")])
        if name is None or any(line.call for line in self.house.lines_of(name)):
            return None
        now, line = self.house.now(), self.pick(self.house.lines_of(name))
        self.house.application.ask(f"deregister {line.label}")
        line.says(now, "deregistered$")
        now.expect(self.house.application, f"^endpoint [0-9]+ {line.name} gone$")
        self.house.leave(name)
        self.house.start_plugin(name)
        self.house.count("restarts")
        return f"{line} is deregistered, and {name} started again"

    def stop_plugin(self):
        """A plugin stands still while others call each other; what its user did meanwhile is not lost."""
        still = self.pick([line for line in self.idle_telephones()])
        others = [line for line in self.idle_telephones() if still and line.plugin != still.plugin]
        if len(others) < 2:
            return None
        caller, callee = self.random.sample(others, 2)
        still.process.freeze()
        now = self.house.now()
        still.process.tell(f"{still.place} off")
        still.process.tell(f"{still.place} on")
        call = calls.ring(self.house, caller, callee)
        still.process.thaw()
        still.says(now, "on hook$")
        self.house.expect_events(still, ("al_of", "al_on"))
        calls.give_up(self.house, call)
        self.house.count("stops")
        return f"{still.plugin} stands still while {caller} calls {callee}"

    def stop_application(self):
        """It stands still while somebody lifts, dials and waits."""
        lines = self.idle_telephones()
        if len(lines) < 2:
            return None
        caller, callee = self.random.sample(lines, 2)
        now = self.house.now()
        self.house.application.freeze()
        caller.lift()
        caller.dial(callee.number)
        self.house.application.thaw()
        callee.says(now, "rings ")
        caller.plays(now, "ring-back")
        self.house.count("calls made")
        calls.give_up(self.house, Call(caller, callee))
        self.house.count("stops")
        return f"the application stands still while {caller} calls {callee}"
