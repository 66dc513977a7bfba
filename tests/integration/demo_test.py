# SPDX-License-Identifier: MIT
"""The demonstration works, and says which step failed when something does not."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import recordings
from terminal import Terminal

DEMO = Path(__file__).resolve().parents[2] / "hosts" / "demo" / "demo.py"


def run_demo(bin_folder, folder, **environment):
    done = subprocess.run(
        [sys.executable, DEMO, folder],
        capture_output=True,
        text=True,
        timeout=100,
        env={**os.environ, "VOICE_BIN": str(bin_folder), **environment},
    )
    return done.returncode, done.stdout.splitlines()


def with_replaced(system, program, script):
    """A folder with the programs of the build, one of them replaced by a shell script."""
    folder = system.folder / "bin"
    folder.mkdir()
    for real in system.bin.resolve().iterdir():
        (folder / real.name).symlink_to(real)
    (folder / program).unlink()
    (folder / program).write_text(f"#!/bin/sh\n{script}\n")
    (folder / program).chmod(0o755)
    return folder


def test_every_step_happens(system):
    sound = system.folder / "sound"
    sound.mkdir()
    (sound / "letter.wav").write_text("This is somebody's.")
    status, lines = run_demo(system.bin.resolve(), sound)
    assert status == 0, "\n".join(lines)
    assert lines[-1].startswith("All 12 steps happened")
    shown = "\n".join(lines)
    for part in (
        "register_endpoint answered",
        "event  off hook  al_of",
        "101 hears sound",
        "201 displays 101",
        "<-- modify  both ways  PCMU ",
        "<-- add_stream ",
        "<-- exit  reason 32",
        "createDspChannel answered  true",
        "101 displays 03012345678",
    ):
        assert part in shown, part
    assert "\x1b" not in shown
    assert f"7 lines were recorded: {sound}/index.html" in shown
    lines_recorded(sound)


@pytest.mark.parametrize("name", ['a"b', "a\nb", "x" * 390])
def test_folder_that_no_command_can_name_is_refused(system, name):
    status, lines = run_demo(system.bin.resolve(), system.folder / name)
    assert (status, lines) == (2, [])
    assert not (system.folder / name[:255]).exists()


def lines_recorded(folder):
    """Each line has its sound and its labels, and the page has them all."""
    page = (folder / "index.html").read_text()
    for name in ("101", "102", "201", "202", "501", "502", "exchange"):
        heard, said = recordings.read(folder / f"{name}.wav")
        texts = [text for _, _, text in recordings.labels(folder / f"{name}.labels.txt")]
        assert f'src="{name}.wav"' in page
        if name == "502":  # nobody calls it
            assert not any(heard) and not texts
        else:
            assert max(heard) > 2000 and max(said) > 2000, name
            assert "talking" in texts, name
    texts = " ".join(text for _, _, text in recordings.labels(folder / "101.labels.txt"))
    for event in ("off hook", "dials 201", "rings", "displays number=03012345678", "hears busy-tone", "on hook"):
        assert event in texts, event
        assert event in page, event


def test_plugin_that_does_not_start_is_named(system):
    folder = with_replaced(system, "fxs_plugin", "echo 'no hardware' >&2; exit 3")
    status, lines = run_demo(folder, system.folder)
    assert status == 1
    assert any(line.startswith("FAILED in step 1, Three processes find each other") for line in lines)
    assert "no hardware" in lines


def test_plugin_that_is_deaf_is_named(system):
    real = (system.bin / "fxs_plugin").resolve()
    folder = with_replaced(system, "fxs_plugin", f'exec "{real}" "$@" --no-stdin')
    status, lines = run_demo(folder, system.folder, VOICE_TEST_PATIENCE="5")
    assert status == 1
    assert any(re.match("FAILED in step 1, .*: fxs[12] never said ", line) for line in lines)


@pytest.mark.parametrize("terminal, wanted", [("xterm", True), ("dumb", False)])
def test_colours_are_for_terminals_that_have_them(system, terminal, wanted):
    folder = with_replaced(system, "fxs_plugin", "exit 3")
    screen = Terminal()
    environment = {key: value for key, value in os.environ.items() if key != "NO_COLOR"}
    environment |= {"VOICE_BIN": str(folder), "TERM": terminal}
    with screen.start([sys.executable, DEMO, system.folder], stdin=subprocess.DEVNULL, env=environment) as demo:
        demo.wait(100)
    shown = screen.finish()
    assert demo.returncode == 1
    assert b"Three processes" in shown
    assert (b"\x1b[" in shown) == wanted
