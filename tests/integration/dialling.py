# SPDX-License-Identifier: MIT
"""What a test does to get two simulated telephones into a call."""


def ring(caller, number, callee, line=1):
    """Line 1 of the caller dials; the line of the callee rings."""
    caller.ask("1 off")
    caller.expect("^1 hears dial-tone$")
    caller.ask(f"1 dial {number}")
    caller.expect("^1 hears ring-back$")
    callee.expect(f"^{line} rings ")


def talk(caller, number, callee, line=1):
    ring(caller, number, callee, line)
    callee.ask(f"{line} off")
    callee.expect(f"^{line} stops ringing$")
    caller.expect("^1 hears silence$")
