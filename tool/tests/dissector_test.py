#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""kexbus.lua in tshark and its relatives: what they show of captures in either byte order; nothing breaks it."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parent)]
from captures import (  # noqa: E402
    APPLICATION,
    CALL,
    CLOSED,
    CONNECTED,
    ONE_WAY,
    ORDERS,
    PLUGIN,
    REFUSED,
    REPLY,
    WAITING,
    Writer,
    file_of,
    golden,
    record,
)

DISSECTOR = Path(__file__).resolve().parents[1] / "wireshark" / "kexbus.lua"
ANDISP_DATA, ANDISP_DATA_DB = 0x103C0500, 0x133C0501
OTHER = ("fxs_plugin", 201, 4)
TIME_LIMIT = 60


@unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
class Dissector(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {**os.environ, "HOME": folder.name, "LC_ALL": "C.UTF-8"}

    def run_program(self, *words, **options):
        done = subprocess.run(
            [str(word) for word in words],
            env=self.environment,
            capture_output=True,
            timeout=TIME_LIMIT,
            check=False,
            **options,
        )
        return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")

    def capture(self, records, order="little", name="a.pcapng", **options):
        path = self.folder / name
        path.write_bytes(file_of(records, order, **options))
        return path

    def tshark(self, path, *words):
        """What tshark says; that it stumbles over the dissector is a failure."""
        status, out, err = self.run_program("tshark", "-X", f"lua_script:{DISSECTOR}", "-n", "-r", path, *words)
        self.assertEqual(status, 0, err)
        self.assertNotRegex(out + err, r"(?i)lua error|lua:")
        return out

    def fields(self, path, *names, words=()):
        """A row for each packet, a list for each field: it may stand there more than once."""
        columns = [word for name in names for word in ("-e", name)]
        form = ["-T", "fields", "-E", "separator=/t", "-E", "aggregator=|", "-E", "occurrence=a"]
        rows = self.tshark(path, *words, *form, *columns).split("\n")[:-1]
        return [[cell.split("|") if cell else [] for cell in row.split("\t")] for row in rows]

    # ---- what it shows

    def test_golden_messages_read_the_same_in_every_order(self):
        names = ["hello", "call", "one-way-call", "reply", "refused", "waiting", "missed"]
        values = ["text", "int", "uint", "bool", "fd", "bytes"]
        wanted = None
        for file_order in ORDERS:
            for order in ORDERS:
                path = self.capture([record(CALL, golden(name, order)) for name in names], file_order)
                rows = self.fields(
                    path, "kex.message", "kex.serial", "kex.function", *(f"kex.value.{one}" for one in values)
                )
                self.assertTrue(rows[2].pop(), "a record, which stays in its sender's order")
                wanted = wanted or rows
                self.assertEqual(rows, wanted)
                self.assertEqual(self.tshark(path, "-Y", "kex.malformed"), "")
        call = rows[1]
        self.assertEqual(call[:3], [["2"], [str(0x01020304)], ["create"]])
        self.assertEqual(
            call[3:], [["FXS1"], ["-2", "-3"], [str(0x0102), str(0x01020304), "5"], ["1"], ["-1"], ["616263"]]
        )
        self.assertEqual(rows[3][4], ["-6"])

    def test_records_are_taken_apart(self):
        for order in ORDERS:
            bus = Writer(order)
            path = self.capture(
                [
                    record(
                        ONE_WAY, bus.call(1, "fxs1.EndPoint.FXS1", "signal", [("signal", golden("signal", order))], 3)
                    ),
                    record(ONE_WAY, bus.call(2, "App", "event", [("event", golden("event", order))], 3)),
                    record(
                        CALL,
                        bus.call(
                            3, "fxs1.EndPoint.FXS1", "set", [("param_set_params", golden("parameter-set", order))]
                        ),
                    ),
                    record(
                        CALL, bus.call(4, "App", "register_endpoint", [("codeclist", golden("codec-record", order))])
                    ),
                ]
            )
            with self.subTest(order):
                rows = self.fields(
                    path,
                    "voice.endpoint",
                    "voice.name",
                    "voice.meaning",
                    "voice.line",
                    "voice.param.word",
                    "voice.param.int",
                    "voice.param.text",
                    "voice.param.bool",
                    "voice.codec",
                )
                self.assertEqual(
                    rows[0][:6],
                    [["7"], ["al_ri", "al_ri_cad", "al_ri_freq"], ["ring", "ring cadence", "ring frequency"], ["1"]]
                    + [["1000", "4000", "400", "200"], ["25"]],
                )
                self.assertEqual(rows[1][1][0], "g_cause")
                self.assertEqual(rows[1][5:7], [["-6"], ["no-G729"]])
                self.assertEqual((rows[2][5], rows[2][7]), (["7"], ["1"]))
                self.assertEqual(rows[3][8], ["8"])
                self.assertEqual(len(self.fields(path, "frame.number", words=["-Y", 'voice.signal == "al_ri"'])), 1)
                self.assertEqual(self.tshark(path, "-Y", "kex.malformed || voice.malformed"), "")

    def test_data_blocks_with_each_checksum(self):
        bus = Writer("little")
        block = golden("data-block", "little").decode()
        total = sum(bytes.fromhex(block)) - int(block[-2:], 16)
        blocks = [
            block,
            block[:-2] + f"{-total & 0xFF:02X}",
            block[:-2] + f"{(total + 1) & 0xFF:02x}",
            block[:-4],
            "80",
        ]
        path = self.capture(
            [
                record(
                    ONE_WAY,
                    bus.call(
                        place,
                        "a.EndPoint.b",
                        "signal",
                        [("signal", bus.signal(ANDISP_DATA, [(ANDISP_DATA_DB, one.encode() + b"\0")]))],
                    ),
                )
                for place, one in enumerate(blocks)
            ]
        )
        rows = self.fields(path, "voice.block.text", "voice.block.checksum_form", "voice.block.bad", "voice.malformed")
        shown = ["10312135", "201", "Ann"]
        self.assertEqual([row[0] for row in rows], [shown, shown, shown, [], []])
        self.assertEqual([row[1] for row in rows], [["sum"], ["complement"], ["wrong"], [], []])
        self.assertEqual([len(row[2]) for row in rows], [0, 0, 1, 0, 0])
        self.assertEqual([len(row[3]) for row in rows], [0, 0, 0, 1, 1])

    def test_answers_are_joined_with_their_calls(self):
        bus = Writer("big")
        call, answer = bus.call(7, "App", "register_plugin", [("plugin_name", "fxs1")]), bus.reply(7)
        wrong = bus.reply(7, None, [(196640, "Missing mandatory argument", "country")])
        path = self.capture(
            [
                record(CALL, call),
                record(CALL, call, sender=OTHER),
                record(CALL, call, sender=APPLICATION, receiver=PLUGIN),
                record(WAITING, bus.message(6, 7, b""), sender=OTHER),
                record(REPLY, wrong, sender=APPLICATION, receiver=OTHER),
                record(REPLY, answer, sender=APPLICATION, receiver=PLUGIN),
                record(REPLY, answer),
                record(REPLY, bus.reply(8)),
            ],
            step_us=400_000,
        )
        names = ["kex.request_in", "kex.reply_in", "kex.function", "kex.rtt", "kex.error.code", "kex.error.info"]
        rows = self.fields(path, *names, "kex.slow", "kex.waits", "kex.answer_error", words=["-2"])
        self.assertEqual([row[0] for row in rows], [[], [], [], ["2"], ["2"], ["1"], ["3"], []])
        self.assertEqual([row[1] for row in rows[:4]], [["6"], ["5"], ["7"], []])
        self.assertEqual([row[2] for row in rows], [["register_plugin"]] * 7 + [[]])
        self.assertEqual([round(float(row[3][0]), 3) for row in rows[3:7]], [0.8, 1.2, 2.0, 1.6])
        self.assertEqual(rows[4][4:6], [["196640"], ["country"]])
        self.assertEqual([bool(row[6][:1]) for row in rows], [False] * 4 + [True] * 3 + [False])
        self.assertEqual([place for place, row in enumerate(rows) if row[7]], [3])
        self.assertEqual([place for place, row in enumerate(rows) if row[8]], [4])

    def test_names_events_and_losses_are_in_the_records(self):
        why = b"this is no packet of the bus"
        path = self.capture(
            [
                record(CONNECTED),
                record(
                    REFUSED, Writer("little").message(5, 0, Writer("little").text(why)), APPLICATION, PLUGIN, lost=12
                ),
                record(CLOSED, text=why),
            ]
        )
        rows = self.fields(
            path, "kex.from", "kex.to", "kex.connection", "kex.lost", "kex.text", "kex.copies_lost", "kex.closed"
        )
        self.assertEqual([row[0] for row in rows], [["fxs_plugin"], ["voice_application"], ["fxs_plugin"]])
        self.assertEqual([row[1][0] for row in rows], ["voice_application", "fxs_plugin", "voice_application"])
        self.assertEqual([row[2] for row in rows], [["3"]] * 3)
        self.assertEqual([row[3] for row in rows], [[], ["12"], []])
        self.assertEqual([row[4] for row in rows], [[], [why.decode()], [why.decode()]])
        self.assertTrue(rows[1][5] and rows[2][6])

    def test_newer_versions_are_said_and_shown_as_far_as_they_go(self):
        bus = Writer("little")
        call = bus.call(1, "App", "register_plugin", [("plugin_name", "fxs1")])
        path = self.capture(
            [record(CALL, call, version=2, more=b"more"), record(CALL, bus.message(2, 1, b"\1\2\3", version=3))]
        )
        rows = self.fields(path, "kex.function", "kex.newer", "kex.malformed")
        self.assertEqual(rows[0][0], ["register_plugin"])
        self.assertEqual([(len(row[1]), len(row[2])) for row in rows], [(1, 0), (1, 0)])

    # ---- what breaks nothing

    def test_a_message_cut_at_every_byte_is_malformed(self):
        bus = Writer("little")
        whole = record(
            ONE_WAY, bus.call(1, "fxs1.EndPoint.FXS1", "signal", [("signal", golden("signal", "little"))], 3)
        )
        empty = len(record(ONE_WAY))
        path = self.capture([whole[:size] for size in range(1, len(whole))] + [whole])
        rows = self.fields(path, "kex.malformed")
        sound = [size for size, row in enumerate(rows, 1) if not row[0]]
        self.assertEqual(sound, [empty, len(whole)], "an event without a message is whole, too")

    def test_broken_bytes_show_no_lua_error(self):
        for order in ORDERS:
            bus = Writer(order)
            signal = bus.call(5, "fxs1.EndPoint.FXS1", "signal", [("signal", golden("signal", order))])
            block = golden("data-block", order) + b"\0"
            display = bus.signal(ANDISP_DATA, [(ANDISP_DATA_DB, block)])
            records = [record(CALL, golden(name, order)) for name in ("call", "reply", "refused", "waiting")]
            records += [
                record(CALL, signal),
                record(CALL, bus.call(6, "a.EndPoint.b", "signal", [("signal", display)])),
            ]
            path = self.capture(records * 20, order)
            for seed in range(1, 4):
                broken = self.folder / f"broken{seed}.pcapng"
                status, _, err = self.run_program("editcap", "-E", "0.03", "-o", "64", "--seed", seed, path, broken)
                self.assertEqual(status, 0, err)
                self.assertNotEqual(self.tshark(broken, "-V", "-Y", "kex.malformed || voice.malformed"), "")

    def test_deep_lists_and_odd_texts_break_nothing(self):
        bus = Writer("little")
        deep = b"\x0d\x01\0\0\0" * 2000 + b"\xff"
        odd = [b"\x1b[2J</script>", b"\xff\xfe", "\u202e\u0301".encode() * 5000, b"%s%n", b""]
        hidden = [0x9B, 0xAD, 0x61C, 0x180E, *range(0x200B, 0x2010), *range(0x2028, 0x202F), *range(0x2060, 0x2070)]
        hidden += [0xFEFF, 0xFFF9, 0xFFFB, 0xE0000, 0xE007F]
        odd.append("".join(map(chr, hidden)).encode())
        calls = [bus.call(1, text, text, [(text, text)]) for text in odd]
        calls.append(bus.message(2, 1, bus.text("a") + bus.text("b") + b"\x01" + bus.text("c") + deep))
        path = self.capture([record(CALL, call) for call in calls] + [record(CLOSED, text=odd[0], sender=("", 1, 1))])
        out = self.tshark(path, "-V")
        self.assertEqual([code for code in [0x1B, *hidden] if chr(code) in out], [])
        self.assertIn("\\x1B[2J</script>", out)
        rows = self.fields(path, "kex.malformed")
        self.assertEqual([len(row[0]) for row in rows], [0] * len(odd) + [1, 0])

    def test_texts_of_data_blocks_that_are_no_characters_are_written_out(self):
        whole = "\u00fc\u20ac\ud7ff\U0001f4de\U0010ffff"
        rows = [
            (b"\x9b31m", "\\x9B31m"),
            (b"a\xff", "a\\xFF"),
            (b"\xe2\x82", "\\xE2\\x82"),
            (b"\xc3\xbc\x80", "\u00fc\\x80"),
            (b"\xc0\xaf", "\\xC0\\xAF"),
            (b"\xe0\x9f\xbf", "\\xE0\\x9F\\xBF"),
            (b"\xed\xa0\x80", "\\xED\\xA0\\x80"),
            (b"\xf0\x8f\xbf\xbf", "\\xF0\\x8F\\xBF\\xBF"),
            (b"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"),
            (whole.encode(), whole),
        ]
        bus = Writer("little")
        records = []
        for name, _ in rows:
            block = bytes([0x80, len(name) + 2, 7, len(name)]) + name
            block = (block + bytes([sum(block) % 256])).hex().upper().encode() + b"\0"
            signal = bus.signal(ANDISP_DATA, [(ANDISP_DATA_DB, block)])
            records.append(record(CALL, bus.call(1, "a.EndPoint.b", "signal", [("signal", signal)])))
        found = self.fields(self.capture(records), "voice.block.text")
        self.assertEqual([row[0][0] for row in found], [text for _, text in rows])

    # ---- the other programs

    def test_editors_and_servers_take_the_file(self):
        bus = Writer("little")
        call = bus.call(1, "App", "register_plugin", [("plugin_name", "fxs1")])
        path = self.capture([record(CALL, call), record(REPLY, bus.reply(1), APPLICATION, PLUGIN)])
        edited, merged, sorted_ = (self.folder / f"{name}.pcapng" for name in ("edited", "merged", "sorted"))
        for words in (
            ["editcap", "-a", "1:kept", path, edited],
            ["mergecap", "-w", merged, edited, path],
            ["reordercap", merged, sorted_],
            ["capinfos", sorted_],
        ):
            status, _, err = self.run_program(*words)
            self.assertEqual(status, 0, err)
        self.assertEqual([row[0] for row in self.fields(sorted_, "kex.function")], [["register_plugin"]] * 4)
        self.assertEqual(len(self.fields(sorted_, "frame.number", words=["-Y", 'frame.comment == "kept"'])), 1)

    @unittest.skipUnless(shutil.which("sharkd"), "sharkd is not installed")
    def test_sharkd_finds_the_dissector_in_the_personal_folder(self):
        plugins = self.folder / ".local/lib/wireshark/plugins"
        plugins.mkdir(parents=True)
        shutil.copy(DISSECTOR, plugins)
        path = self.capture([record(CALL, Writer("big").call(1, "App", "register_plugin", [("plugin_name", "fxs1")]))])
        asked = [
            {"jsonrpc": "2.0", "id": 1, "method": "load", "params": {"file": str(path)}},
            {"jsonrpc": "2.0", "id": 2, "method": "frames", "params": {"filter": 'kex.function == "register_plugin"'}},
        ]
        _, out, _ = self.run_program("sharkd", "-", input="".join(json.dumps(one) + "\n" for one in asked).encode())
        answers = [json.loads(line) for line in out.splitlines() if line.startswith("{")]
        self.assertEqual(answers[0]["result"], {"status": "OK"})
        self.assertEqual([frame["num"] for frame in answers[1]["result"]], [1])


if __name__ == "__main__":
    sys.exit(unittest.main())
