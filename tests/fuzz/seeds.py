#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes the dictionary of the fuzz targets and their first seeds, from the vocabulary and from the shapes that the
sources draw.

usage: tests/fuzz/seeds.py [--check]

Numbers are little-endian: elsewhere a seed is still an input, only a different one. What the fuzzer found stands beside
these files in corpus/<target>/ under a name that says what it was; --check leaves it alone.
"""

import sys
from pathlib import Path

from bus_seeds import connecting_seeds, listener_seeds, tap_seeds, traffic_seeds
from capture_seeds import capture_seeds, media_file_seeds
from seed_bytes import IDS, byte, data_block, half, item, text, word
from words import dictionary

HERE = Path(__file__).resolve().parent


ANY_DATE = b"11211138"


# -------------------------------------------------------------------------------------------------------- The seeds


def params_seeds():
    read, write = byte(0), byte(1)
    cause = item("LIBVOICE_EVENT_g_cause", b"") + item("LIBVOICE_PARAM_g_cause_generalcause", word(2))
    country = item("LIBVOICE_PARAM_zil_country", b"DE\0")
    cadence = item("LIBVOICE_PARAM_al_ri_cad", word(1000) + word(4000))
    look_for = half(1000) + word(IDS["LIBVOICE_PARAM_zil_country"])
    yield "read-three-types", read + look_for + cause + country + cadence
    yield "read-repeated-item", read + look_for + country + country
    yield "read-cut-off-value", read + look_for + cause + country[:-2]
    yield "read-cut-off-length", read + look_for + country + word(1) + b"ab"
    yield "read-length-that-wraps", read + look_for + word(IDS["LIBVOICE_PARAM_zil_country"]) + word(-1) + b"DE"
    yield "dump-in-little-room", read + half(20) + word(0) + cause
    item_of = word(IDS["LIBVOICE_PARAM_zil_country"])
    yield "write-exact-fit", write + half(24) + item_of + text("DE") + item_of + text("FRANC")
    yield "write-one-too-many", write + half(16) + item_of + text("DE") + item_of + text("FR")


def data_block_seeds():
    everything = byte(8, 20, 1, 50, 1, 20, 1, 1)
    setup = data_block(0x80, (1, ANY_DATE), (2, b"101"), (7, b"FXS1"), (3, b"102"), (0x11, b"\x01"))
    waiting = data_block(0x82, (1, ANY_DATE), (0x0B, b"\xff"), (0x13, b"\x03"))
    yield "call-setup", byte(1) + everything + setup
    yield "message-waiting", byte(1) + everything + waiting
    yield "lower-case-digits", byte(1) + everything + setup.lower()
    yield "wrong-checksum", byte(1) + everything + setup[:-2] + b"00"
    yield "shorter-than-announced", byte(1) + everything + setup[:9]
    yield "number-fills-its-room", byte(1, 8, 3, 1, 50, 1, 20, 1, 1) + setup
    yield "item-past-the-end", byte(2) + everything + byte(1) + byte(2, 200) + b"101"
    yield "unknown-item", byte(2) + everything + byte(0) + byte(0x20, 2) + b"ab" + byte(0x13, 1, 3)
    number = text("0123456789012345678901234")
    yield "encode-all-fields", byte(0, 1, 0xFF) + text(ANY_DATE) + number + text("P") + 4 * text("Anna") + text("\1")
    yield "encode-messages", byte(0, 0, 0xA1) + text(ANY_DATE) + text("\xff") + text("\3")


def known(name):
    """A name by its place in the list of function_calls.cpp."""
    return byte("fxs1 fxs2 dect1 dsp1 FXS1 FXS2 DECT1 channel1".split().index(name))


GOOD = byte(0)  # an argument as it should be
MISSING = byte(176)
VALUELESS = byte(192)
TWO_ITEMS = byte(0, 2) + word(IDS["LIBVOICE_PARAM_zil_country"]) + text("DE\0") + word(7) + text("")
ANY_RECORD_LENGTH = byte(0)  # the length word is right


def record(words, params=TWO_ITEMS):
    """The first word, the others, a parameter buffer, and a length word that is right."""
    return byte(5) + bytes(words - 1) + params + ANY_RECORD_LENGTH


def descriptors(*which):
    return byte(len(which), *which)


def application_seeds():
    start = byte(0, 1, 1)
    register_plugin, deregister_plugin, register_endpoint, deregister_endpoint, event = (byte(n) for n in range(5))
    call, close, answer, fault, request = byte(0), byte(9), byte(10), byte(12), byte(14)
    peer = byte(3)
    plugin = call + peer + register_plugin + GOOD + known("fxs1")
    line = call + peer + register_endpoint + GOOD + known("fxs1") + GOOD + known("FXS1") + GOOD + known("FXS1")
    line += GOOD + half(1) + GOOD + half(32)
    off_hook = call + peer + event + GOOD + known("fxs1") + GOOD + record(4)
    leave = call + peer + deregister_plugin + GOOD + known("fxs1")
    yield "plugin-with-a-line", start + plugin + line + off_hook + leave
    yield "line-deregisters", start + plugin + line + call + peer + deregister_endpoint + GOOD + half(0)
    yield "connection-closes", start + plugin + line + close + peer
    yield "two-plugins-of-a-name", start + plugin + call + byte(4) + register_plugin + GOOD + known("fxs1") + leave
    yield "missing-arguments", start + call + peer + register_plugin + MISSING + call + peer + event + VALUELESS
    yield "answers-and-requests", start + plugin + line + b"".join(
        request + byte(0, 0, 4, 1, 2) + known("fxs1") + byte(kind) + bytes(12) for kind in range(12)
    ) + answer + byte(0, 1, 1, 5)
    yield "endpoints-without-end", start + plugin + 34 * line
    yield "bus-that-fails", start + fault + byte(2) + plugin + fault + byte(1) + line


def plugin_seeds():
    start = byte(1)
    names = "init exit create_ctx add_stream modify_stream remove_stream destroy_ctx".split()
    names += "signal event create modify destroy get set".split()

    def call(name, *arguments, on=1):
        return byte(0, on, names.index(name)) + b"".join(GOOD + argument for argument in arguments)

    info, both, number = byte(0, 0x11), descriptors(0, 1), word(0)
    sockets = byte(100, 0x11) + 2 * (byte(0, 0) + half(40001))
    yield "media-by-descriptors", start + call("create", info, both, number) + call("modify", info, both, number)
    yield "media-by-sockets", start + call("create", sockets, number) + call("destroy", number)
    yield "twelve-descriptors", start + call("create", info, descriptors(*range(6), *range(6)), number)
    lineless = start + byte(0, 1, names.index("create")) + GOOD + info + GOOD + both + MISSING
    yield "descriptors-of-a-call-that-fails", lineless
    yield "descriptors-that-are-none", start + call("create", info, descriptors(6, 7), number)
    yield "records", start + call("signal", record(6)) + call("event", record(4), number) + call("set", record(1))
    yield "parameters", start + call("get", record(1)) + byte(14, 6) + call("get", record(1))
    yield "contexts", start + call("create_ctx", number) + call("add_stream", number, number, number, byte(1), both)
    yield "endpoints-come-and-go", start + byte(9, 0, 1, 1, 3) + byte(0, 1, 4) + byte(10, 0, 0, 7)
    yield "application-comes-back", start + byte(12, 13, 1, 0, 0, 0, 1)
    yield "event-leaves", start + byte(11, 1) + TWO_ITEMS + byte(12, 11, 1) + TWO_ITEMS


def dsp_seeds():
    start = byte(0)
    make_dsp, make_channel = byte(0, 0, 0) + GOOD + known("fxs1"), byte(0, 1, 1) + GOOD + known("fxs2")
    info, both, number = byte(0, 0x11), descriptors(0, 1), word(0)

    def call(function, *arguments):
        return byte(4, 2, function) + b"".join(GOOD + argument for argument in arguments)

    yield "channel-with-media", start + make_dsp + make_channel + call(1, info, both, known("FXS1"), number)
    yield "channel-changes", start + make_dsp + make_channel + call(2, info, both, number) + call(3, number)
    yield "made-twice", start + make_dsp + make_dsp + make_channel + make_channel
    yield "signal", start + call(0, record(6))
    yield "nothing-is-set", byte(15) + call(0, record(6)) + call(3, number)


def rtp_seeds():
    session = byte(0, 3)
    packet = byte(0, 0, 0, 1, 0, 9, 160)
    yield "stream", session + b"".join(
        byte(0, 0, number, 0, 9, 0, 160) + text("") + half(9) + byte(0) for number in range(9)
    )
    yield "report", session + byte(200) + text(bytes.fromhex("81c9000700000001" + 24 * "00")) + half(0) + byte(6)
    yield "extension-and-padding", session + byte(100, 0x3F) + packet + text("\2\2") + half(0) + byte(0)
    yield "padding-longer-than-the-payload", session + byte(100, 0x20, 0, 0, 1, 0, 9, 4) + text("\x0a") + half(
        0
    ) + byte(0)
    yield "codec-change", session + packet + half(0) + byte(5, 1, 3) + packet


def caller_display_seeds():
    setup = data_block(0x80, (1, ANY_DATE), (2, b"101"), (7, b"FXS1"), (3, b"102"))
    yield "call", byte(1) + setup
    yield "messages", byte(1) + data_block(0x82, (0x0B, b"\xff"), (0x13, b"\x03"))
    yield "controls-in-a-name", byte(1) + data_block(0x80, (7, b'A\x1b[2J"\n'))
    yield "cut-off", byte(1) + setup[:-3]
    yield "written", byte(0) + text("101") + text("Anna") + text("102") + byte(1, 3)


def settings_seeds():
    yield "example", (HERE.parent.parent / "hosts/voice_application/voice_application.conf").read_bytes()
    yield "every-word", (
        b'country FR\nnumber 101 fxs1.FXS1 "Anna Berg"\nexchange 0 fxo1.FXO1\nincoming 101\nports 30000-30199\n'
        b"codecs PCMA,G722\naddress 127.0.0.1\n"
    )
    yield "open-quote", b'number 101 FXS1 "Anna\n'
    yield "numbers-too-many", b"".join(b"number %d FXS%d\n" % (1000 + row, row) for row in range(1, 40))
    yield "no-line-break", b"country DE"


def console_seeds():
    lines = b"!plugin fxs1\n!line fxs1 FXS1 0\n!line fxs1 FXS2 0\n"
    dial = b"".join(b"!event 0 LIBVOICE_EVENT_dd_d%d\n" % digit for digit in (1, 0, 2))
    call = b"!event 0 LIBVOICE_EVENT_al_of\n" + dial + b"!event 1 LIBVOICE_EVENT_al_of\n"
    yield "help-and-status", b"help\nstatus\ncalls\nstats\nmemory\nwatch\n"
    yield "call", lines + call + b"calls\ncodec 101 PCMA\nhangup 1\nstatus\n"
    yield "parameters", lines + b"set 101 zil_country DE\nget 101 zil_country\nmwi 101 3\n!time 1000\n"
    yield "wrong-words", lines + b"mwi 101 256\ncodec 101 MP3\nhangup x\nset 101\nnonsense\nflash 101\nderegister 101\n"
    yield "plugin-closes-in-a-call", lines + call + b"!close fxs1\ncalls\nstatus\n"
    yield "dsp", b"!plugin dsp1\ndsp dsp1\n!time 100\ndsp dsp1 codec PCMA\ndsp dsp1 destroy\n"
    yield "line-too-long", b"x" * 600 + b"\nstatus\n"
    yield "quit", b"quit\nstatus\n"


def plugin_console_seeds():
    params = item("LIBVOICE_PARAM_al_ri_cad", word(1000) + word(4000)).hex().encode()
    name = item("LIBVOICE_PARAM_zil_ep_dispname", b"Aunt\0").hex().encode()
    display = data_block(0x80, (1, ANY_DATE), (2, b"101"), (7, b"FXS1"), (3, b"102"))
    shown = item("LIBVOICE_PARAM_andisp_data_db", display + b"\0").hex().encode()
    ring = b"!signal 1 LIBVOICE_SIGNAL_al_ri 0 " + params + b"\n"
    yield "telephone-rings", b"fxs\n!register\n" + ring + b"!signal 1 LIBVOICE_SIGNAL_andisp_data 0 " + shown + (
        b"\nstatus\n1 off\n!signal 1 LIBVOICE_SIGNAL_zil_cancel_all_signals\n1 flash\n1 dial 12*#\n1 on\n"
    )
    yield "telephone-wrong-words", b"fxs\n1 dial\n1 dial x\n3 off\n1 sing\n1\nhelp\nnonsense\nwatch\nmemory\n1 on\n"
    yield "telephone-parameters", b"fxs\n!register\n!set 1 " + name + b"\n!get 1 " + name + b"\n!context 7\nstatus\n"
    yield "handset", b"dect\n!register\n1 off\n1 dial 101\n1 away\n1 back\n2 deregister\nstatus\n1 on\n"
    yield "handset-is-asked-to-leave", b"dect\n!register\n!signal 2 LIBVOICE_SIGNAL_zil_deregister\n!time 10\nstatus\n"
    yield "exchange-rings", b'fxo\n!register\n1 ring 030 "Aunt Mary"\n1 ring\n1 stop\n1 hangup\nstatus\n'
    yield "exchange-line-is-seized", (
        b"fxo\n!register\n!signal 1 LIBVOICE_SIGNAL_fxo_of\n1 ring 1\n1 hangup\n!signal 1 LIBVOICE_SIGNAL_fxo_on\n"
    )
    yield "files", b"fxs\n!register\n1 say /dev/null\n1 off\n1 say\n1 say /nowhere.wav\n1 say off\n1 on\n"
    yield "channels", b"dsp\n!register\nstatus\n1 off\nhelp\nquit\n"
    yield "application-comes-back", b"fxs\n!time 3000\n!register\n1 off\n!close\n!time 3000\n!register\nstatus\nquit\n"
    yield "exit", b"fxs\n!register\n!exit\nstatus\n"


def host_options_seeds():
    yield "telephones", b"fxs\n--name\ntel\n--stem\nT\n--lines\n3\n--codecs\nPCMA,G722\n--tone\n440\n--no-stdin\n"
    yield "display", b"fxs\n--display-wav\n/tmp\n--display-modem=bell202\n--convert-media\n"
    yield "handsets", b"dect\n--name=dect2\n--socket\n/tmp/bus\n--control\n/tmp/control\n"
    yield "exchange-lines", b"fxo\n--lines\n8\n--li\n9\n"
    yield "channels", b"dsp\n--name\ndsp1\n--stem\nx\n"
    yield "application", b"application\n--config\n/none\n--socket\n/tmp/bus\n"
    yield "help", b"fxs\n--help\n"
    yield "version", b"application\n--version\n"
    yield "wrong", b"fxs\n--lines\n0\nword\n--none\n"
    yield "name-too-long", b"fxs\n--name\n" + b"n" * 20
    yield "no-text", b"fxs\n--name\n\xff\n"


def printable_seeds():
    yield "plain", "Aunt \u00c4nne \u6f22 \U0001f600".encode()
    yield "controls", b"\x1b]0;owned\x07\x1b[2J\x7f\r"
    yield "c1", b"\xc2\x9b31m\xc2\x85"
    yield "directions", "\u202e101\u2066\u200f\u061c\u00ad".encode()
    yield "separators", "\u2028\u2029\ufeff\ufff9\U000e0001".encode()
    yield "broken", b"\x9b\xff\xc0\x8a\xed\xa0\x80\xf4\x90\x80\x80\xe6\x9d"
    yield "quotes", b'"a\\b"'


def options_seeds():
    yield "filters", b"watch\n--endpoint\nFXS1\nfxs1.FXS2\n-p\nfxs1\n--function\nevent\n--package\nal\n--direction\nin"
    yield "limits", b"watch\n--count\n10\n--for\n1.5\n--json\n--long\n--reconnect\n--socket\n/tmp/x"
    yield "wrong", b"watch\n--count\n0\n--colour\nred"
    yield "help", b"watch\n--help"
    yield "version", b"--version"
    yield "vocabulary", b"ids\noff\nhook\n--json"
    yield "record", b"params\n--as\nsignal\n--order\nbig\n--write\nsignal = al_ri"
    yield "block", b"block\n--number\n101\n--no-name\nwithheld\n--time\n11210930\n--call-type\n1"
    yield "messages", b"block\n--messages\n3\n--lamp\non"
    yield "digits", b"block\n8008020331303104014F73"
    yield "no-such-subcommand", b"see\n--all"
    yield "nothing", b""


def params_text_seeds():
    buffer, signal = byte(0) + byte(0), byte(1) + byte(0)
    big = byte(0) + byte(1)
    read, write, block = byte(0), byte(1), byte(2)
    cadence = item("LIBVOICE_PARAM_al_ri_cad", word(1000) + word(4000))
    digits = item("LIBVOICE_PARAM_dd_ce_ds", b"201\0")
    head = word(3) + word(IDS["LIBVOICE_SIGNAL_al_ri"]) + word(0) * 4
    yield "buffer", buffer + read + cadence + digits
    yield "signal", signal + read + head + word(len(cadence)) + cadence
    yield "other-order", big + read + bytes.fromhex("110902070000000400000019")
    yield "value-that-its-type-changes", buffer + read + item("LIBVOICE_PARAM_al_ri_freq", b"\1\2")
    yield "cut-off", buffer + read + digits[:-1]
    yield "text", buffer + write + b'al_ri_cad = [1000, 4000]\ndd_ce_ds = "2\\x001" # x\nal_of_init = true\n0x1 = {0f}'
    yield "text-of-a-signal", signal + write + b"signal = al_ri\nendpoint = -1\nflags = 0x1\nal_ri_freq"
    yield "text-that-is-wrong", buffer + write + b'dd_ce_ds = "\\q"'
    yield "block", buffer + block + b"8008020331303104014F73"
    yield "block-of-a-line", buffer + block + b"80 08 02 03 31 30 31 04 01 4f 8d"


SEEDS = {
    "application_functions": application_seeds,
    "caller_display": caller_display_seeds,
    "capture": capture_seeds,
    "connecting": connecting_seeds,
    "console": console_seeds,
    "data_block": data_block_seeds,
    "dsp_functions": dsp_seeds,
    "host_options": host_options_seeds,
    "listener": listener_seeds,
    "media_file": media_file_seeds,
    "options": options_seeds,
    "params": params_seeds,
    "params_text": params_text_seeds,
    "plugin_console": plugin_console_seeds,
    "plugin_functions": plugin_seeds,
    "printable": printable_seeds,
    "rtp": rtp_seeds,
    "settings": settings_seeds,
    "tap_client": tap_seeds,
    "traffic": traffic_seeds,
}


def outputs():
    yield HERE / "words.dict", dictionary().encode()
    for target, seeds in SEEDS.items():
        for name, value in seeds():
            yield HERE / "corpus" / target / name, value


def main(arguments):
    if arguments not in ([], ["--check"]):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    wrong = 0
    for path, value in outputs():
        if not arguments:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(value)
        elif not path.is_file() or path.read_bytes() != value:
            print(f"{path} is not what seeds.py writes: run it again", file=sys.stderr)
            wrong = 1
    return wrong


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
