# SPDX-License-Identifier: MIT
"""The command line of voicectl watch: what it cannot be, what it is told, and why nothing can be watched."""

import contextlib
import re
import socket
import subprocess

import pytest

from tool_run import tool_run


def test_status_and_error_without_an_application(system):
    status, out, err = tool_run(system, "watch")
    assert (status, out) == (1, "")
    assert err == (
        f"voicectl: no socket {system.socket}: is voice_application running? "
        "(the path is that of ZIL_VOIP_IPC_SOCKET_URI; --socket gives another)\n"
    )


def plain_file(folder):
    (folder / "file").write_text("")
    return folder / "file"


def left_socket(folder):
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
        listener.bind(str(folder / "left"))
    return folder / "left"


def other_kind(folder, stack):
    listener = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
    listener.bind(str(folder / "stream"))
    listener.listen()
    return folder / "stream"


def full_queue(folder, stack):
    listener = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
    listener.bind(str(folder / "full"))
    listener.listen(0)
    client = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
    client.connect(str(folder / "full"))
    return folder / "full"


def test_why_nothing_is_watched(system):
    """Each reason by its name, and which option or variable it comes from."""
    with contextlib.ExitStack() as stack:
        for path, reason in [
            (plain_file(system.folder), "nobody listens on {}: is voice_application running?"),
            (left_socket(system.folder), "nobody listens on {}: is voice_application running?"),
            (other_kind(system.folder, stack), "{} is not the socket of a voice application"),
            (full_queue(system.folder, stack), "{} takes no more connections: its listener is stopped or busy"),
            (system.folder / "none" / "bus", "no socket {}: is voice_application running?"),
        ]:
            assert tool_run(system, "watch", "--socket", path) == (
                1,
                "",
                f"voicectl: {reason.format(path)} (the path is that of --socket)\n",
            )
    system.environment["ZIL_VOIP_IPC_SOCKET_URI"] = "ipc:/tmp/x\x1b[2J"
    assert tool_run(system, "watch") == (
        1,
        "",
        "voicectl: 'ipc:/tmp/x\\x1B[2J' is no address: it is written kex://ipc:[PATH] "
        "(the path is that of ZIL_VOIP_IPC_SOCKET_URI; --socket gives another)\n",
    )


COUNT = "--count is a whole number from 1 to 1000000000000, not "
SECONDS = "--for is a number of seconds above 0, 31536000 at most, not "
HUGE = "9" * 400
CUT = "9" * 37 + "..."
WRONG = [
    ([], "what to do is missing. Try voicectl --help."),
    (["look"], "no subcommand 'look'. Try voicectl --help."),
    (["--no-such"], "no option '--no-such'. Try voicectl --help."),
    (["watch", "--no-such"], "no option '--no-such'."),
    (["watch", "-jx"], "no option '-x'."),
    (["watch", "more"], "'more' is not expected here."),
    (["watch", ""], "'' is not expected here."),
    (["watch", "--direction", "up"], "--direction is in, out or both, not 'up'."),
    (["watch", "--direction", ""], "--direction is in, out or both, not ''."),
    (["watch", "--direction"], "--direction wants a value."),
    (["watch", "--count", "0"], COUNT + "'0'."),
    (["watch", "--count", "-1"], COUNT + "'-1'."),
    (["watch", "--count", "1.5"], COUNT + "'1.5'."),
    (["watch", "--count", "many"], COUNT + "'many'."),
    (["watch", "--count", HUGE], COUNT + f"'{CUT}'."),
    (["watch", "--count", ""], COUNT + "''."),
    (["watch", "--count"], "--count wants a value."),
    (["watch", "--for", "0"], SECONDS + "'0'."),
    (["watch", "--for", "-1"], SECONDS + "'-1'."),
    (["watch", "--for", "nan"], SECONDS + "'nan'."),
    (["watch", "--for", "inf"], SECONDS + "'inf'."),
    (["watch", "--for", "1e400"], SECONDS + "'1e400'."),
    (["watch", "--for", HUGE], SECONDS + f"'{CUT}'."),
    (["watch", "--for", "soon"], SECONDS + "'soon'."),
    (["watch", "--for", b"\xff1"], SECONDS + "'\\xFF1'."),
    (["watch", "--for", ""], SECONDS + "''."),
    (["watch", "--for"], "--for wants a value."),
    (["watch", "--socket", ""], "--socket is a path of 1 to 107 characters, not ''."),
    (["watch", "--socket", "/" + "9" * 107], "--socket is a path of 1 to 107 characters, not '/" + "9" * 36 + "...'."),
    (["watch", "--socket"], "--socket wants a value."),
    (["watch", "--endpoint", ""], "--endpoint wants a name, not an empty one."),
    (["watch", "--endpoint"], "--endpoint wants a value."),
    (["watch", "--plugin", "fxs1", ""], "--plugin wants a name, not an empty one."),
    (["watch", "--function", ""], "--function wants a name, not an empty one."),
    (["watch", "--package", ""], "--package wants a name, not an empty one."),
    (
        ["watch", "--package", "al", "all"],
        "no package 'all'; there are ajb al alert andisp callsrv cg ct ctyp dd dg fax fxo fxoen g "
        "ipfax nt root rtp sdp srvtn tdmc tonedet tonegen xal zil.",
    ),
    (["watch", "--package", b"\xff\x1b[2J"], "no package '\\xFF\\x1B[2J'; there are "),
]


