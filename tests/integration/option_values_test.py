# SPDX-License-Identifier: MIT
"""Command lines of all hosts: what makes no sense ends them at once, with status 2 and a sentence."""

import re
import subprocess

import pytest

HOSTS = ("voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin")
FINE = (0, 1)  # an application without input leaves; a plugin without an application fails

# What a value may be besides: for each option, the status with "-1" and with "abc".
STATUS = {
    "name": FINE,
    "stem": FINE,
    "socket": FINE,
    "media-file": FINE,  # a file of that name
    "control": None,  # a socket of that name: the host runs on
    "config": (1,),  # there is no such file
    "lines": (2,),
    "tone": (2,),
    "codecs": (2,),
    "display-wav": (2,),
    "display-modem": (2,),
}
VALUES = {
    "empty": b"",
    "huge": b"9" * 100_000,
    "negative": b"-1",
    "no number": b"abc",
    "no text": b"a\xffb",
    "control": b"a\nb",
}
ALWAYS_WRONG = ("empty", "huge", "no text", "control")


def run(system, host, *words):
    """Without input, in a folder of its own; nothing may take long."""
    return subprocess.run(
        [system.bin / host, *words],
        env=system.environment,
        cwd=system.folder,
        stdin=subprocess.DEVNULL,
        capture_output=True,
        timeout=20,
    )


def options(system, host):
    """The options that --help lists, and whether a value follows."""
    text = run(system, host, "--help").stdout.decode()
    rows = re.findall(
        r"--([a-z-]+)( [A-Z]+)?", "\n".join(line for line in text.splitlines() if line.startswith("  --"))
    )
    assert len(rows) >= 6, text
    return {name: value != "" for name, value in rows}


def complains(done, status):
    error = done.stderr.decode()  # strictly: an error is text, whatever was given
    assert done.returncode in status, (done.args[1:], done.returncode, error)
    if status == (2,):
        assert error.endswith("Try --help.\n") and 1 < error.count("\n") < 3 and len(error) < 600, error
    assert done.returncode != 2 or done.stdout == b"", done.stdout


@pytest.mark.parametrize("host", HOSTS)
@pytest.mark.parametrize("what", VALUES)
def test_value_of_every_option(system, host, what):
    for option, takes_value in options(system, host).items():
        if not takes_value:
            complains(run(system, host, b"--" + option.encode() + b"=" + VALUES["negative"]), (2,))
            continue
        status = (2,) if what in ALWAYS_WRONG else STATUS[option]
        if status is None:
            continue
        complains(run(system, host, "--" + option, VALUES[what]), status)
        complains(run(system, host, b"--" + option.encode() + b"=" + VALUES[what]), status)


@pytest.mark.parametrize("host", HOSTS)
def test_value_that_is_missing(system, host):
    for option, takes_value in options(system, host).items():
        if takes_value:
            complains(run(system, host, "--" + option), (2,))


@pytest.mark.parametrize("host", HOSTS)
def test_what_is_no_option(system, host):
    for words in (["--no-such"], ["more"], ["-x"], ["--", "more"]):
        complains(run(system, host, *words), (2,))


@pytest.mark.parametrize(
    "words",
    [
        ["--lines", "0"],
        ["--lines", "33"],
        ["--lines", "99999999999999999999"],
        ["--lines", "1x"],
        ["--lines", "1.5"],
        ["--tone", "310"],
        ["--tone", "299"],
        ["--tone", "0x1F4"],
        ["--codecs", ","],
        ["--codecs", "PCMA,,PCMU"],
        ["--codecs", "PCMA,OPUS"],
        ["--display-modem", "V23"],
    ],
    ids=" ".join,
)
def test_numbers_and_words_out_of_range(system, words):
    complains(run(system, "fxs_plugin", *words), (2,))
