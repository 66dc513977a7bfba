# SPDX-License-Identifier: MIT
"""With addresses in place of descriptors: a media port that another process takes between the application's look and
the plugin's opening."""

import socket
from pathlib import Path

import pytest

from dialling import ring
from media import start_application, udp_sockets
from processes import until

FIRST = 36000
FORM = "--convert-media"
SIDES = {"caller": [0], "callee": [1], "both": [0, 1]}


class Thief:
    """Holds sockets at ports that somebody else was told to open."""

    def __init__(self, host, ports):
        self.sockets = []
        for port in ports:
            self.sockets.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
            self.sockets[-1].bind((host, port))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for one in self.sockets:
            one.close()


def turn_is_over(process):
    """Everything that it had to do is done and sent: it sleeps until something comes."""

    def sleeps():
        return Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()[0] == "S"

    until(f"{process.name} sleeps", sleeps)


def far_ends(plugin):
    """The ports of its sockets as the peer has them."""
    return sorted(pair[::-1] for pair in udp_sockets(plugin))


def answered_call(system, last_port=FIRST + 100):
    """A call from 101 to 201 that has been answered; its plugins stand still since before they got their ports."""
    application = start_application(system, FORM, ports=(FIRST, last_port))
    caller, callee = (system.start_fxs(name, FORM) for name in ("fxs1", "fxs2"))
    ring(caller, "201", callee)
    application.freeze()
    callee.ask("1 off")
    for plugin in (caller, callee):
        turn_is_over(plugin)
        plugin.freeze()
    application.thaw()
    application.expect("^call 1 101->201 answered")
    turn_is_over(application)
    return application, caller, callee


@pytest.mark.parametrize("which", [0, 1], ids=["media", "control"])
@pytest.mark.parametrize("sides", SIDES.values(), ids=SIDES.keys())
def test_stolen_port_is_left_for_another(system, sides, which):
    application, caller, callee = answered_call(system)
    with Thief(system.address, [FIRST + 2 * side + which for side in sides]):
        for plugin in (caller, callee):
            plugin.thaw()
        application.expect("^call 1 101->201 tries other media ports: [12]01: no media sockets \\(cause 3\\)$")
        for side in sides:
            (caller, callee)[side].expect("^1 refuses media: no media sockets$")
        # They end up at the same pair of ports, and hear each other.
        until("their ports meet", lambda: udp_sockets(caller) and udp_sockets(caller) == far_ends(callee))
        for plugin in (caller, callee):
            plugin.expect("^1 hears (1000|2200)Hz$")
    assert application.calls() == {"101->201": "talking"}
    caller.ask("1 on")
    callee.ask("1 on")
    until("all sockets are given back", lambda: udp_sockets(caller) == udp_sockets(callee) == [])


def test_call_without_a_port_ends_with_the_reason(system):
    # Room for one call only, and it is taken.
    application, caller, callee = answered_call(system, FIRST + 3)
    with Thief(system.address, [FIRST]):
        caller.thaw()
        callee.thaw()
        application.expect("^call 1 101->201 ended: 101: no media sockets \\(cause 3\\)$")
        for plugin in (caller, callee):
            plugin.expect("^1 plays busy-tone$")
    until("all sockets are given back", lambda: udp_sockets(caller) == udp_sockets(callee) == [])
