# SPDX-License-Identifier: MIT
"""Files of RTP packets that plugins write (--media-file), and voicectl capture --media-from, which follows them."""

import resource
import shutil
import struct
import subprocess

import pytest

import media
from capture_test import packets, run, start_capture, totals_of, tshark
from dialling import hang_up, talk
from processes import until

needs_tshark = pytest.mark.skipif(not shutil.which("tshark"), reason="tshark is not installed")
FIELDS = [
    "frame.comment",
    "rtp.ssrc",
    "rtp.p_type",
    "rtp.seq",
    "ip.src",
    "ip.dst",
    "frame.packet_flags_direction",
    "rtcp.pt",
]
BYE = "203"
LATER = (1 << 62) + 7  # nanoseconds, long after any test
RECEIVED, SENT = "0x00000001", "0x00000002"


def rows(system, path, wanted="rtp", names=FIELDS):
    words = [word for name in names for word in ("-e", name)]
    return [row.split("\t") for row in tshark(system, path, "-Y", wanted, "-T", "fields", *words)]


def in_turn(found):
    """Sequence numbers of each stream by its source: each once, none missing."""
    streams = {}
    for row in found:
        streams.setdefault(row[1], []).append(int(row[3]))
    for numbers in streams.values():
        assert {(after - before) & 0xFFFF for before, after in zip(numbers, numbers[1:])} == {1}
    return {source: len(numbers) for source, numbers in streams.items()}


def start_pair(system):
    files = [system.folder / "fxs1.media", system.folder / "fxs2.media"]
    plugins = [system.start_fxs(f"fxs{at + 1}", "--media-file", file) for at, file in enumerate(files)]
    return files, plugins


def end_call(first, second):
    """Ends their call. Packets sent and received, as each plugin counts them."""
    marks = [(plugin, plugin.out.mark()) for plugin in (first, second)]
    hang_up(first, second)
    ends = [plugin.out.expect_from(mark, r"1 media ended line=0 tx=(\d+) rx=(\d+) ")[1] for plugin, mark in marks]
    return [(int(end[1]), int(end[2])) for end in ends]


@needs_tshark
def test_file_of_a_plugin_holds_what_it_sent_and_received(system):
    media.start_application(system)
    files, (first, second) = start_pair(system)
    talk(first, "201", second)
    first.expect("1 hears [0-9]+Hz")
    numbers = end_call(first, second)
    assert first.terminate() == 0 and second.terminate() == 0
    for at, (path, (sent, received)) in enumerate(zip(files, numbers)):
        assert path.stat().st_mode & 0o777 == 0o600
        everything = rows(system, path, "rtp || rtcp")
        assert any(BYE in row[7] for row in everything)
        found = [row for row in everything if row[1] and row[2]]
        assert {row[0] for row in found} == {f"1.fxs{at + 1}"} and {row[2] for row in found} == {str(media.PCMA)}
        assert [sum(row[6] == way for row in found) for way in (SENT, RECEIVED)] == [sent, received]
        assert len(in_turn(found)) == 2 and {row[4] for row in found} == {system.address}
    subprocess.run(["editcap", files[0], system.folder / "copy"], check=True, capture_output=True)


@needs_tshark
def test_capture_follows_the_files_of_two_plugins(system):
    media.start_application(system)
    names = [system.folder / f"fxs{at}.media" for at in (1, 2)]
    capture, path = start_capture(system, "--media-from", *names)
    said = capture.err.all
    assert all(f"voicectl: '{name}' is not there yet: its packets are kept once it is" in said for name in names)
    _, (first, second) = start_pair(system)
    talk(first, "201", second)

    def kept():
        return sum(b"rtp\0" in body for body in packets(path, writing=True))

    until("sound in the file while they talk", lambda: kept() > 30)
    received = [count for _, count in end_call(first, second)]
    until("all of it", lambda: kept() == sum(received))
    assert capture.terminate() == 0
    everything = rows(system, path, "rtp || rtcp || kexbus")
    found = [row for row in everything if row[2]]
    assert len(everything) > len(found) + 30, "beside the messages"
    assert [sum(row[0] == f"1.fxs{at}" for row in found) for at in (1, 2)] == received
    assert sorted(in_turn(found).values()) == sorted(received)
    for at, name in enumerate(names):
        count = sum(row[0] == f"1.fxs{at + 1}" for row in everything)
        capture.err.expect(f"^voicectl: {count} packets of sound from '{name}', 0 lost$")


