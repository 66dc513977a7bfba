# SPDX-License-Identifier: MIT
"""The lines of a house: which there are, what their users do, and what they hear and see."""

PROGRAMS = {  # and how many lines
    "fxs1": ("fxs_plugin", 8),
    "fxs2": ("fxs_plugin", 8),
    "fxs3": ("fxs_plugin", 6),
    "dect1": ("dect_plugin", 2),
    "dect2": ("dect_plugin", 2),
    "fxo1": ("fxo_plugin", 4),
    "fxo2": ("fxo_plugin", 2),
    "dsp1": ("dsp_plugin", 0),
}
HUNDREDS = {"fxs1": 1, "fxs2": 2, "fxs3": 3, "dect1": 5, "dect2": 6}
INCOMING, OUTGOING = "108", "fxo1.FXO1"  # who is rung from outside; the line outside
PARTNERS = ("105", "106", "107")  # who try whether calls work


class Moment:
    """What every process had said by then."""

    def __init__(self, house):
        self.house = house
        self.marks = {process: process.out.mark() for process in house.processes.values()}

    def expect(self, process, pattern):
        return self.house.wait_said(process, self.marks.get(process, 0), pattern)


class Line:
    """One line, at the text interface of its plugin."""

    def __init__(self, house, plugin, place):
        self.house, self.plugin, self.place = house, plugin, place
        self.program = PROGRAMS[plugin][0]
        self.endpoint = f"{self.program.partition('_')[0].upper()}{place}"
        self.name = f"{plugin}.{self.endpoint}"
        self.number = f"{HUNDREDS[plugin]}{place:02}" if plugin in HUNDREDS else None
        self.label = self.number or self.name
        self.call = None  # what it takes part in

    def __repr__(self):
        return self.label

    @property
    def process(self):
        return self.house.processes[self.plugin]

    @property
    def is_wideband(self):
        return self.program == "dect_plugin" and self.place == 2

    @property
    def is_exchange(self):
        return self.program == "fxo_plugin"

    def does(self, command, *events):
        """Its user does something; these events are what it causes."""
        self.process.ask(f"{self.place} {command}")
        self.house.expect_events(self, events)

    def lift(self):
        self.does("off", "al_of")

    def hang_up(self):
        self.does("on", "al_on")

    def flash(self):
        self.does("flash", "al_fl")

    def dial(self, number):
        if self.program == "dect_plugin":
            return self.does(f"dial {number}", f"dd_ce {number}")
        keys = ["dd_do" if key == "#" else f"dd_d{key}" for key in number]
        return self.does(f"dial {number}", *keys)

    def bring_to_rest(self):
        """Whatever it does; what others began with it ends by itself."""
        rows = self.process.ask("status")
        if any(row.startswith(f"{self.place} off hook") for row in rows):
            self.hang_up()
        elif f"{self.place} rings in" in rows:
            self.does("stop", "fxo_rh")

    def says(self, moment, pattern):
        return moment.expect(self.process, f"^{self.place} {pattern}")

    def plays(self, moment, tone):
        self.says(moment, f"plays {tone}$")

    def hears_speech(self, moment):
        if self.is_wideband:
            self.says(moment, "talking ")  # wideband passes through unheard
        else:
            self.says(moment, "hears .*Hz$")
