# SPDX-License-Identifier: MIT
"""voicectl doctor on installations that have something wrong with them, and on one that has not."""

import contextlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
from pathlib import Path

import pytest

from processes import until
from restless import restless_bus
from tool_run import tool_run
from wire import WAITING, RawPeer, head

DISSECTOR = Path(__file__).resolve().parents[2] / "tool" / "wireshark" / "kexbus.lua"
SHORT = ["--for", "0.5"]


def run(system, *words, **options):
    return tool_run(system, "doctor", *words, **options)


def findings(system, *words, **options):
    """Status, and what each check found, by its name."""
    status, out, err = run(system, "--json", *SHORT, *words, **options)
    assert err == ""
    found = [json.loads(line) for line in out.splitlines()]
    verdicts = {one["verdict"] for one in found}
    assert status == (2 if "fail" in verdicts else 1 if "warn" in verdicts else 0)
    return status, {one["check"]: one for one in found}


def install_dissector(system, text=None):
    folder = system.folder / ".local/lib/wireshark/plugins"
    folder.mkdir(parents=True)
    (folder / "kexbus.lua").write_text(text or DISSECTOR.read_text())


def test_sound_installation(system):
    install_dissector(system)
    control = system.folder / "control"
    system.start_application("--control", control)
    system.start_fxs("fxs1")
    status, out, err = run(system, *SHORT, "--control", control)
    lines = out.splitlines()
    assert (status, err) == (0, "") and len(lines) == 15
    assert all(re.match(r"ok +[a-z]+( [a-z]+)?  +\S", line) for line in lines), out
    assert re.search(r"^ok +tables +1 of 8 plugins, 2 of 32 endpoints$", out, re.MULTILINE)
    status, found = findings(system, "--control", control)
    assert (
        status == 0
        and len(found) == 15
        and all(set(one) == {"check", "verdict", "text", "fix"} for one in found.values())
    )


def test_nobody_there(system):
    install_dissector(system)
    status, out, _ = run(system)
    assert status == 2
    assert f"FAIL  socket          no socket {system.socket}\n" in out
    assert "-> start voice_application, or set ZIL_VOIP_IPC_SOCKET_URI to where it listens\n" in out
    _, found = findings(system)
    assert [name for name, one in found.items() if one["verdict"] == "fail"] == ["socket"]
    unseen = [name for name, one in found.items() if one["verdict"] == "unseen"]
    assert {"admission", "answer", "waits", "tables", "versions"} <= set(unseen)


def test_what_stands_at_the_path(system):
    plain = system.folder / "file"
    plain.write_text("")
    left = system.folder / "left"
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
        listener.bind(str(left))
    with contextlib.closing(socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)) as stream:
        other = system.folder / "stream"
        stream.bind(str(other))
        stream.listen()
        for path, sentence in [
            (plain, f"{plain} is no socket"),
            (left, f"nobody listens on {left}: its listener died"),
            (other, f"{other} is a socket of another kind: another program listens there"),
        ]:
            _, found = findings(system, "--socket", path)
            assert (found["socket"]["verdict"], found["socket"]["text"]) == ("fail", sentence)


@pytest.mark.skipif(os.getuid() != 0, reason="only root may become another user")
def test_no_right_to_connect(system):
    system.start_application()
    system.folder.chmod(0o755)
    nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    if subprocess.run([*nobody, "test", "-x", system.bin / "voicectl"], check=False).returncode != 0:
        pytest.skip("another user may not run the programs of this build")
    _, found = findings(system, before=nobody)
    assert found["socket"]["verdict"] == "fail"
    assert found["socket"]["text"].startswith(
        f"no right to connect to {system.socket} (mode 0660, owner root, group root; its folder mode 0755, "
    )
    assert found["socket"]["fix"].startswith("start voice_application with the uid in KEX_ALLOW_UIDS")
    # A member of the socket's group gets as far as the application, which asks for the same.
    _, found = findings(system, before=["setpriv", "--reuid=65534", "--regid=0", "--clear-groups"])
    assert found["socket"]["verdict"] == "ok"
    assert (found["admission"]["verdict"], found["admission"]["text"]) == ("fail", "refused: its user may not connect")


def test_addresses_that_cannot_be(system):
    for uri, sentence in [
        ("ipc:x\x1b", "'ipc:x\\x1B' is no address"),
        (f"kex://ipc:[/{'x' * 107}]", "the path has 108 bytes"),
    ]:
        system.environment["ZIL_VOIP_IPC_SOCKET_URI"] = uri
        _, found = findings(system)
        assert found["address"]["verdict"] == "fail" and found["address"]["text"].startswith(sentence)
        assert found["variables"]["verdict"] == "fail", "the other one is another path"
    del system.environment["ZIL_VOIP_IPC_SOCKET_URI"]
    assert findings(system)[1]["variables"]["verdict"] == "warn"


def test_application_that_is_stopped(system):
    application = system.start_application()
    application.freeze()
    _, found = findings(system)
    assert found["answer"]["verdict"] == "fail" and found["answer"]["fix"] == f"kill -CONT {application.pid}"
    application.thaw()
    assert findings(system)[1]["answer"]["verdict"] == "ok"


def test_answer_has_its_time_however_short_the_watching_is(system):
    system.start_application()
    status, out, _ = run(system, "--for", "0.000001")
    assert re.search(r"^ok +answer +voice_application ", out, re.MULTILINE) and status < 2, out


