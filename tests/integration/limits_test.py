# SPDX-License-Identifier: MIT
"""What happens at the edges of the tables: names taken, plugins and endpoints too many."""

from dialling import lift, talk
from processes import until
from wire import APPLICATION, RawPeer, U16

PLUGINS = 8
ENDPOINTS = 32


def test_second_plugin_of_the_same_name(system):
    application = system.start_application()
    first = system.start_fxs("fxs1")
    second = system.start_fxs("fxs1", ready=False)
    application.expect("^plugin fxs1 registered$")
    application.expect("^plugin fxs1 rejected: ")
    assert application.plugins() == ["fxs1"]
    assert application.lines() == {"101": ("idle", 0, "fxs1.FXS1"), "102": ("idle", 1, "fxs1.FXS2")}
    # The second one dies, and takes nothing with it: its connection is in no table.
    second.kill()
    other = system.start_fxs("fxs2")
    talk(other, "101", first)
    assert application.plugins() == ["fxs1", "fxs2"]
    assert application.out.since(0, "^plugin fxs1 (lost|left)") == []


def test_ninth_plugin_is_not_in_the_table(system):
    application = system.start_application()
    for number in range(PLUGINS):
        system.start_fxs(f"fxs{number + 1}", lines=1)
    ninth = system.start("ninth", "fxs_plugin", "--name", "ninth")
    application.err.expect("No more free slots availabe")
    # It is told to try again later, and gets in once there is room.
    ninth.err.expect("Plugin registration failed. Trying again in 10s.")
    assert len(application.plugins()) == PLUGINS


def test_ninth_plugin_gets_in_once_there_is_room(system):
    application = system.start_application()
    others = [system.start_fxs(f"fxs{number + 1}", lines=1) for number in range(PLUGINS)]
    ninth = system.start("ninth", "fxs_plugin", "--name", "ninth", environment={"KEX_TIME_FACTOR": "40"})
    ninth.err.expect("Plugin registration failed. Trying again in 10s.")
    others[3].kill()
    ninth.expect("^ready .* lines=2$")
    application.expect("^plugin ninth registered$")


def test_endpoint_33_is_refused(system):
    application = system.start_application()
    full = system.start_fxs("fxs1", lines=ENDPOINTS)
    assert full.out.since(0, "^ready ")[0].endswith(f"lines={ENDPOINTS}")
    late = system.start_fxs("fxs2", lines=1)
    application.err.expect("No space to register the endpoint")
    assert late.out.since(0, "^ready ")[0].endswith("lines=0")
    assert late.out.since(0, "^1 refused: ")
    # Room that is given back is used again.
    full.kill()
    application.expect("^plugin fxs1 lost$")
    late.kill()
    application.expect("^plugin fxs2 lost$")
    assert system.start_fxs("fxs2", lines=1).out.since(0, "^ready ")[0].endswith("lines=1")


def test_endpoint_of_a_plugin_that_never_registered(system):
    application = system.start_application()
    with RawPeer.connect(system.socket) as peer:
        answer = peer.call(
            APPLICATION,
            "register_endpoint",
            [
                ("plugin_name", "ghost"),
                ("endpoint_name", "G1"),
                ("endpoint_path", "ghost.EndPoint.G1"),
                ("type", U16(1)),
                ("codeclist", b""),
            ],
        )
    assert answer.result is False and answer.errors == []
    application.err.expect("Failed regisering endpoint G1 - plugin_name ghost doesn't exist")


def test_connections_beyond_the_limit_do_no_harm(system):
    application = system.start_application()
    plugin = system.start_fxs("fxs1")
    before = application.descriptors()
    peers = [RawPeer.connect(system.socket, hello=False) for _ in range(80)]
    until("connections beyond the limit are closed", lambda: [peer for peer in peers if peer.closed(0)])
    lift(plugin)
    for peer in peers:
        peer.close()
    until("descriptors are given back", lambda: application.descriptors() == before)
