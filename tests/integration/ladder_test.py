# SPDX-License-Identifier: MIT
"""voicectl ladder: from captures, from a pipe, live; what it says of files and targets that cannot be."""

import contextlib
import os
import pty
import re
import resource
import shlex
import stat
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / "tool" / "tests")]
from captures import block  # noqa: E402
from tool_run import tool_run  # noqa: E402
from traffic_samples import evening  # noqa: E402
from wire import APPLICATION, RawPeer  # noqa: E402

CUT = re.compile(r"voicectl: standard input: cut off in the block at byte \d+\n")


def run(system, *words, **options):
    return tool_run(system, "ladder", *words, cwd=system.folder, **options)


@pytest.fixture
def capture(system):
    path = system.folder / "calls.pcapng"
    whole = evening()
    whole.sound(50, missing={7})
    path.write_bytes(whole.file())
    return path


def example_of_the_help_works(system, capture):
    status, text, _ = run(system, "--help")
    [example] = re.findall(r"Example: voicectl ladder (.*)", text)
    assert status == 0 and run(system, *shlex.split(example)) == (0, "", "")
    assert "<!DOCTYPE html>" in (system.folder / "calls.html").read_text()


def test_file_pipe_and_either_byte_order_draw_the_same(system, capture):
    status, drawn, err = run(system, capture)
    assert (status, err) == (0, "")
    assert run(system, "-", input=capture.read_bytes()) == (0, drawn, "")
    whole = evening(order="big")
    whole.sound(50, missing={7})
    assert run(system, "-", input=whole.file()) == (0, drawn, "")
    lines = drawn.splitlines()
    assert lines[0].split() == ["time", "(s)", "FXS1", "fxs1", "voice_application", "dect1", "HS1", "RTP"]
    assert re.search(r"│.*─ al_ri ring ─.*>", drawn) and "1 lost (2.0 %)" in drawn
    assert "▒ ! event is waited for, 2.0 s so far" in drawn


def name_of_the_target_says_which_form(system, capture):
    for name, begin in [
        ("a.html", "<!DOCTYPE html>"),
        ("a.svg", "<svg "),
        ("a.mmd", "sequenceDiagram"),
        ("a", "  time"),
    ]:
        assert run(system, capture, "-w", name) == (0, "", "")
        target = system.folder / name
        assert target.read_text().startswith(begin)
        assert stat.S_IMODE(target.stat().st_mode) == 0o600
    assert run(system, capture, "-o", "mermaid", "-w", "b.html")[0] == 0
    assert (system.folder / "b.html").read_text().startswith("sequenceDiagram")


def svg_is_xml(system, capture):
    status, svg, _ = run(system, capture, "-o", "svg")
    root = ElementTree.fromstring(svg)
    texts = [node.text for node in root.iter("{http://www.w3.org/2000/svg}text")]
    assert status == 0 and {"FXS1", "voice_application", "al_ri"} <= set(texts)


def filters_choose(system, capture):
    status, drawn, _ = run(system, capture, "--endpoint", "HS1", "--package", "al")
    assert status == 0 and "al_ri" in drawn and "cg_dt" not in drawn and " FXS1 " not in drawn
    assert run(system, capture, "-e", "nobody", "--function", "create")[0] == 0, "sound is left"
    capture.write_bytes(evening().file())
    assert run(system, capture, "-e", "nobody") == (1, "", "voicectl: no message is one of those that were chosen\n")


def test_forms_targets_and_filters(system, capture):
    example_of_the_help_works(system, capture)
    name_of_the_target_says_which_form(system, capture)
    svg_is_xml(system, capture)
    filters_choose(system, capture)


def test_live_until_so_many_messages(system):
    system.start_application()
    ladder = system.start("ladder", "voicectl", "ladder", "-n", "3", "-w", system.folder / "a.txt")
    ladder.err.expect("^voicectl: watching kex://ipc:.*: an interrupt ends it, then the ladder is written$")
    system.start_fxs("fxs1")
    assert ladder.wait() == 0
    assert "fxs1" in (system.folder / "a.txt").read_text().splitlines()[0]


def test_bus_that_goes_leaves_what_had_passed(system):
    application = system.start_application()
    ladder = system.start("ladder", "voicectl", "ladder", "-w", system.folder / "a.svg")
    ladder.err.expect("^voicectl: watching")
    with RawPeer.connect(system.socket) as peer:
        for _ in range(3):  # with an answer what was before it has passed the tap
            peer.call(APPLICATION, "nothing", [])
        application.kill()
        ladder.err.expect("^voicectl: the voice application is gone$")
    assert ladder.wait() == 0
    assert "nothing" in (system.folder / "a.svg").read_text()