@pytest.mark.parametrize("stop", [signal.SIGSTOP, signal.SIGKILL], ids=["stopped", "killed"])
def test_application_that_goes_while_it_is_watched(system, stop):
    application = system.start_application()
    before = application.descriptors()
    doctor = system.start("doctor", "voicectl", "doctor", "--json", "--for", "3")
    until("its tap is there", lambda: application.descriptors() > before)
    os.kill(application.pid, stop)
    assert doctor.wait() == 2
    if stop == signal.SIGSTOP:
        application.thaw()
    found = {one["check"]: one for one in map(json.loads, doctor.out.all)}
    assert found["answer"]["verdict"] == "fail"


def test_wait_that_lasts(system):
    system.start_application()
    with RawPeer.connect(system.socket, name="stuck") as peer:
        doctor = system.start("doctor", "voicectl", "doctor", "--json", "--for", "2")
        # It is told of whenever the doctor has begun to look.
        until("it has looked", lambda: peer.send(head(WAITING, 44)) or not doctor.running)
    assert doctor.wait() == 2
    found = {one["check"]: one for one in map(json.loads, doctor.out.all)}
    assert found["waits"]["verdict"] == "fail" and found["crossed waits"]["verdict"] == "ok"
    assert re.match(r"stuck has waited \d+ s for an answer of voice_application", found["waits"]["text"])


def test_plugin_that_is_stopped(system):
    application = system.start_application()
    plugin = system.start_fxs("fxs1")
    plugin.freeze()
    doctor = system.start("doctor", "voicectl", "doctor", "--json", "--for", "4")
    # It is asked whenever the doctor has begun to look.
    until("it has looked", lambda: application.tell("get 101 tdmc_gain") or not doctor.running)
    assert doctor.wait() == 2
    plugin.thaw()
    found = {one["check"]: one for one in map(json.loads, doctor.out.all)}
    assert re.match(r"voice_application has waited \d+ s for 'get' of fxs1(;|$)", found["waits"]["text"])
    assert found["waits"]["fix"] == f"fxs1 is stopped: kill -CONT {plugin.pid}"
    assert found["crossed waits"]["verdict"] == "ok"


def test_tap_that_is_not_admitted(system):
    system.start_application()
    for _ in range(8):
        system.start_watcher()
    _, found = findings(system)
    assert found["admission"]["verdict"] == "fail" and found["admission"]["text"].startswith("refused: ")


def test_bus_that_never_rests_does_not_hold_it_up(system):
    with restless_bus(system.socket):
        _, found = findings(system)
    assert found["answer"]["text"] == "voice_application (process 100) answers"


def test_control_sockets_that_do_not_answer(system):
    system.start_application()
    _, found = findings(system)
    assert found["tables"]["verdict"] == "unseen" and found["tables"]["fix"].endswith("--control PATH")
    _, found = findings(system, "--control", system.folder / "none")
    assert found["tables"]["verdict"] == "warn"
    assert found["tables"]["text"] == f"no control socket '{system.folder}/none': No such file or directory"
    with contextlib.closing(socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)) as silent:
        silent.bind(str(system.folder / "silent"))
        silent.listen()
        _, found = findings(system, "--control", system.folder / "silent")
    assert found["tables"]["text"] == 'the control socket gave no answer to "status"'


def test_control_socket_that_never_ends_its_answer(system):
    """Each of its bytes comes in time."""

    def bytes_send():
        with contextlib.suppress(BrokenPipeError, ConnectionResetError), server.accept()[0] as client:
            while True:
                client.send(b"x")
                time.sleep(0.1)

    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(str(system.folder / "slow"))
        server.listen()
        sender = threading.Thread(target=bytes_send)
        sender.start()
        system.start_application()
        _, found = findings(system, "--control", system.folder / "slow")
        sender.join()
    assert found["tables"]["text"] == 'the control socket gave no answer to "status"'


def test_what_the_application_was_started_with(system):
    environment = {"ZIL_TRACE_LEVEL": "50"}
    application = system.start_application(environment=environment)
    subprocess.run(["prlimit", f"--pid={application.pid}", "--nofile=200:200"], check=True)
    _, found = findings(system)
    assert found["trace"]["text"] == f"ZIL_TRACE_LEVEL=50 of voice_application (process {application.pid}) hides errors"
    assert found["descriptors"]["text"] == f"process {application.pid} may have 200 descriptors open"
    assert {found["trace"]["verdict"], found["descriptors"]["verdict"]} == {"warn"}
    assert found["versions"]["verdict"] in ("ok", "unseen"), "libraries of an emulated program are not to be seen"


@pytest.mark.skipif(not shutil.which("tshark"), reason="Wireshark is not installed")
def test_dissector_of_another_vocabulary(system):
    install_dissector(system, "-- Vocabulary 0x00000001\n")
    _, found = findings(system)
    assert found["wireshark"]["verdict"] == "warn" and "has another vocabulary" in found["wireshark"]["text"]
    assert found["wireshark"]["fix"].endswith(f"{system.folder}/.local/lib/wireshark/plugins")


def test_output_that_cannot_be_written(system):
    with open("/dev/full", "w", encoding="ascii") as full:
        status, _, err = run(system, output=full)
    assert status == 1 and "the output cannot be written" in err


def test_wrong_command_lines(system):
    for words in (["--control"], ["--for", "0"], ["--no-such"], ["more"]):
        status, out, err = run(system, *words)
        assert (status, out) == (2, "") and err.endswith("Try voicectl doctor --help.\n"), words
