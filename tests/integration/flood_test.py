# SPDX-License-Identifier: MIT
"""Events in masses: each is delivered in order or refused to its sender, none is lost in silence."""

import pytest

from processes import until

PLUGINS = 8
EVENTS = 1250  # of each plugin: 10,000 in all


def flood(system, parameter_bytes, meanwhile=None):
    """All plugins send at once. For each: received by the application, taken by the bus, refused to the sender."""
    application = system.start("counting_application", "counting_application")
    application.expect("^ready$")
    plugins = [system.start(f"p{n}", "event_flood", f"p{n}", EVENTS, parameter_bytes) for n in range(PLUGINS)]
    for plugin in plugins:
        plugin.expect("^ready$")
    if meanwhile == "frozen":
        application.freeze()
    for plugin in plugins:
        plugin.tell("go")
    sent = {
        plugin.name: tuple(map(int, plugin.expect(r"^accepted=(\d+) refused=(\d+)$").groups())) for plugin in plugins
    }
    if meanwhile == "frozen":
        application.thaw()
    counts = {}
    for _ in plugins:
        match = application.expect(r"^(\w+) received=(\d+) accepted=(\d+) order=(\w+)$")
        counts[match[1]] = (int(match[2]), int(match[3]), match[4])
    return sent, counts


def check(sent, counts):
    for name, (accepted, refused) in sent.items():
        assert accepted + refused == EVENTS
        assert counts[name] == (accepted, accepted, "kept"), name


def test_ten_thousand_events_from_eight_plugins(system):
    sent, counts = flood(system, parameter_bytes=64)
    check(sent, counts)
    assert sum(accepted for accepted, _ in sent.values()) == PLUGINS * EVENTS


@pytest.mark.parametrize("parameter_bytes", [8, 4096])
def test_application_that_hangs_refuses_what_does_not_fit(system, parameter_bytes):
    sent, counts = flood(system, parameter_bytes, meanwhile="frozen")
    check(sent, counts)
    if parameter_bytes == 4096:  # five times what the bus keeps for a peer
        assert all(refused > 0 for _, refused in sent.values())


def test_a_refused_event_is_one_line_of_the_trace(system):
    application = system.start("counting_application", "counting_application")
    application.expect("^ready$")
    plugin = system.start("p0", "event_flood", "p0", 1000, 8192)
    plugin.expect("^ready$")
    application.freeze()
    plugin.tell("go")
    refused = int(plugin.expect(r"refused=(\d+)$")[1])
    assert refused > 0
    application.thaw()
    application.expect("^p0 received=")
    said = "[x]Error sending kex request"
    # What it wrote to standard error may still be on its way to us.
    until("each is traced", lambda: sum(said in line for line in list(plugin.err.all)) >= refused)