# Plain names, since ctest knows tests by them.
WRONG_NAMES = [re.sub(r"\W+", "_", f"{place} {arguments}")[:40] for place, (arguments, _) in enumerate(WRONG)]


@pytest.mark.parametrize("arguments, sentence", WRONG, ids=WRONG_NAMES)
def test_wrong_command_line_is_status_two(system, arguments, sentence):
    status, out, err = tool_run(system, *arguments)
    assert (status, out) == (2, "")
    assert err.startswith(f"voicectl: {sentence}") and err.endswith("--help.\n") and err.count("\n") == 1


@pytest.mark.parametrize(
    "arguments",
    [["--socket", b"/tmp/\xff\xfe"], ["--endpoint", b"\xff"], ["--plugin", HUGE]],
    ids=["socket", "endpoint", "plugin"],
)
def test_odd_values_that_could_be_are_taken(system, arguments):
    """No socket there, but no wrong command line either; what was given cannot steer the terminal."""
    status, out, err = tool_run(system, "watch", *arguments)
    assert (status, out) == (1, "") and "is voice_application running?" in err and err.rstrip("\n").isprintable()


def test_option_given_twice_counts_at_its_last(system):
    system.start_application()
    assert tool_run(system, "watch", "--for", "100000", "--for", "0.1")[0] == 0


def test_shortest_watch_looks_once(system):
    """On a busy machine its time may be over before it begins."""
    status, _, err = tool_run(system, "watch", "--for", "0.000000001")
    assert status == 1 and "is voice_application running?" in err
    system.start_application()
    assert tool_run(system, "watch", "--for", "0.000000001")[0] == 0


def test_help_and_version(system):
    for arguments in (["--help"], ["watch", "--help"]):
        status, out, _ = tool_run(system, *arguments)
        assert status == 0 and out != ""
    for program in ("voicectl", "voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"):
        done = subprocess.run(
            [system.bin / program, "--version"], capture_output=True, text=True, timeout=20, check=True
        )
        assert re.fullmatch(rf"{program} \d+\.\d+\.\d+.*\n", done.stdout)


def test_unknown_function_is_said(system):
    system.start_application()
    status, _, err = tool_run(system, "watch", "--function", "regster_plugin", "event", "--for", "0.1")
    assert (
        status == 0
        and err.splitlines()[0]
        == "voicectl: no function 'regster_plugin' in the voice system; another program may have it"
    )
    assert "'event'" not in err


def test_names_that_never_show_are_said(system):
    system.start_application()
    plugin = system.start_fxs("fxs1")
    watcher = system.start(
        "voicectl", "voicectl", "watch", "--plugin", "fxs9", "fxs_plugin", "--endpoint", "FXS7", "FXS1"
    )
    watcher.err.expect("watching")
    plugin.ask("1 off")
    watcher.err.expect("^voicectl: nothing of a plugin 'fxs9' so far; seen: fxs1, fxs_plugin$")
    watcher.err.expect("^voicectl: nothing of an endpoint 'FXS7' so far; seen: fxs1, fxs_plugin$")
    assert watcher.terminate() == 0
    assert len([line for line in watcher.err.all if "so far" in line]) == 2  # each once
    # A short look says it at its end. It has heard of the process only, not of what it registered before.
    assert (
        "voicectl: nothing of a plugin 'fxs9' so far; seen: fxs_plugin\n"
        in tool_run(system, "watch", "--plugin", "fxs9", "--for", "1")[2]
    )
