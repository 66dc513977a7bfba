# SPDX-License-Identifier: MIT
"""voicectl capture beside a running system: what it keeps, and what independent programs read in it."""

import collections
import contextlib
import os
import pty
import re
import shutil
import signal
import socket
import subprocess
from pathlib import Path

import pytest

import media
from dialling import hang_up, start_telephones, talk
from processes import until
from target import struct
from tool_run import tool_run
from wire import APPLICATION, HELLO, RawPeer, head, text

DISSECTOR = Path(__file__).resolve().parents[2] / "tool" / "wireshark" / "kexbus.lua"
PACKET, STATISTICS = 6, 5
RECEIVED, LOST = 4, 5  # options of the statistics

needs_tshark = pytest.mark.skipif(not shutil.which("tshark"), reason="tshark is not installed")


def run(system, *words, output=subprocess.DEVNULL, **options):
    """Status and errors."""
    status, _, err = tool_run(system, "capture", *words, output=output, **options)
    return status, err


def start_capture(system, *words):
    """A capture into a file, which sees everything from here on."""
    path = system.folder / "calls.pcapng"
    process = system.start("capture", "voicectl", "capture", "-o", path, *words)
    process.err.expect("^voicectl: capturing kex://ipc:")
    return process, path


def blocks(path, writing=False):
    """The type and body of each block. One that is not whole is a failure, unless the file is being written."""
    raw = path.read_bytes()
    found = []
    while raw:
        if writing and (len(raw) < 12 or len(raw) < struct.unpack("=I", raw[4:8])[0]):
            break
        kind, size = struct.unpack("=II", raw[:8])
        assert size % 4 == 0 and 12 <= size <= len(raw) and struct.unpack("=I", raw[size - 4 : size])[0] == size
        found.append((kind, raw[8 : size - 4]))
        raw = raw[size:]
    return found


def packets(path, writing=False):
    return [body for kind, body in blocks(path, writing) if kind == PACKET]


def totals_of(path):
    """Received and lost of each interface, of the statistics at the end."""
    found = []
    for body in [body for kind, body in blocks(path) if kind == STATISTICS]:
        assert struct.unpack("=HH", body[12:16]) == (RECEIVED, 8) and struct.unpack("=HH", body[24:28]) == (LOST, 8)
        found.append((struct.unpack("=Q", body[16:24])[0], struct.unpack("=Q", body[28:36])[0]))
    return found


def totals(path):
    """The same of the only one."""
    [both] = totals_of(path)
    return both


def lost_before(body):
    """The word of a packet's record that says how many copies are missing before it."""
    record = body.index(bytes(4) + b"v\x01") + 4
    return int.from_bytes(body[record + 24 : record + 28], "big")


def tshark(system, path, *words):
    done = subprocess.run(
        ["tshark", "-X", f"lua_script:{DISSECTOR}", "-n", "-r", path, *words],
        env=system.environment,
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )
    assert done.returncode == 0 and "lua" not in done.stdout.lower(), done.stderr
    return done.stdout.splitlines()


def fields(system, path, *names):
    rows = tshark(system, path, "-T", "fields", *(word for name in names for word in ("-e", name)))
    return [row.split("\t") for row in rows]


@needs_tshark
def test_call_in_tshark_is_the_call_that_passed(system):
    system.start_application()
    capture, path = start_capture(system)
    watcher = system.start_watcher()
    first, second = start_telephones(system)
    talk(first, "201", second)
    watcher.expect_message(kind="one_way_call", function="create", plugin="fxs2")
    hang_up(first, second)
    watcher.expect_message(kind="one_way_call", function="event", plugin="fxs2", name="LIBVOICE_EVENT_al_on")
    assert capture.terminate() == 0 and watcher.terminate() == 0
    rows = fields(system, path, "kex.kind", "kex.serial", "kex.function", "voice.endpoint", "kex.rtt", "kex.lost")
    kinds = ["", "connected", "closed", "call", "one_way_call", "reply"]
    seen = [(kinds[int(row[0])], row[1], row[2]) for row in rows]
    shown = [(one["kind"], str(one.get("serial", "")), one.get("function", "")) for one in watcher.messages()]
    assert seen[: len(shown)] == shown and len(shown) > 30
    assert all(row[4] for row in rows if row[0] == "5"), "each answer has its call"
    assert not any(row[5] for row in rows)
    assert tshark(system, path, "-Y", "kex.malformed || voice.malformed || kex.answer_error") == []
    assert totals(path) == (len(rows), 0)
    capture.err.expect(f"^voicectl: {len(rows)} messages captured, 0 copies lost$")


