#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What kex_conformance says of a bus with one fault: these checks fail, no others, for this reason, and others run."""

import re
import subprocess
import sys
import unittest
from pathlib import Path

PROGRAM, LIBRARY = sys.argv[1], sys.argv.pop(2)
del sys.argv[1]
NAME = Path(LIBRARY).stem
LIMIT = 250

# Of each bus the checks that fail, and what is said of the first.
FAULTS = {
    "any_kind_of_number": ["argument_getUInt32 answers yes", "getters.kinds"],
    "boolean_as_number": ["variant_toInt16: 1, not 0", "conversions.boolean_is_no_number"],
    "bytes_unfilled": ["behind 0 of data, is 0xaa", "bytes.0", "bytes.1", "bytes.704", "bytes.1023"],
    "close_told_twice": [
        "close events: 2, not 1",
        "peers.closed_answers_no",
        "peers.later_one_replaces",
        "peers.on_any_peer",
        "closing.last_and_once",
        "closing.own_write_fails_first",
        "closing.at_the_listener",
        "closing.answer_nobody",
        "closing.watched_late",
    ],
    "deletes_at_once": [
        "gone before",
        "model.found_until_commit",
        "model.taken_name",
        "model.not_beside",
        "functions.deleted",
    ],
    "ends_process": [
        "it was ended with status 0 in reply_item_errorInfo$",
        "nulls.replies",
        "replies.error_order",
        "texts.any_bytes_in_errors",
    ],
    "error_texts_swapped": ["its info.*not.*the first", "replies.error_order", "replies.items_live_with_reply"],
    "flags_cut": ["0xfedcba98 became 0xba98", "requests.flags_kept", "requests.flags_arrive"],
    "listener_clears_path": [
        "a file stands",
        "listening.file",
        "listening.directory",
        "listening.live",
        "listening.live_in_one_process",
    ],
    "negative_dropped": [
        "items: 2, not 3",
        "descriptors.order",
        "descriptors.duplicated_at_send",
        "descriptors.second_list",
    ],
    "null_crashes": ["crashed with signal 11 .* in variant_cleanup", "nulls.variants"],
    "other_version": ["of another version than KEX_1: argument_getList$", "symbols.versions"],
    "output_cleared": ["the output became 0", "conversions.left_alone"],
    "read_descriptors_closed": ["closed with its list", "descriptors.handed_over"],
    "reply_without_end": [
        "the end of the reply: not within",
        "handlers.reply",
        "handlers.both",
        "handlers.send_another",
        "closing.reply_ends_with_null",
    ],
    "second_names_lost": ['"other" is missing', "getters.second_name"],
    "timer_keeps_first_start": ["by its first start", "timers.armed_again"],
    "wait_for_ever": [
        "ended after 10 s: the process that listens never came back in kex_waitForReply",
        "functions.outlive_their_caller",
        "closing.watched_late",
        "closing.wait_fails_at_once",
    ],
    "wait_runs_others": [
        'handlers before a turn: "done"',
        "waits.with_a_handler",
        "order.calls_are_held",
        "order.timers_are_held",
        "order.handlers_are_held",
    ],
    "lacking": [
        "it lacks variant_toInt32$",
        "symbols.imports",
        "variants.empty_numbers",
        "conversions.int32",
        "conversions.left_alone",
        "conversions.other_types",
        "requests.numbers_arrive",
        "replies.kinds",
    ],
}
# What cannot be loaded at all.
BAIL_OUTS = {
    "load_crashes": "crashed with signal 11 .* while loading the library",
    "load_hangs": "ended after 10 s: it never came back while loading the library",
}


class Broken(unittest.TestCase):
    def run_kit(self, *options):
        done = subprocess.run(
            [PROGRAM, "--timeout", "10", *options, LIBRARY],
            stdout=subprocess.PIPE,
            text=True,
            timeout=LIMIT,
            check=False,
        )
        return done.returncode, done.stdout

    def failures(self, output):
        """The checks that fail, each with the reason."""
        return dict(re.findall(r'^not ok \d+ - (\S+).*?^  why: "(.*?)"$', output, re.MULTILINE | re.DOTALL))

    def expect_whole(self, output):
        numbers = [int(number) for number in re.findall(r"^(?:not )?ok (\d+) - ", output, re.MULTILINE)]
        self.assertEqual(numbers, list(range(1, int(re.search(r"^1\.\.(\d+)$", output, re.MULTILINE)[1]) + 1)))

    @unittest.skipUnless(NAME in FAULTS, "another one")
    def test_fault(self):
        why, *checks = FAULTS[NAME]
        status, output = self.run_kit()
        found = self.failures(output)
        self.assertEqual(sorted(found), sorted(checks))
        self.assertRegex(found[checks[0]].replace("\\", ""), why)
        self.assertEqual(status, 1)
        self.expect_whole(output)

    @unittest.skipUnless(NAME in BAIL_OUTS, "another one")
    def test_bail_out(self):
        status, output = self.run_kit()
        self.assertRegex(output, rf"(?m)^Bail out! .*{BAIL_OUTS[NAME]}$")
        self.assertEqual((status, re.findall("^(?:not )?ok", output, re.MULTILINE)), (2, []))

    @unittest.skipUnless(NAME == "garbage", "another one")
    def test_garbage(self):
        """Each function answers the same number: nothing that is looked at holds, and every check comes to its end."""
        status, output = self.run_kit(
            "--timeout", "1", "--only", "nulls,conversions,requests,replies,waits,getters,bytes"
        )
        found = self.failures(output)
        held = re.findall(r"^ok \d+ - (\S+)$", output, re.MULTILINE)
        self.assertEqual((status, held), (1, []))
        self.assertGreater(len(found), 50)
        self.expect_whole(output)

    def test_is_listed(self):
        self.assertIn(NAME, [*FAULTS, *BAIL_OUTS, "garbage"])


if __name__ == "__main__":
    unittest.main()