def test_interrupt_writes_what_had_passed(system):
    system.start_application()
    ladder = system.start("ladder", "voicectl", "ladder", "-w", system.folder / "a.html")
    ladder.err.expect("^voicectl: watching")
    with RawPeer.connect(system.socket) as peer:
        for _ in range(3):
            peer.call(APPLICATION, "nothing", [])
        assert ladder.terminate() == 0
    assert "nothing" in (system.folder / "a.html").read_text()


def test_nobody_there_leaves_the_target_alone(system):
    status, _, err = run(system, "-w", "a.html")
    assert status == 1 and "is voice_application running?" in err
    assert not (system.folder / "a.html").exists()


def test_capture_in_front_of_the_pipe(system):
    system.start_application()
    tool = f"'{system.bin}/voicectl'"
    words = f"{tool} capture -o - --count 2 | {tool} ladder - -w a.txt"
    shell = subprocess.Popen(
        ["sh", "-c", words], env=system.environment, cwd=system.folder, stderr=subprocess.PIPE, text=True
    )
    with contextlib.closing(shell.stderr):
        assert "capturing" in shell.stderr.readline()
        with RawPeer.connect(system.socket) as peer:
            peer.call(APPLICATION, "nothing", [])
        shell.stderr.read()
        assert shell.wait(20) == 0
    assert "nothing" in (system.folder / "a.txt").read_text()


def interface_of(link_type):
    section = b"\x4d\x3c\x2b\x1a\x01\x00\x00\x00" + b"\xff" * 8
    frame = bytes(20) + b"x" * 4
    packet = frame[:12] + (4).to_bytes(4, "little") * 2 + b"x" * 4
    return (
        block("<", 0x0A0D0D0A, section)
        + block("<", 1, link_type.to_bytes(4, "little") + bytes(4))
        + block("<", 6, packet)
    )


def test_files_that_are_no_capture(system, capture):
    whole = capture.read_bytes()
    rows = [
        ("empty", b"", "empty"),
        ("text", b"Dear aunt, how are you?\n", "no capture: voicectl capture -o FILE makes one"),
        ("zeros", bytes(5000), "no capture: voicectl capture -o FILE makes one"),
        ("gzip", b"\x1f\x8b\x08" + bytes(20), "compressed: gunzip makes one of it that can be read"),
        ("pcap", bytes.fromhex("d4c3b2a1") + bytes(20), "a classic pcap file: editcap -F pcapng makes one of it that"),
        ("link", interface_of(1), "1 packets of link type 1 left out"),
        ("tags", interface_of(252), "1 packets left out: their lengths, interfaces or tags are wrong"),
    ]
    for name, raw, sentence in rows:
        (system.folder / name).write_bytes(raw)
        status, out, err = run(system, name, "-w", "a.html")
        assert (status, out) == (1, "") and err.startswith(f"voicectl: '{name}': {sentence}"), name
    assert run(system, "none") == (1, "", "voicectl: 'none' cannot be read: No such file or directory\n")
    assert run(system, ".") == (1, "", "voicectl: '.': cannot be read: Is a directory\n")
    (system.folder / "more").write_bytes(whole + interface_of(252))
    status, out, err = run(system, "more")
    assert (status, out) == (1, run(system, capture)[1]), "what stands around it is drawn"
    assert err == "voicectl: 'more': 1 packets left out: their lengths, interfaces or tags are wrong\n"
    (system.folder / "sparse").write_bytes(whole)
    os.truncate(system.folder / "sparse", 4 << 30)
    status, out, err = run(system, "sparse")
    assert (status, err) == (1, f"voicectl: 'sparse': the block at byte {len(whole)} says it has 0 bytes\n")
    assert out.startswith("  time (s)"), "what stands before it is drawn"
    assert not (system.folder / "a.html").exists()


def test_tap_that_is_not_admitted(system):
    system.start_application()
    for _ in range(8):
        system.start_watcher()
    status, _, err = run(system, "-w", "a.html")
    assert status == 1 and "voicectl: the voice application does not admit this tap: " in err
    assert not (system.folder / "a.html").exists()


