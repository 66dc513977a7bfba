# SPDX-License-Identifier: MIT
"""What a test does to get simulated telephones, and to get them into a call.

It goes by what the application orders, as "1 plays dial-tone", which a line says at once. What is heard of that takes
its time to be recognised: tests of sound wait for it themselves.
"""


def start_telephones(system, *words, **options):
    """Two plugins, as many tests have them: telephones 101 and 102, and 201 and 202."""
    return system.start_fxs("fxs1", *words, **options), system.start_fxs("fxs2", *words, **options)


def lift(caller, line=1):
    """The line is off hook and may dial."""
    caller.ask(f"{line} off")
    caller.expect(f"^{line} plays dial-tone$")


def dial(caller, number, line=1):
    """The line is off hook and has dialled, without having listened: no digit may be lost by that."""
    caller.ask(f"{line} off")
    caller.ask(f"{line} dial {number}")


def answer(callee, line=1):
    """The line rings, and is lifted."""
    callee.expect(f"^{line} rings ")
    callee.ask(f"{line} off")


def ring(caller, number, callee, line=1):
    """Line 1 of the caller dials; the line of the callee rings."""
    dial(caller, number)
    caller.expect("^1 plays ring-back$")
    callee.expect(f"^{line} rings ")


def talk(caller, number, callee, line=1):
    """The same, and the callee takes the call."""
    ring(caller, number, callee, line)
    mark = caller.out.mark()
    callee.ask(f"{line} off")
    callee.expect(f"^{line} stops ringing$")
    caller.out.expect_from(mark, "^1 talking ")


def call_from_flash(caller, number, callee, line=1):
    """Line 1 of the caller, which talks, puts its call on hold and calls the line of the callee, which answers."""
    caller.ask("1 flash")
    caller.expect("^1 plays dial-tone$")
    caller.ask(f"1 dial {number}")
    answer(callee, line)


def hang_up(caller, callee):
    """Line 1 of both ends a call: the caller first."""
    caller.ask("1 on")
    callee.expect("^1 plays busy-tone$")
    callee.ask("1 on")
