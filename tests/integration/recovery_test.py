# SPDX-License-Identifier: MIT
"""Processes that die, hang and come back: everything finds its way by itself."""

import pytest

from dialling import lift, ring, start_telephones, talk
from processes import QUICK_RETRY, until
from wire import RawPeer


def start_office(system):
    return system.start_application(), *start_telephones(system, environment=QUICK_RETRY)


def test_killed_application_gets_everything_back(system):
    application, first, second = start_office(system)
    talk(first, "201", second)
    application.expect("^call 1 101->201 answered")
    application.kill()
    for plugin in (first, second):
        plugin.expect("^application lost$")
    first.ask("1 on")
    second.ask("1 on")
    application = system.start_application()
    for plugin in (first, second):
        plugin.expect("^ready .* lines=2$")
    talk(first, "201", second)
    application.expect("^call 1 101->201 answered")


def test_telephone_left_off_hook_over_a_restart_is_reported(system):
    application, first, _ = start_office(system)
    lift(first)
    application.kill()
    first.expect("^application lost$")
    application = system.start_application()
    first.expect("^ready .* lines=2$")
    application.expect("^line 101 (?!idle)")


def test_application_started_last(system):
    first = system.start_fxs("fxs1", ready=False, environment=QUICK_RETRY)
    first.err.expect("Can't connect to .* retrying in 10s")
    first.err.expect("Can't connect to .* retrying in 10s")
    application = system.start_application()
    first.expect("^ready .* lines=2$")
    application.expect("^endpoint 1 fxs1.FXS2 number=102")


def test_application_killed_while_a_plugin_waits_in_registration(system):
    application = system.start_application()
    application.freeze()
    # It connects, since the kernel accepts for the frozen process, and waits for the answer to "register_plugin".
    plugin = system.start_fxs("fxs1", ready=False, environment=QUICK_RETRY)
    plugin.err.expect("wait")  # the bus says so after 2 s
    application.kill()
    # The wait fails, and so does the connection: each starts an attempt of its own.
    plugin.err.expect("Plugin registration failed. Trying again in 10s.")
    plugin.err.expect("Can't connect to .* retrying in 10s")
    watcher = system.start("voicectl", "voicectl", "watch", "--json", "--reconnect")
    application = system.start_application()
    watcher.err.expect("watching")
    plugin.expect("^ready ")
    mark = plugin.err.mark()
    plugin.expect("^ready ")  # "init" comes a second time
    assert application.plugins() == ["fxs1"]
    assert application.lines().keys() == {"101", "102"}
    # Both attempts have ended well: nothing more is tried or complained about.
    second = system.start_fxs("fxs2")
    talk(second, "101", plugin)
    assert plugin.err.since(mark, r"\[x\]") == []
    assert len(application.out.since(0, "^endpoint refused")) == 0


def test_plugin_killed_while_its_line_rings(system):
    application, first, second = start_office(system)
    ring(first, "201", second)
    second.kill()
    application.expect("^plugin fxs2 lost$")
    application.expect("^call 1 101->201 ended")
    first.expect("^1 plays (?!ring-back)")
    first.ask("1 on")
    application.expect("^line 101 idle$")
    second = system.start_fxs("fxs2")
    talk(first, "201", second)


def test_plugin_killed_while_its_line_calls(system):
    application, first, second = start_office(system)
    ring(first, "201", second)
    first.kill()
    second.expect("^1 stops ringing$")
    application.expect("^line 201 idle$")


def test_plugin_killed_in_conversation(system):
    application, first, second = start_office(system)
    talk(first, "201", second)
    application.expect("^call 1 101->201 answered")
    first.kill()
    application.expect("^call 1 101->201 ended")
    second.expect("^1 plays ")
    assert application.plugins() == ["fxs2"]


def test_dead_plugins_leave_room(system):
    application = system.start_application()
    for _ in range(12):  # more than the plugin table has entries
        plugin = system.start_fxs("fxs1")
        plugin.kill()
        application.expect("^plugin fxs1 lost$")
    assert application.plugins() == [] and application.lines() == {}


def test_a_hundred_connections_leave_no_descriptor(system):
    application = system.start_application()
    plugin = system.start_fxs("fxs1")
    before = application.descriptors()
    for _ in range(100):
        with RawPeer.connect(system.socket) as peer:
            assert peer.call("VoiceService.VoiceApplication", "event", []).errors[0][0] == 196638
    until("descriptors of closed connections are given back", lambda: application.descriptors() == before)
    lift(plugin)


def test_a_hundred_registrations_leave_no_descriptor(system):
    application = system.start_application()

    def register(name):
        with RawPeer.connect(system.socket) as peer:
            assert peer.register(name) is True
        application.expect(f"^plugin {name} lost$")

    register("first")  # its loop runs: all that it opens for itself is open
    before = application.descriptors()
    for turn in range(100):
        register(f"raw{turn}")
    until("descriptors of closed connections are given back", lambda: application.descriptors() == before)
    system.start_fxs("fxs1")


@pytest.mark.parametrize("restarts", [5])
def test_restarts_in_a_row(system, restarts):
    application = system.start_application()
    plugin = system.start_fxs("fxs1", environment=QUICK_RETRY)
    before = plugin.descriptors()
    for _ in range(restarts):
        application.kill()
        plugin.expect("^application lost$")
        application = system.start_application()
        plugin.expect("^ready .* lines=2$")
    until("the plugin has no more descriptors than at first", lambda: plugin.descriptors() == before)
