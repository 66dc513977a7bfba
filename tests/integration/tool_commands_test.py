# SPDX-License-Identifier: MIT
"""The subcommands of voicectl that need no running system: ids, params, block."""

import json
import re
import shlex

import pytest

from tool_run import tool_run

COMMANDS = ["ids", "params", "block"]
SIGNAL = ["signal = al_ri", "endpoint = 3", "al_ri_cad = [1000, 4000]", "al_ri_freq = 25"]


@pytest.mark.parametrize("command", COMMANDS)
def test_examples_of_the_help_work(system, command):
    status, text, _ = tool_run(system, command, "--help")
    assert status == 0
    examples = re.findall(r"^(?:Examples?:)? *voicectl (.*)$", text, re.MULTILINE)
    assert examples
    for example in examples:
        status, out, err = tool_run(system, *shlex.split(example))
        assert (status, err) == (0, ""), example
        assert out, example


@pytest.mark.parametrize(
    "words, sentence",
    [
        (["ids", "--jso"], "no option '--jso'"),
        (["params"], "what to read is missing, or - for standard input"),
        (["params", "--as", "reply", "00"], "--as is buffer, signal, event or set, not 'reply'"),
        (["params", "--order", "mixed", "00"], "--order is little or big, not 'mixed'"),
        (["params", "--write", "--json", "line = 1"], "--write and --json do not go together"),
        (["block"], "the digits to read, or what to write, are missing"),
        (["block", "8", "0x"], "'80x' is no hexadecimal text of whole bytes"),
        (["block", "", "--name", "x"], "a block is read or written: --name does not go with digits"),
        (["block", "--name", ""], "--name is a text of 1 to 50 bytes, not ''"),
        (["block", "--number", "1" * 21], f"--number is a text of 1 to 20 bytes, not '{'1' * 21}'"),
        (["block", "--call-type", "256"], "--call-type is a whole number from 1 to 255, not '256'"),
        (["block", "--messages", "-1"], "--messages is a whole number from 0 to 255, not '-1'"),
        (["block", "--time", "13010000"], "--time is now, or month, day, hour and minute as 11210930, not '13010000'"),
        (["block", "--lamp", "1"], "--lamp is on or off, not '1'"),
        (["block", "--no-name", "x"], "--no-name is unavailable or withheld, not 'x'"),
        (["block", "--messages", "1", "--called", "5"], "a message waiting block has no --called"),
        (["block", "--number", "1", "--no-number", "withheld"], "--number and --no-number do not go together"),
        (["block", "--no-name", "withheld", "--name", "x"], "--name and --no-name do not go together"),
    ],
)
def test_wrong_command_lines_are_said(system, words, sentence):
    status, out, err = tool_run(system, *words)
    assert (status, out) == (2, "")
    assert err == f"voicectl: {sentence}. Try voicectl {words[0]} --help.\n"


@pytest.mark.parametrize(
    "words, sentence",
    [
        (["ids", "nothing like it"], "the vocabulary has no identifier of that number, name, package or meaning"),
        (["params", "xyz"], "'xyz' is no hexadecimal text of whole bytes"),
        (["params", "--write", "foo = 3"], "line 1: 'foo' is no identifier of the vocabulary"),
        (["block", "8001"], "this is no data block: 2 bytes are no block: type, length and checksum alone are 3"),
    ],
)
def test_what_is_not_there_or_not_right_is_status_1(system, words, sentence):
    assert tool_run(system, *words) == (1, "", f"voicectl: {sentence}\n")


def test_a_record_goes_to_bytes_and_back(system):
    for order in ("little", "big"):
        status, digits, _ = tool_run(system, "params", "--write", "--as", "signal", "--order", order, *SIGNAL)
        assert status == 0
        status, text, err = tool_run(system, "params", "--as", "signal", "--order", order, "-", input=digits)
        assert (status, err) == (0, "")
        assert "al_ri_cad = [1000, 4000]  # cadence 1000/4000 ms\n" in text
        status, again, _ = tool_run(system, "params", "--write", "--as", "signal", "--order", order, "-", input=text)
        assert (status, again) == (0, digits)
        status, out, _ = tool_run(system, "params", "--as", "signal", "--order", order, "--json", digits)
        assert [item["value"] for item in json.loads(out)["items"]] == [[1000, 4000], 25]


def test_what_a_record_is_instead_is_said(system):
    _, digits, _ = tool_run(system, "params", "--write", "--as", "signal", *SIGNAL)
    status, _, err = tool_run(system, "params", digits)
    assert status == 1
    assert err.endswith(" (it is whole with --as signal)\n")


def test_input_without_an_end_is_left(system):
    with open("/dev/zero", "rb") as zeros:
        status, out, err = tool_run(system, "params", "-", stdin=zeros)
    assert (status, out) == (1, "")
    assert err == "voicectl: standard input holds more than 393216 characters: a record is shorter\n"


@pytest.mark.parametrize("words", [["ids"], ["params", "00" * 8], ["block", "800502033130311C"]])
def test_output_that_cannot_be_written_is_said(system, words):
    with open("/dev/full", "w", encoding="ascii") as full:
        status, _, err = tool_run(system, *words, output=full)
    assert status == 1
    assert "the output cannot be written: No space left on device" in err


def test_nothing_that_is_read_steers_a_terminal(system):
    name = b"\x1b[31mred\xff".hex()
    item = f"07{len(name) // 2:02x}{name}"
    block = bytes.fromhex(f"80{len(item) // 2:02x}{item}")
    for words in (["block", (block + bytes([sum(block) & 0xFF])).hex()], ["ids", "\x1b[31m"], ["params", "\x1b[31m"]):
        for form in ([], ["--json"]):
            _, out, err = tool_run(system, *words, *form)
            assert "\x1b" not in out + err
            assert out + err