def test_pipe_that_ends_anywhere(system, capture):
    whole = capture.read_bytes()
    drawn = [row.rstrip() for row in run(system, capture)[1].splitlines()]
    for size in range(1, len(whole), len(whole) // 40):
        status, out, err = run(system, "-", "-e", "HS1", "FXS1", input=whole[:size])
        assert status == 1 or err == "", size
        if status == 1 and size >= 60:
            assert CUT.fullmatch(err) or "no message" in err, err
        assert len(out.splitlines()) <= len(drawn)


def test_capture_of_a_newer_version_shows_what_can_be_read(system):
    whole = evening(0)
    body = b"".join(whole.bus.word(len(text)) + text for text in (b"a.b", b"future")) + b"\0"
    whole.add(3, whole.bus.message(2, 99, body, version=3), ("fxs_plugin", 200, 1), ("voice_application", 100, 0))
    whole.add(77, b"", ("fxs_plugin", 200, 1), ("voice_application", 100, 0), version=9, more=b"more")
    status, out, err = run(system, "-", input=whole.file())
    assert (status, err) == (0, "")
    assert "! broken a message of version 3 of the bus, 2 is known here" in out


def test_targets_that_cannot_be(system, capture):
    there = system.folder / "there.html"
    there.write_text("mine")
    there.chmod(0o644)
    rows = [
        (there.name, "'there.html' is there already: --force replaces it"),
        (".", "'.' cannot be written: Is a directory"),
        ("none/a.svg", "'none/a.svg' cannot be written: No such file or directory"),
        ("/dev/full", "'/dev/full' cannot be written: No space left on device"),
    ]
    for target, sentence in rows:
        assert run(system, capture, "-w", target) == (1, "", f"voicectl: {sentence}\n")

    def small_files():
        resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))

    for words in (["-w", "new.html"], ["-f", "-w", there.name]):
        status, _, err = run(system, capture, *words, preexec_fn=small_files)
        assert status == 1 and err.endswith(" cannot be written: File too large\n"), err
    assert there.read_text() == "mine"
    assert sorted(path.name for path in system.folder.glob("*.html*")) == [there.name], "nothing is left half"
    assert run(system, capture, "-f", "-w", there.name) == (0, "", "")
    assert there.read_text().startswith("<!DOCTYPE html>") and stat.S_IMODE(there.stat().st_mode) == 0o600


def test_output_that_nobody_takes(system, capture):
    with open("/dev/full", "w", encoding="ascii") as full:
        status, _, err = run(system, capture, output=full)
    assert status == 1 and "the output cannot be written: No space left on device" in err
    ours, theirs = os.pipe()
    os.close(ours)
    try:
        status, _, err = run(system, capture, "-o", "html", output=theirs)
    finally:
        os.close(theirs)
    assert status == 1 and "the output cannot be written: Broken pipe" in err


def test_terminal_takes_text_only(system, capture):
    ours, theirs = pty.openpty()
    try:
        for form in ("html", "svg"):
            status, _, err = run(system, capture, "-o", form, output=theirs)
            assert (status, err) == (2, "voicectl: standard output is a terminal: -w FILE keeps the picture\n")
    finally:
        os.close(ours)
        os.close(theirs)


def test_wrong_command_lines_are_said(system):
    for words, sentence in [
        (["a", "b"], "'b' is not expected here"),
        ([""], "FILE wants a file or -, not an empty name"),
        (["a", "--for", "3"], "--socket and --for are for a live ladder, without a file"),
        (["a", "-o", "pdf"], "--output is html, svg, mermaid or text, not 'pdf'"),
        (["a", "-w", ""], "--write wants a file or -, not an empty name"),
        (["a", "-k", "nonsense"], "no package 'nonsense'"),
    ]:
        status, out, err = run(system, *words)
        assert (status, out) == (2, "") and err.startswith(f"voicectl: {sentence}"), err


def test_texts_of_the_bus_steer_nothing(system):
    for text in ("\x1b[2J\u202e", "a\nb\rc", "<b>&\"'", "x" * 300, "e" + "\u0301" * 10_000):
        whole = evening(1, names=(text, "dect1"))
        for form in ("text", "mermaid", "svg", "html"):
            status, out, err = run(system, "-", "-o", form, input=whole.file())
            assert (status, err) == (0, "")
            assert not re.search("[\x00-\x09\x0b-\x1f\x7f-\x9f\u200b-\u200f\u2028-\u202e]|\u0301{4}", out), form
            if form == "svg":
                ElementTree.fromstring(out)
