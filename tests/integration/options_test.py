# SPDX-License-Identifier: MIT
"""Command lines of hosts: what makes no sense ends the process at once with status 2, what only asks with an answer."""

import subprocess

import pytest

from processes import PATIENCE

WRONG = ["", "a.b", "a b", "a\nb", 'a"b', "\x7f", "\u00e4"]
LONGEST_SOCKET = 107  # bytes that an address of a local socket holds, without the zero byte


def status_of(system, program, *words):
    return subprocess.run(
        [system.bin / program, "--no-stdin", *words],
        env=system.environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        timeout=PATIENCE,
        check=False,
    ).returncode


@pytest.mark.parametrize("program", ["voice_application", "fxs_plugin"])
def test_socket_path_that_no_address_holds_is_rejected(system, program):
    too_long = "/tmp/".ljust(LONGEST_SOCKET + 1, "x")
    assert status_of(system, program, "--socket", too_long) == 2
    assert status_of(system, program, "--socket", "") == 2


def test_names_that_the_application_would_not_take_are_rejected(system):
    for name in [*WRONG, "n" * 20]:
        assert status_of(system, "fxs_plugin", "--name", name) == 2, repr(name)
    for stem in [*WRONG, "s" * 15]:
        assert status_of(system, "fxs_plugin", "--stem", stem) == 2, repr(stem)


@pytest.mark.parametrize("program", ["voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"])
@pytest.mark.parametrize("option", ["--help", "--version"])
def test_answer_that_cannot_be_written_is_a_failure(system, program, option):
    with open("/dev/full", "w", encoding="ascii") as full:
        run = subprocess.run(
            [system.bin / program, option],
            stdout=full,
            stderr=subprocess.PIPE,
            text=True,
            timeout=PATIENCE,
            check=False,
        )
    assert run.returncode == 1
    assert run.stderr == "error: standard output cannot be written: No space left on device\n"