def test_files_that_are_none(system):
    system.start_application()
    text = system.folder / "text"
    text.write_text("\x1b[2Jno capture")
    nothing = system.folder / "nothing"
    path = system.folder / "a.pcapng"
    status, err = run(system, "-o", path, "--for", "0.5", "--media-from", text, nothing, system.folder)
    assert status == 0 and "\x1b" not in err
    assert f"voicectl: '{text}' is no pcapng: it is read no further\n" in err
    assert f"voicectl: '{system.folder}' is no file: it is read no further\n" in err
    assert f"voicectl: '{nothing}' is not there yet: " in err and f"voicectl: '{nothing}' was never there\n" in err
    assert totals_of(path) == [(0, 0)] * 4
    status, err = run(system, "--media-from", "")
    assert status == 2 and "--media-from wants a file, not an empty name" in err
    status, err = run(system, "--media-from", *map(str, range(17)))
    assert status == 2 and "--media-from takes 16 files at most" in err


def block(order, kind, body):
    return struct.pack(order + "II", kind, len(body) + 12) + body + struct.pack(order + "I", len(body) + 12)


def file_head(order):
    head = block(order, 0x0A0D0D0A, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1))
    head += block(order, 1, struct.pack(order + "HHI", 252, 0, 0) + struct.pack(order + "HHB3xI", 9, 1, 9, 0))
    return head


def file_packet(order, time, options):
    tags = b"\0\x0c\0\4rtp\0" + b"\0\x18\0\4\0\0\0\3"
    for tag, value in ((20, "7f000001"), (21, "7f000002"), (25, "00007530"), (26, "00007532")):
        tags += bytes([0, tag, 0, 4]) + bytes.fromhex(value)
    bytes_ = tags + bytes(4) + b"\x80\x08" + bytes(14)
    packet = struct.pack(order + "IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(bytes_), len(bytes_)) + bytes_
    return block(order, 6, packet + options)


def hostile_file(order):
    """A capture of either byte order whose one packet has a comment that would steer a terminal."""
    comment = b"\x1b[31m\xff\xe2\x80\xae</script>"
    comment += bytes(-len(comment) % 4)
    options = struct.pack(order + "HH", 1, len(comment)) + comment + struct.pack(order + "HHQ", 4, 8, 7)
    return file_head(order) + file_packet(order, LATER, options)


def test_long_file_is_caught_up_with(system):
    system.start_application()
    name, path = system.folder / "long", system.folder / "a.pcapng"
    name.write_bytes(file_head("=") + 30_000 * file_packet("=", 1, b"") + file_packet("=", LATER, b""))
    status, err = run(system, "-o", path, "--for", "0.5", "--media-from", name)
    assert status == 0 and f"voicectl: 1 packets of sound from '{name}', 0 lost\n" in err


def test_capture_does_not_follow_itself(system):
    system.start_application()
    path = system.folder / "a.pcapng"
    status, err = run(system, "--force", "-o", path, "--for", "0.5", "--media-from", path)
    assert status == 0 and f"voicectl: '{path}' is the capture itself: it is read no further\n" in err
    assert path.stat().st_size < 10_000


@needs_tshark
def test_file_of_either_byte_order_steers_nothing(system):
    system.start_application()
    for order in "<>":
        name = system.folder / f"order{ord(order)}"
        name.write_bytes(hostile_file(order))
        path = system.folder / f"{ord(order)}.pcapng"
        assert run(system, "-o", path, "--for", "0.5", "--media-from", name)[0] == 0
        [row] = rows(system, path, names=[*FIELDS, "frame.drop_count"])
        assert row[0].startswith("\\x1B[31m\\xFF\\xE2\\x80\\xAE</script>") and row[-1] == "7"
        assert (7, 1) not in totals_of(path) and (8, 7) in totals_of(path)


def test_line_goes_on_when_its_file_cannot(system):
    media.start_application(system)
    files, (first, second) = start_pair(system)
    resource.prlimit(first.pid, resource.RLIMIT_FSIZE, (5000, 5000))  # the disk has no more room for it
    talk(first, "201", second)
    first.expect("^media file ends: File too large$")
    assert min(end_call(first, second)[0]) > 0
    assert len(packets(files[0])) > 5, "what is there is whole"
    assert len(packets(files[1])) > len(packets(files[0]))


def test_names_that_are_no_place_for_it(system):
    system.start_application()
    mine = system.folder / "mine"
    mine.write_text("mine")
    for path, reason in [
        (mine, "is there already and is no media file"),
        (system.folder, "is a folder"),
        ("/dev/null", "is a device, not a file"),
        (system.folder / "none" / "x", "No such file or directory"),
    ]:
        plugin = system.start_fxs("fxs1", "--media-file", path, ready=False)
        assert plugin.wait() == 2
        plugin.err.expect(f"--media-file {path}: {reason}$")
    assert mine.read_text() == "mine"
    files, (first, _) = start_pair(system)
    other = system.start_fxs("fxs3", "--media-file", files[0], ready=False)
    assert other.wait() == 2
    other.err.expect("is being written to$")
    assert first.running
