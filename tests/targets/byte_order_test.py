# SPDX-License-Identifier: MIT
"""A plugin of another byte order than its application's is refused, and both sides say so. Run by ./test targets, in a
folder where voice_application is of this machine and the plugins are of the target."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "hosts" / "demo"))
from processes import System  # noqa: E402

DIFFERS = "the byte order differs"


@pytest.fixture
def system():
    with System() as one:
        yield one


def test_both_sides_say_why_the_plugin_is_refused(system):
    application = system.start_application()
    plugin = system.start_fxs("fxs1", ready=False)
    application.err.expect(rf"connection .*process {plugin.pid}.* refused: {DIFFERS}")
    plugin.err.expect(f"refused.*: {DIFFERS}")
    assert application.plugins() == []


def test_application_serves_its_own_kind_beside_it(system):
    application = system.start_application()
    for name in ("fxs1", "fxs2"):
        plugin = system.start_fxs(name, ready=False)
        plugin.err.expect(DIFFERS)
    watcher = system.start_watcher()  # of this machine
    refusal = watcher.expect_message(kind="refused")
    assert DIFFERS in refusal["text"]
    assert application.running
