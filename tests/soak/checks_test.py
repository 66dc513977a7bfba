#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a soak notices: events that are lost, repeated, in another order or another's, growth, tables that differ."""

import json
import sys
import types
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("hosts/demo", "tests/faults", "tests/soak")]
from processes import Unmet  # noqa: E402
from record import Record  # noqa: E402
from samples import Sample, Samples  # noqa: E402
from tables import EndpointTable, differences  # noqa: E402

APPLICATION, PLUGIN, STRANGER = 1, 2, 3
SOON = 0.05  # seconds to wait for what does not come


def event(serial, name, endpoint=7, items=(), pid=PLUGIN, connection=4):
    """A line of the watcher."""
    named = [{"name": f"LIBVOICE_PARAM_{key}", "value": value} for key, value in items]
    record = {"endpoint": endpoint, "identifier": {"name": f"LIBVOICE_EVENT_{name}"}, "items": named}
    ends = {"from": {"pid": pid, "connection": connection}, "to": {"pid": APPLICATION}}
    return json.dumps({"kind": "one_way_call", "serial": serial, "function": "event", "record": record, **ends})


def connected(pid=PLUGIN, connection=4):
    return json.dumps({"kind": "connected", "from": {"pid": pid, "connection": connection}, "to": {"pid": APPLICATION}})


class Events(unittest.TestCase):
    def setUp(self):
        self.record = Record()
        self.record.begin(APPLICATION)

    def check(self, caused, *rows):
        for row in rows:
            self.record.take(row)
        self.record.expect(PLUGIN, 7, *caused)
        return self.record.check(SOON)

    def refuses(self, words, caused, *rows):
        with self.assertRaisesRegex(Unmet, words):
            self.check(caused, *rows)

    def test_all_in_order(self):
        self.assertTrue(self.check(["al_of", "dd_d2"], connected(), event(1, "al_of"), event(2, "dd_d2")))
        self.assertTrue(self.check(["al_on"], event(3, "al_on")))

    def test_what_plugins_report_by_themselves_is_no_users_event(self):
        row = event(2, "al_of", items=[("al_of_init", True)])
        self.assertTrue(self.check([], event(1, "zil_call_stats"), row))
        self.assertEqual(self.record.reports[PLUGIN], 1)

    def test_a_lost_event(self):
        self.refuses(r"should have sent .*al_on.* it sent \[\(7, 'al_of'\)\]", ["al_of", "al_on"], event(1, "al_of"))

    def test_a_message_that_is_lost_on_the_way(self):
        self.refuses("message 3 of process 2 came after message 1", [], event(1, "zil_x"), event(3, "zil_x"))

    def test_the_first_message_is_lost(self):
        self.refuses("message 2 of process 2 came after message 0", [], connected(), event(2, "zil_x"))

    def test_a_repeated_event(self):
        self.refuses("it sent", ["al_of"], event(1, "al_of"), event(2, "al_of"))
        self.setUp()
        self.refuses("message 1 of process 2 came after message 1", ["al_of"], event(1, "al_of"), event(1, "al_of"))

    def test_another_order(self):
        self.refuses("it sent", ["dd_d2", "dd_d0"], event(1, "dd_d0"), event(2, "dd_d2"))

    def test_anothers_event(self):
        self.refuses("it sent", ["al_of"], event(1, "al_of", endpoint=8))

    def test_a_changed_number(self):
        self.refuses("it sent", ["dd_ce 201"], event(1, "dd_ce", items=[("dd_ce_ds", "202")]))
        self.setUp()
        self.refuses("it sent", ["fxo_ri 30"], event(1, "fxo_ri", items=[("fxo_ri_cid", {"number": "31"})]))

    def test_a_line_that_cannot_be_read(self):
        self.refuses("in the watcher's", [], "{}")

    def test_what_a_killed_process_had_not_sent_may_be_missing_but_nothing_else(self):
        self.record.killed(PLUGIN)
        self.assertTrue(self.check(["al_of", "al_on"], event(1, "al_of")))
        self.refuses("it sent", [], event(2, "al_fl"))

    def test_a_gap_of_the_watcher_begins_anew(self):
        self.assertFalse(self.check(["al_of"], event(1, "zil_x"), json.dumps({"kind": "lost", "lost": 3})))
        self.record.begin()
        self.assertTrue(self.check(["al_on"], event(9, "al_on")))
        self.assertEqual(self.record.lost, 3)

    def test_endpoint_numbers_that_were_given_are_kept(self):
        ends = {"from": {"pid": APPLICATION}, "to": {"pid": PLUGIN, "connection": 4, "endpoint": "FXS1"}}
        self.record.take(json.dumps({"kind": "reply", "function": "register_endpoint", "result": 5, **ends}))
        self.assertEqual(self.record.given, {(PLUGIN, "FXS1"): 5})

    def test_strangers_number_as_they_like(self):
        self.record.strangers.add(STRANGER)
        self.assertTrue(self.check([], event(5, "al_of", pid=STRANGER), event(5, "al_of", pid=STRANGER)))


class Growth(unittest.TestCase):
    def growing(self, lives, seconds, kib_a_minute):
        samples = Samples()
        for second in range(lives * seconds):
            resident = 2000 + second % seconds * kib_a_minute / 60
            samples.add("fxs1", second // seconds, Sample(second, resident, 20))
        return samples.growing()

    def test_who_grows_is_named(self):
        self.assertEqual(self.growing(1, 190, 200), ["fxs1 grows by 200 KiB a minute"])
        self.assertEqual(len(self.growing(2, 190, 200)), 2)

    def test_who_does_not_grow(self):
        self.assertEqual(self.growing(1, 190, 100), [])

    def test_one_step_is_no_growth_but_many_are(self):
        for steps, words in [(1, []), (60, ["fxs1 grows by 200 KiB a minute"])]:
            samples = Samples()
            for second in range(360):
                samples.add("fxs1", 1, Sample(second, 2000 + second * steps // 360 * 1200 // steps, 20))
            self.assertEqual(samples.growing(), words)

    def test_a_short_life_says_nothing(self):
        self.assertEqual(self.growing(5, 170, 200), [])

    def test_the_first_minute_may_grow(self):
        samples = Samples()
        for second in range(240):
            samples.add("fxs1", 1, Sample(second, 2000 + min(second, 60) * 100, 20))
        self.assertEqual(samples.growing(), [])


class Tables(unittest.TestCase):
    def differences(self, here, there):
        table = EndpointTable(types.SimpleNamespace(out=types.SimpleNamespace(all=here)))
        rows = [f'line 101 idle endpoint={number} {name} "x"' for name, number in there.items()]
        return differences(types.SimpleNamespace(ask=lambda question: rows), {"fxs1": table})

    def test_they_agree(self):
        rows = ["1 registered FXS1 endpoint=3", "application lost", "1 registered FXS1 endpoint=0"]
        self.assertEqual(self.differences(rows, {"fxs1.FXS1": 0}), [])

    def test_they_differ(self):
        row = "1 registered FXS1 endpoint=3"
        self.assertEqual(self.differences([row], {"fxs1.FXS1": 4}), ["fxs1.FXS1: 3 here, 4 there"])
        self.assertEqual(self.differences([row], {}), ["fxs1.FXS1: 3 here, None there"])
        self.assertEqual(self.differences([], {"fxs1.FXS1": 4}), ["fxs1.FXS1: None here, 4 there"])
        self.assertEqual(self.differences([row, "1 deregistered"], {}), [])
        self.assertEqual(self.differences([row, "application lost"], {}), [])


if __name__ == "__main__":
    unittest.main()
