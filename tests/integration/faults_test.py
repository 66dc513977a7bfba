# SPDX-License-Identifier: MIT
"""Something fails in one process during a call: one of each kind of what ./test faults tries, by fixed numbers."""

import subprocess
import sys
from pathlib import Path

import pytest

from dialling import lift, start_telephones, talk
from target import is_instrumented

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "faults"))
from failing_calls import FailingCall, compile_preload  # noqa: E402
from kills import Kill  # noqa: E402
from messages import Demonstration  # noqa: E402
from processes import default_bin, until  # noqa: E402
from shortages import SHORTAGES  # noqa: E402

# The numbers are those of calls of start-up, of registration and of a call; all are reached.
FAILING = [
    ("application", "memory", 250),
    ("callee", "memory", 160),
    ("caller", "memory", 200),
    ("application", "send", 5),
    ("callee", "receive", 12),
    ("application", "accept", 2),
    ("application", "bind", 1),
    ("application", "lock", 1),
    ("application", "open", 2),
    ("caller", "dup", 12),
    ("caller", "epoll", 8),
    ("callee", "read", 4),
]
LASTING = [
    ("application", "descriptors", 20),
    ("application", "descriptors", 32),
    ("caller", "descriptors", 29),
    ("application", "streams", 7),
    ("callee", "streams", 3),
    ("application", "stopped", 2),
    ("caller", "stopped", 3),
]
# In registration, call set-up, media, conference and tear-down.
KILLS = [
    ("application", "send", 4, "before"),
    ("application", "receive", 12, "after"),
    ("application", "send", 14, "after"),
    ("application", "send", 30, "before"),
    ("caller", "send", 3, "after"),
    ("caller", "receive", 20, "before"),
    ("callee", "receive", 9, "after"),
    ("callee", "send", 12, "before"),
]
# The same for plugins of other kinds, by the messages of a demonstration.
KILLS_IN_A_DEMONSTRATION = [
    ("application", "sent", 60, "after"),
    ("dect1", "received", 6, "after"),
    ("fxo1", "sent", 3, "before"),
    ("dsp1", "received", 4, "before"),
]


@pytest.fixture(scope="module")
def preload(tmp_path_factory):
    if is_instrumented(default_bin() / "fxs_plugin"):
        pytest.skip("the address sanitizer must be loaded first, and replaces the allocator itself")
    return compile_preload(tmp_path_factory.mktemp("preload"))


@pytest.mark.parametrize("role, kind, number", FAILING)
def test_one_call_that_fails_spoils_no_more_than_one_call(system, preload, role, kind, number):
    assert FailingCall(system, preload, role, kind, number).run() != "not reached"


@pytest.mark.parametrize("role, kind, number", LASTING)
def test_what_a_process_lacks_is_said(system, role, kind, number):
    SHORTAGES[kind](system, role, number).run()


@pytest.mark.parametrize("role, kind, number, when", KILLS)
def test_everything_comes_back_after_a_kill_at_a_message(system, preload, role, kind, number, when):
    assert Kill(system, preload, role, kind, number, when).run() == "all came back"


@pytest.mark.parametrize("role, kind, number, when", KILLS_IN_A_DEMONSTRATION)
def test_everything_comes_back_after_a_kill_in_a_demonstration(system, preload, role, kind, number, when):
    assert Demonstration(system, preload, role, kind, number, when).run() == "all came back"


def test_a_plugin_that_stands_still_with_full_buffers_holds_nobody_up(system):
    commands = 6000
    application = system.start_application()
    first, second = start_telephones(system)
    begin = second.out.mark()
    second.freeze()
    mark = application.out.mark()
    for _ in range(commands):  # one and a half times what the bus and the kernel keep for it
        application.tell(f"set 201 zil_ep_dispname {'x' * 200}")
    until("all are answered", lambda: len(application.out.since(mark, "^(ok|error: .*)$")) == commands)
    assert application.out.since(mark, "^ok$") and application.out.since(mark, "^error: not sent$")
    application.err.expect("^KEX .*request 'set' of 'fxs2.EndPoint.FXS1' .* not queued: the queue is full$")
    lift(first)
    first.ask("1 on")
    accepted = len(application.out.since(mark, "^ok$"))
    second.thaw()
    # Room again for what a call sends, and nothing that was accepted is lost.
    until("all came", lambda: len(second.out.since(begin, "^1 param zil_ep_dispname=.x")) == accepted)
    talk(first, "201", second)


def full_disk(files):
    """Words in front of a command that give it a folder in which so few files fit."""
    return ["unshare", "-m", "sh", "-c", f'mount -t tmpfs -o nr_inodes={files + 1} none "$0" && exec "$@"']


@pytest.mark.parametrize("files", [0, 1])
def test_a_full_disk_at_the_socket_is_said(system, files):
    if subprocess.run([*full_disk(0), system.folder, "true"], capture_output=True).returncode != 0:
        pytest.skip("this user cannot mount a small file system")
    words = [*full_disk(files), system.folder, system.bin / "voice_application", "--socket", system.folder / "bus"]
    application = system.start("application", "/usr/bin/env", *words)
    assert application.wait() == 1
    application.err.expect("^KEX .*cannot listen on .*No space left on device")
    application.err.expect("^error: .*cannot listen at the path ")


def test_a_missing_folder_at_the_socket_is_said(system):
    application = system.start("application", "voice_application", "--socket", system.folder / "none" / "bus")
    assert application.wait() == 1
    application.err.expect("^KEX .*its lock file cannot be opened: No such file or directory")
    application.err.expect("^error: .*cannot listen at the path ")
