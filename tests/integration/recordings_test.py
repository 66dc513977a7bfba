# SPDX-License-Identifier: MIT
"""Lines that are recorded, that say files, whose sound is handed to a player, and that are waited for."""

import math
import os
import re
import resource
import shutil
import socket
import statistics
import subprocess
import time
import wave

import pytest

import recordings
from dialling import answer, hang_up, lift, start_telephones, talk
from media import open_files
from processes import until

CLICK = 20000
CLICKS = 10
CLICK_EVERY = 1600  # samples: 200 ms
MOST_DELAY_MS = 80


def refused(plugin, command):
    """Why a command is not carried out."""
    mark = plugin.out.mark()
    plugin.tell(command)
    return plugin.out.expect_from(mark, r"^(?:ok|error: (.*))$")[1].group(1)


def tone(frequency, seconds):
    return [round(8000 * math.sin(2 * math.pi * frequency * i / 8000)) for i in range(round(8000 * seconds))]


def positions(samples, least=CLICK // 2):
    """Where clicks begin: the first loud sample after at least 50 ms."""
    found = []
    for at, sample in enumerate(samples):
        if abs(sample) >= least and (not found or at > found[-1] + 400):
            found.append(at)
    return found


def start_call(system, first, second):
    """Both lines of a call are recorded from the same moment on; two plugins have a clock each."""
    files = [system.folder / "first.wav", system.folder / "second.wav"]
    for plugin, file in zip((first, second), files):
        plugin.ask(f"1 record {file}")
    lift(first)
    first.expect("^1 hears dial-tone$")
    first.ask("1 dial 201")
    answer(second)
    return files


def test_both_lines_of_a_call_are_recorded_with_their_labels(system):
    application = system.start_application()
    first, second = start_telephones(system)
    files = start_call(system, first, second)
    assert application.running
    first.expect("^1 hears 2200Hz")
    second.expect("^1 hears 1000Hz")
    hang_up(first, second)
    for plugin, file in zip((first, second), files):
        plugin.out.expect_from(0, "^1 media ended")
        plugin.ask("1 record off")
        ended = re.escape(str(file))
        seconds = float(plugin.expect(rf"^1 recording ends: {ended} ([\d.]+) s$").group(1))
        heard, said = recordings.read(file)
        assert len(heard) / 8000 == pytest.approx(seconds, abs=0.011)
        assert max(heard) > 3000 and max(said) > 3000
        texts = [text for _, _, text in recordings.labels(file.with_suffix(".labels.txt"))]
        assert {"off hook", "on hook", "talking", "media ended"} <= set(texts), texts
        for begin, end, text in recordings.labels(file.with_suffix(".labels.txt")):
            assert 0 <= begin <= end <= seconds + 0.5, text  # what happens is ahead of the sound on a busy machine
    texts = [text for _, _, text in recordings.labels(files[0].with_suffix(".labels.txt"))]
    assert {"dials 201", "hears dial-tone", "hears 2200Hz"} <= set(texts)
    texts = [text for _, _, text in recordings.labels(files[1].with_suffix(".labels.txt"))]
    assert {"rings cadence=1000/4000", "stops ringing", "hears 1000Hz"} <= set(texts)


def test_what_one_line_says_is_heard_on_the_other_within_80_ms(system):
    """Both lines are in one process, so that their recordings have the same clock and the same begin."""
    system.start_application()
    plugin = system.start_fxs("fxs1")
    said, heard = system.folder / "said.wav", system.folder / "heard.wav"
    clicks = [0] * (CLICK_EVERY * (CLICKS + 1))
    for click in range(CLICKS):
        clicks[(click + 1) * CLICK_EVERY] = CLICK
    recordings.write(system.folder / "clicks.wav", clicks)
    lift(plugin)
    plugin.ask("1 dial 102")
    plugin.expect("^2 rings")
    plugin.ask("2 off")
    plugin.expect("^1 hears 1040Hz")
    # One line of two commands: nothing comes in between. The second telephone is silent.
    recordings.write(system.folder / "silence.wav", [0] * 80000)
    plugin.ask(f"2 say {system.folder}/silence.wav")
    plugin.ask(f"1 record {said}\n2 record {heard}")
    plugin.ask(f"1 say {system.folder}/clicks.wav")
    plugin.expect("^1 has said ")
    size = heard.stat().st_size
    until("half a second more", lambda: heard.stat().st_size >= size + 16000)
    plugin.ask("1 record off\n2 record off")
    plugin.expect("^2 recording ends")
    labels = recordings.labels(said.with_suffix(".labels.txt"))
    assert {"off hook", "talking"} <= {text for begin, _, text in labels if begin == 0}, "as it was at its begin"
    sent = positions(recordings.read(said)[1])
    assert len(sent) == CLICKS
    came = positions(recordings.read(heard)[0])
    # Of each click that came (a machine without time may lose one): how much later.
    delays = [min((at - click for at in came if at > click), default=8000) / 8 for click in sent]
    print("delays in ms:", delays)
    assert 0 < statistics.median(delays) <= MOST_DELAY_MS, delays


def test_recording_begins_with_what_is_heard_already(system):
    system.start_application()
    plugin = system.start_fxs("fxs1")
    lift(plugin)
    plugin.expect("^1 hears dial-tone$")
    file = system.folder / "later.wav"
    plugin.ask(f"1 record {file}")
    plugin.ask("1 on")
    plugin.ask("1 record off")
    labels = recordings.labels(file.with_suffix(".labels.txt"))
    assert [text for begin, _, text in labels if begin == 0] == ["off hook", "hears dial-tone"]


@pytest.mark.parametrize("moments", [0.1, 1.3])
def test_recording_of_a_killed_process_is_valid(system, moments):
    system.start_application()
    plugin = system.start_fxs("fxs1")
    file = system.folder / "killed.wav"
    plugin.ask(f"1 record {file}")
    lift(plugin)
    begin = time.monotonic()
    until("sound is there", lambda: time.monotonic() > begin + moments and file.stat().st_size > 44)
    lasted = time.monotonic() - begin
    plugin.kill()
    heard, _ = recordings.read(file)
    assert len(heard) / 8000 > lasted - 1.0  # the machine may have had no time for the process
    begin, end, text = recordings.labels(file.with_suffix(".labels.txt"))[0]
    assert text == "off hook" and end >= begin


def test_recordings_are_accepted_by_sox(system):
    if not shutil.which("sox"):
        pytest.skip("sox is not installed")
    system.start_application()
    plugin = system.start_fxs("fxs1")
    for ends in ("1 record off", None):
        file = system.folder / f"{ends is None}.wav"
        plugin.ask(f"1 record {file}")
        until("sound is there", lambda file=file: file.stat().st_size > 6000)
        if ends:
            plugin.ask(ends)
        else:
            plugin.kill()
        for words in (["soxi", file], ["sox", file, "-n", "stat"]):
            done = subprocess.run(words, capture_output=True, text=True)
            assert done.returncode == 0, done.stderr
            assert "WARN" not in done.stderr, done.stderr
        info = subprocess.run(["soxi", file], capture_output=True, text=True).stdout
        for row in ("Channels       : 2", "Sample Rate    : 8000", "Precision      : 16-bit"):
            assert row in info
        with wave.open(str(file)) as opened:
            assert int(re.search(r"= (\d+) samples", info)[1]) == opened.getnframes()


def test_a_full_disk_ends_the_recording_and_not_the_call(system):
    system.start_application()
    first, second = start_telephones(system)
    file, _ = start_call(system, first, second)
    resource.prlimit(first.pid, resource.RLIMIT_FSIZE, (20000, 20000))  # the disk has no more room for it
    first.expect(r"^1 recording ends: .*first\.wav [\d.]+ s: File too large$")
    heard, _ = recordings.read(file)
    assert len(heard) > 0
    first.ask("1 expect 2200Hz 10s")
    second.ask("1 expect 1000Hz 10s")
    hang_up(first, second)
    first.expect("^1 media ended line=0 tx=[1-9]")


def bad_files(folder):
    """What cannot be said, with the reason."""
    sound = tone(620, 0.5)
    stereo = recordings.write(folder / "stereo.wav", sound, channels=2)
    fast = recordings.write(folder / "fast.wav", sound, rate=44100)
    narrow = recordings.write(folder / "narrow.wav", [128] * 800, width=1)
    cut = recordings.write(folder / "cut.wav", sound)
    os.truncate(cut, 2044)
    (folder / "empty.wav").touch()
    (folder / "letter.wav").write_text("This is a letter, and it is longer than a head.")
    (folder / "sparse.wav").touch()
    os.truncate(folder / "sparse.wav", 3 << 30)
    os.mkfifo(folder / "pipe.wav")
    wanted = ": wanted is PCM 16 bit, 1 channel, 8000 Hz (or A-law, u-law)"
    return {
        stereo: "is PCM 16 bit, 2 channels, 8000 Hz" + wanted,
        fast: "is PCM 16 bit, 1 channel, 44100 Hz" + wanted,
        narrow: "is PCM 8 bit, 1 channel, 8000 Hz" + wanted,
        cut: "is cut: 2000 of 8000 bytes of sound are there",
        folder / "empty.wav": "is empty",
        folder / "letter.wav": "is no WAV file (RIFF/WAVE)",
        folder / "sparse.wav": "is no WAV file (RIFF/WAVE)",
        folder / "pipe.wav": "is a pipe or a socket, not a file",
        folder: "is a folder",
        "/dev/zero": "is a device, not a file",
        folder / "missing.wav": "No such file or directory",
    }


def test_files_that_cannot_be_said_are_named_and_the_call_goes_on(system):
    system.start_application()
    first, second = start_telephones(system)
    talk(first, "201", second)
    second.expect("^1 hears 1000Hz")
    before = open_files(first)
    for file, reason in bad_files(system.folder).items():
        assert refused(first, f"1 say {file}") == f"{file}: {reason}"
    for file in ("/dev/full", system.folder, "/proc/version"):
        assert refused(first, f"1 record {file}") is not None
    assert sorted(open_files(first)) == sorted(before)
    good = recordings.write(system.folder / "good.wav", tone(620, 1.0))
    first.ask(f"1 say {good}")
    good.unlink()  # it is said to its end
    second.expect("^1 hears 620Hz")
    first.expect("^1 has said ")
    second.expect("^1 hears 1000Hz")


def test_player_hears_the_call_and_costs_nothing_when_it_does_not_read(system):
    system.start_application()
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.expect("^1 hears 2200Hz")
    pipe = system.folder / "pipe"
    os.mkfifo(pipe)
    assert refused(first, f"1 listen {pipe}") == f"{pipe}: is a pipe that nobody reads: start its reader first"
    player = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
    first.ask(f"1 listen {pipe}")
    sound = b""

    def a_second_has_come():
        nonlocal sound
        try:
            sound += os.read(player, 65536)
        except BlockingIOError:
            pass
        return len(sound) >= 16000

    until("a second of sound", a_second_has_come)
    values = recordings.array.array("h", sound[:16000])
    if recordings.sys.byteorder == "big":
        values.byteswap()
    assert max(values) > 3000
    # It sleeps: the call does not notice.
    assert refused(first, "1 expect silence 1s") == "1 heard 2200Hz, not silence, within 1.000 s"
    first.ask("1 listen off")
    given, dropped = map(int, first.expect(r"samples=(\d+) dropped=(\d+)$").groups())
    assert given >= 8000 and dropped > 0
    os.close(player)
    player = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
    first.ask(f"1 listen {pipe}")
    os.close(player)
    first.expect("^1 listening ends: .*: nobody reads any more$")
    hang_up(first, second)
    first.expect("^1 media ended .* lost=0 ")


def test_expectations_end_with_those_who_gave_them(system):
    """More than a console has places for: the line is free again, and so are the places."""
    system.start_application()
    control = system.folder / "control"
    plugin = system.start_fxs("fxs1", "--control", str(control), lines=10)
    for line in range(1, 11):
        client = socket.socket(socket.AF_UNIX)
        client.connect(str(control))
        client.sendall(f"memory\n{line} expect busy-tone 600s\n".encode())
        assert client.recv(1000).startswith(b"memory")
        assert refused(plugin, f"{line} expect ring-back 1s") == f"{line} waits for busy-tone already"
        client.close()
        until("the line is free", lambda line=line: "within" in refused(plugin, f"{line} expect busy-tone 1ms"))


def test_what_is_expected_is_waited_for_and_commands_behind_it_wait_too(system):
    system.start_application()
    plugin = system.start_fxs("fxs1")
    assert refused(plugin, "1 expect dial-tone 200ms") == "1 heard silence, not dial-tone, within 0.200 s"
    mark = plugin.out.mark()
    plugin.tell("1 off\n1 expect dial-tone 10s\n1 dial 102\n1 expect ring-back 10s\n2 expect rings 10s\n2 off\nstatus")
    until("all are answered", lambda: len(plugin.out.since(mark, "^(ok|error.*)$")) == 7)
    assert not plugin.out.since(mark, "^error")
    seen = plugin.out.all[mark:]
    order = ["1 hears dial-tone", "1 dials 102", "1 hears ring-back", "2 off hook"]
    assert sorted(order, key=seen.index) == order
    # Whoever has asked may leave, and others are served.
    assert refused(plugin, "2 expect busy-tone 100ms").endswith(", not busy-tone, within 0.100 s")
    plugin.tell("1 expect busy-tone 600s")
    assert plugin.terminate() == 0
