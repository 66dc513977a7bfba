# SPDX-License-Identifier: MIT
"""Calls between the lines of two plugin processes, as their users see them."""

import pytest

from dialling import answer, dial, lift, ring, start_telephones, talk
from processes import Unmet


@pytest.fixture
def office(system):
    """An application and two plugins, each with two telephones: 101, 102 and 201, 202."""
    system.application = system.start_application()
    system.first, system.second = start_telephones(system)
    return system


def is_idle(process, line=1):
    return f"{line} on hook" in process.ask("status")


def test_plugins_and_lines_register(office):
    assert office.application.plugins() == ["fxs1", "fxs2"]
    assert office.application.lines() == {
        "101": ("idle", 0, "fxs1.FXS1"),
        "102": ("idle", 1, "fxs1.FXS2"),
        "201": ("idle", 2, "fxs2.FXS1"),
        "202": ("idle", 3, "fxs2.FXS2"),
    }


def test_complete_call(office):
    talk(office.first, "201", office.second)
    office.application.expect("^call 1 101->201 answered")
    office.first.ask("1 on")
    office.application.expect("^call 1 101->201 ended: 101 hung up$")
    office.second.expect("^1 plays busy-tone$")
    office.second.ask("1 on")
    office.application.expect("^line 201 idle$")
    assert office.application.calls() == {}


def test_complete_call_as_it_passes_on_the_bus(system):
    application = system.start_application()
    watcher = system.start_watcher()
    first, second = start_telephones(system)
    for plugin, endpoint, number in [
        ("fxs1", "FXS1", 0),
        ("fxs1", "FXS2", 1),
        ("fxs2", "FXS1", 2),
        ("fxs2", "FXS2", 3),
    ]:
        watcher.expect_message(
            kind="reply", function="register_endpoint", plugin=plugin, endpoint=endpoint, result=number
        )
    talk(first, "201", second)
    first.ask("1 on")
    second.expect("^1 plays busy-tone$")
    second.ask("1 on")
    application.expect("^line 201 idle$")
    for plugin, name in [
        ("fxs1", "LIBVOICE_EVENT_al_of"),
        ("fxs1", "LIBVOICE_SIGNAL_cg_dt"),
        ("fxs1", "LIBVOICE_EVENT_dd_d2"),
        ("fxs1", "LIBVOICE_SIGNAL_cg_rt"),
        ("fxs2", "LIBVOICE_SIGNAL_al_ri"),
        ("fxs2", "LIBVOICE_EVENT_al_of"),
        ("fxs1", "LIBVOICE_EVENT_al_on"),
        ("fxs2", "LIBVOICE_EVENT_al_on"),
    ]:
        watcher.expect_message(plugin=plugin, endpoint="FXS1", name=name)


def test_call_within_one_plugin(office):
    talk(office.first, "102", office.first, line=2)
    office.application.expect("^call 1 101->102 answered")
    office.first.ask("2 on")
    office.application.expect("^call 1 101->102 ended: 102 hung up$")


def test_callee_hangs_up_first(office):
    talk(office.first, "202", office.second, line=2)
    office.second.ask("2 on")
    office.application.expect("^call 1 101->202 ended: 202 hung up$")
    office.first.expect("^1 plays busy-tone$")
    office.first.ask("1 on")
    office.application.expect("^line 101 idle$")


def test_caller_gives_up_while_it_rings(office):
    ring(office.first, "201", office.second)
    office.first.ask("1 on")
    office.second.expect("^1 stops ringing$")
    office.application.expect("^call 1 101->201 ended: 101 hung up$")
    office.application.expect("^line 201 idle$")
    assert is_idle(office.second)


def test_hang_up_before_anything_is_dialled(office):
    lift(office.first)
    office.first.ask("1 on")
    office.application.expect("^line 101 idle$")
    talk(office.second, "101", office.first)


def test_busy_line(office):
    lift(office.second)
    dial(office.first, "201")
    office.first.expect("^1 plays busy-tone$")
    office.application.expect("^call 1 101->201 refused: busy$")


def test_unknown_number(office):
    dial(office.first, "9")
    office.first.expect("^1 plays sit-tone$")
    office.application.expect("^call 1 101->9 refused: unknown number$")


def test_display_shows_the_caller(office):
    ring(office.first, "201", office.second)
    assert office.second.expect("^1 displays number=(\\S+) ").group(1) == "101"


def test_calls_run_side_by_side(office):
    talk(office.first, "201", office.second)
    dial(office.first, "202", line=2)
    answer(office.second, line=2)
    office.application.expect("^call 2 102->202 answered")
    assert office.application.calls() == {"101->201": "talking", "102->202": "talking"}
    office.first.ask("1 on")
    office.application.expect("^call 1 101->201 ended")
    assert office.application.calls() == {"102->202": "talking"}


def test_both_ways_in_turn(office):
    talk(office.first, "201", office.second)
    mark = office.application.out.mark()
    office.first.ask("1 on")
    office.second.ask("1 on")
    # The two hang up in processes of their own: which of them the application hears first is open.
    for number in ("101", "201"):
        office.application.out.expect_from(mark, f"^line {number} idle$")
    talk(office.second, "101", office.first)
    office.application.expect("^call 2 201->101 answered")


def test_hosts_leave_with_status_zero(office):
    assert office.first.terminate() == 0
    office.application.expect("^plugin fxs1 (left|lost)$")
    assert office.second.terminate() == 0
    assert office.application.terminate() == 0


def test_a_missing_word_is_noticed(office):
    # The harness itself: what never happens must fail, and say so.
    with pytest.raises(Unmet, match="never said /no such line/"):
        office.application.expect("no such line", limit=0.05)