@needs_tshark
@pytest.mark.parametrize("reading", ["-r -", "-i -"], ids=["read", "live"])
def test_pipe_into_tshark(system, reading):
    system.start_application()
    words = f"'{system.bin}/voicectl' capture -o - --count 3 | tshark -X lua_script:'{DISSECTOR}' -n -l {reading}"
    shell = subprocess.Popen(
        ["sh", "-c", words], env=system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    with contextlib.closing(shell.stdout), contextlib.closing(shell.stderr):
        for line in shell.stderr:
            if "capturing kex://" in line:
                break
        system.start_fxs("fxs1")
        out = shell.stdout.read()
        assert shell.wait(20) == 0
    assert [re.search(r"KEX \d+ (.*)", line)[1].split("  ")[1] for line in out.splitlines()] == [
        "connected",
        "call",
        "one-way call",
    ]


def test_killed_at_any_moment_the_file_has_whole_records(system):
    system.start_application()
    capture, path = start_capture(system)
    with RawPeer.connect(system.socket) as peer:
        until("records in the file", lambda: peer.call(APPLICATION, "nothing", []) and path.stat().st_size > 20_000)
        capture.kill()
    assert len(packets(path)) > 50 and all(kind != STATISTICS for kind, _ in blocks(path))


def test_targets_that_cannot_be(system):
    system.start_application()
    there = system.folder / "there"
    there.write_text("mine")
    for target, reason in [
        (there, f"'{there}' is there already: --force replaces it"),
        (system.folder, f"'{system.folder}' cannot be written: Is a directory"),
        (system.folder / "none" / "a", f"'{system.folder}/none/a' cannot be written: No such file or directory"),
    ]:
        assert run(system, "-o", target) == (1, f"voicectl: {reason}\n")
    assert there.read_text() == "mine"
    status, err = run(system, "-o", "/dev/full")
    assert status == 1 and "voicectl: the capture cannot be written: No space left on device\n" in err
    assert run(system, "-f", "-o", there, "--for", "0.1")[0] == 0
    assert totals(there) == (0, 0)


def test_closed_streams_are_nobody_elses(system):
    system.start_application()
    for place, closed in enumerate([">&- 2>&-", "2>&-", "<&- 2>&-", "<&- >&- 2>&-"]):
        path = system.folder / f"{place}.pcapng"
        shell = f"exec '{system.bin}/voicectl' capture -o '{path}' --for 0.3 {closed}"
        assert subprocess.run(["sh", "-c", shell], env=system.environment, timeout=20, check=False).returncode == 0
        assert totals(path) == (0, 0), "no message of the program stands in it, and the tap stayed admitted"
    shell = f"exec '{system.bin}/voicectl' capture -o - --for 0.3 >&-"
    done = subprocess.run(["sh", "-c", shell], env=system.environment, stderr=subprocess.PIPE, timeout=20, check=False)
    assert done.returncode == 1 and b"the capture cannot be written: Bad file descriptor" in done.stderr


def test_terminal_is_no_target(system):
    system.start_application()
    ours, theirs = pty.openpty()
    try:
        assert run(system, output=theirs) == (2, "voicectl: standard output is a terminal: -o FILE keeps the capture\n")
    finally:
        os.close(ours)
        os.close(theirs)


def test_without_an_application_no_file_is_touched(system):
    path = system.folder / "a"
    status, err = run(system, "-o", path)
    assert status == 1 and "is voice_application running?" in err and not path.exists()
    path.write_text("mine")
    assert run(system, "-o", path, "--force")[0] == 1 and path.read_text() == "mine"


def test_lost_copies_are_counted_where_they_are_missing(system):
    system.start_application()
    capture, path = start_capture(system)
    capture.freeze()
    with RawPeer.connect(system.socket) as peer:
        for _ in range(20_000):  # far more than a socket holds
            peer.call(APPLICATION, "nothing", [])
        capture.thaw()
        # With the next message it learns how much it has missed.
        until(
            "it says how many",
            lambda: peer.call(APPLICATION, "nothing", []) and any(map(lost_before, packets(path, writing=True))),
        )
    assert capture.terminate() == 0
    lost = sum(map(lost_before, packets(path)))
    received, dropped = totals(path)
    assert lost == dropped > 0 and received == len(packets(path)) + dropped
    capture.err.expect(f"^voicectl: {len(packets(path))} messages captured, {dropped} copies lost$")
    if shutil.which("tshark"):
        counts = [int(row[0]) for row in fields(system, path, "frame.drop_count") if row[0]]
        assert sum(counts) == dropped


def test_reader_that_leaves_ends_it(system):
    system.start_application()
    process = subprocess.Popen(
        [system.bin / "voicectl", "capture"], env=system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    assert process.stdout.read(4)
    process.stdout.close()
    assert process.wait(20) == 1
    process.stderr.close()


def test_reader_that_takes_nothing_is_left_alone_at_the_end(system):
    system.start_application()
    process = subprocess.Popen(
        [system.bin / "voicectl", "capture"], env=system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    with contextlib.closing(process.stdout), contextlib.closing(process.stderr):
        assert b"capturing" in process.stderr.readline()
        with RawPeer.connect(system.socket) as peer:
            for _ in range(3_000):  # far more than a pipe holds
                peer.call(APPLICATION, "nothing", [])
        process.send_signal(signal.SIGTERM)
        assert process.wait(20) == 1
        assert b"voicectl: nobody reads the output: its end is missing" in process.stderr.read()


def test_reconnect_keeps_one_file(system):
    path = system.folder / "calls.pcapng"
    capture = system.start("capture", "voicectl", "capture", "--reconnect", "-o", path)
    for count in (3, 6):
        application = system.start_application()
        capture.err.expect("^voicectl: capturing kex://ipc:")
        with RawPeer.connect(system.socket) as peer:
            peer.register("fxs1")
        until("the capture has it", lambda: len(packets(path, writing=True)) >= count)
        application.kill()
        capture.err.expect("^voicectl: the voice application is gone$")
    assert capture.terminate() == 0
    assert totals(path) == (len(packets(path)), 0)


def test_names_of_peers_cannot_steer_the_terminal(system):
    system.start_application()
    capture, path = start_capture(system)
    name = b"\x1b[2J\xe2\x80\xae\xff</script>"
    with RawPeer.connect(system.socket, hello=False) as peer:
        peer.send(head(HELLO) + text(name))
        peer.call(APPLICATION, name.decode(errors="replace"), [(name, "x")])
    until("the capture has it", lambda: len(packets(path, writing=True)) >= 3)
    assert capture.terminate() == 0
    assert any(name in body for body in packets(path)), "as it came"
    if shutil.which("tshark"):
        assert not re.search("[\x1b\u202e]", "\n".join(tshark(system, path, "-V")))


def test_tap_that_is_not_admitted(system):
    system.start_application()
    for _ in range(8):
        system.start_watcher()
    older = system.folder / "a"
    older.write_text("mine")
    for path in (system.folder / "b", older):
        status, err = run(system, "--force", "-o", path)
        assert status == 1 and "voicectl: the voice application does not admit this tap: " in err
        assert "is gone" not in err
    assert older.read_text() == "mine" and not (system.folder / "b").exists()


def test_application_that_does_not_answer_leaves_an_older_file_alone(system):
    application = system.start_application()
    older = system.folder / "a"
    older.write_text("mine")
    application.freeze()
    status, err = run(system, "--force", "-o", older, "--for", "0.2")
    application.thaw()
    assert (status, err) == (1, "voicectl: the voice application does not answer: see voicectl doctor\n")
    assert older.read_text() == "mine"


def test_what_passed_before_the_end_is_kept(system):
    application = system.start_application()
    capture, path = start_capture(system)
    capture.freeze()
    with RawPeer.connect(system.socket) as peer:
        for _ in range(300):
            peer.call(APPLICATION, "nothing", [])
        application.ask("status")  # the turn in which the last of them was answered and copied is over
        capture.child.terminate()
        capture.thaw()
        assert capture.wait() == 0
    assert len(packets(path)) == 601, "that it connects, and each call with its answer"


def may_see_packets():
    try:
        socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, 0).close()
    except PermissionError:
        return False
    return True


@needs_tshark
@pytest.mark.skipif(not may_see_packets(), reason="no right to see packets (CAP_NET_RAW)")
def test_sound_stands_beside_the_messages(system):
    media.start_application(system)
    capture, path = start_capture(system, "--media", "--ports", f"{media.FIRST_PORT}-{media.LAST_PORT}")
    first, second = start_telephones(system)
    talk(first, "201", second)
    address = socket.inet_aton(system.address)  # others on this machine may use the same ports

    def kept(dissector):
        return sum(dissector in body and address in body for body in packets(path, writing=True))

    def kept_each_way():
        source = b"\x00\x19\x00\x04"  # the tag of a port that something came from
        sound = [body for body in packets(path, writing=True) if b"rtp\0" in body and address in body]
        ways = collections.Counter(body.partition(source)[2][:4] for body in sound)
        return min(ways.values()) if len(ways) == 2 else 0

    until("sound both ways in the file", lambda: kept_each_way() > 15)
    hang_up(first, second)
    until("its end", lambda: kept(b"rtcp") > 0)
    assert capture.terminate() == 0
    assert capture.err.expect(r"^voicectl: (\d+) packets of sound captured, 0 lost$")
    ours = f"rtp && ip.addr == {system.address}"  # other systems may have calls at the same time
    rows = [row.split("\t") for row in tshark(system, path, "-Y", ours, "-T", "fields", *RTP_FIELDS)]
    streams = {}
    for ssrc, kind, sequence in rows:
        streams.setdefault((ssrc, kind), []).append(int(sequence))
    assert len(streams) == 2 and {kind for _, kind in streams} == {str(media.PCMA)}
    for numbers in streams.values():
        steps = [(after - before) & 0xFFFF for before, after in zip(numbers, numbers[1:])]
        assert len(numbers) > 15 and set(steps) == {1}, "each packet once, none missing"
    assert tshark(system, path, "-Y", f"rtcp && ip.addr == {system.address}")
    assert len(fields(system, path, "kex.function")) > len(rows) + 30


RTP_FIELDS = ["-e", "rtp.ssrc", "-e", "rtp.p_type", "-e", "rtp.seq"]


def test_without_the_right_to_see_packets_it_is_said(system):
    system.start_application()
    path = system.folder / "a"
    words = ["setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw"] if os.getuid() == 0 else []
    status, err = run(system, "--media", "-o", path, "--for", "0.2", before=words)
    assert status == 0
    assert "voicectl: no right to see packets (CAP_NET_RAW): the capture has no sound\n" in err
    assert "packets of sound" not in err and totals(path) == (0, 0)


def test_ports_that_cannot_be(system):
    for ports in ["", "30000", "30000-", "-1", "0-9", "9-8", "1-65536", "a-b", "1-2-3", "\x1b"]:
        status, err = run(system, "--ports", ports)
        assert status == 2 and err.startswith("voicectl: --ports is FIRST-LAST, as in 30000-30199, not '"), ports
        assert "\x1b" not in err
    status, err = run(system, "--ports", "30000-30199", "--media-from", "x")
    assert (status, err) == (2, "voicectl: --ports wants --media. Try voicectl capture --help.\n")
