# SPDX-License-Identifier: MIT
"""Real hosts on a private socket: starting them, giving them commands, waiting for what they say, taking them down.
The demonstration and the tests of real processes both stand on it.

Everything is waited for by what a process says or does, with a time limit; nothing here sleeps to let time pass. The
limits are generous, since a slow machine is no fault of the system.
"""

import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from pathlib import Path

# With VOICE_TEST_WITHOUT_TAP set, the bus has no tap: nobody watches what passes, and no peer speaks its packets.
WITHOUT_TAP = bool(os.environ.get("VOICE_TEST_WITHOUT_TAP"))
# With VOICE_TEST_LEAVE set, the processes of a system are asked to end before they are ended.
PATIENCE = float(os.environ.get("VOICE_TEST_PATIENCE", "20"))  # seconds that anything may take
# For plugins that have to find the application again: the 10 s between two attempts become 0.25 s.
QUICK_RETRY = {"KEX_TIME_FACTOR": "40"}
# Variables that processes get from outside: what looks into them, and faults on request.
PASSED_ON = ("ASAN_", "UBSAN_", "LSAN_", "GCOV_", "KEX_", "LD_LIBRARY_PATH")


def default_bin():
    root = Path(__file__).resolve().parents[2]
    return Path(os.environ.get("VOICE_BIN", root / os.environ.get("VOICE_BUILD_DIR", "build") / "bin"))


def own_address():
    """A loopback address that no other process uses: systems that run at the same time do not meet on a media port."""
    pid = os.getpid()
    return f"127.{64 + (pid >> 16 & 0x3F)}.{pid >> 8 & 0xFF}.{pid & 0xFF}"


class Unmet(AssertionError):
    """Something did not happen in time; the text says what, and what was seen instead."""


def until(what, condition, limit=None):
    """Waits until condition() answers something true, and returns it. For states that nobody announces."""
    end = time.monotonic() + (limit or PATIENCE)
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Unmet(f"{what}: not within {limit or PATIENCE:g} s")
        time.sleep(0.005)


class Lines:
    """What a process writes, line by line, read by a thread of its own. `expect` goes forward: no line twice."""

    def __init__(self, title, stream, listener=None):
        self.title = title
        self.all = []
        self._next = 0
        self._closed = False
        self._changed = threading.Condition()
        self._listener = listener
        self._thread = threading.Thread(target=self._read, args=(stream,), daemon=True)
        self._thread.start()

    def _read(self, stream):
        for raw in iter(stream.readline, b""):
            line = raw.decode(errors="replace").rstrip("\n")
            if self._listener:
                self._listener(line)
            with self._changed:
                self.all.append(line)
                self._changed.notify_all()
        with self._changed:
            self._closed = True
            self._changed.notify_all()

    @property
    def closed(self):
        return self._closed

    def mark(self):
        """A place to look from later, with since()."""
        return len(self.all)

    def since(self, mark, pattern="."):
        return [line for line in self.all[mark:] if re.search(pattern, line)]

    def expect(self, pattern, limit=None):
        """The match of the next line that fits, however many others stand before it."""
        at, match = self._find(self._next, pattern, limit)
        self._next = at + 1
        return match

    def expect_from(self, mark, pattern, limit=None):
        """The same from a mark on, without going forward: the place of the line, and its match."""
        return self._find(mark, pattern, limit)

    def _find(self, start, pattern, limit):
        end = time.monotonic() + (limit or PATIENCE)
        wanted = re.compile(pattern)
        at = start
        with self._changed:
            while True:
                while at < len(self.all):
                    match = wanted.search(self.all[at])
                    if match:
                        return at, match
                    at += 1
                left = end - time.monotonic()
                if self._closed or left <= 0:
                    break
                self._changed.wait(left)
        why = "it ended" if self._closed else f"not within {limit or PATIENCE:g} s"
        seen = "\n    ".join(self.all[start:][-20:]) or "nothing"
        raise Unmet(f"{self.title} never said /{pattern}/ ({why}); after the last match it said:\n    {seen}")

    def finish(self):
        """Waits for the last line of a process that has ended."""
        self._thread.join(PATIENCE)


class Process:
    """One running program."""

    def __init__(self, name, words, environment, listener=None):
        self.name = name
        # The kernel ends it with us, however we end.
        self.child = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", *map(str, words)],
            env=environment,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )
        self.out = Lines(name, self.child.stdout, listener)
        self.err = Lines(f"{name} (traces)", self.child.stderr)

    @property
    def pid(self):
        return self.child.pid

    def expect(self, pattern, limit=None):
        return self.out.expect(pattern, limit)

    def tell(self, command):
        """Types one line, without waiting for its answer."""
        self.child.stdin.write(command.encode() + b"\n")
        self.child.stdin.flush()

    def ask(self, command):
        """Types one line and returns what was said up to its "ok", for expect() to find as well: what a command causes
        may be said before it is answered. Anything else than "ok" is a failure."""
        mark = self.out.mark()
        self.tell(command)
        at, end = self.out.expect_from(mark, r"^(ok|error: .*)$")
        if end.group(0) != "ok":
            raise Unmet(f"{self.name}: '{command}' was answered with '{end.group(0)}'")
        return self.out.all[mark : at + 1]

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def freeze(self):
        """Stops it from running, as if the machine had no time for it."""
        self.child.send_signal(signal.SIGSTOP)

        def stopped():
            return Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()[0] == "T"

        until(f"{self.name} stops", stopped)

    def thaw(self):
        self.child.send_signal(signal.SIGCONT)

    def kill(self):
        """Ends it without a word, as a crash would."""
        self.child.kill()
        self.wait()

    def terminate(self):
        """Asks it to leave and returns its exit status."""
        self.child.terminate()
        return self.wait()

    def wait(self, limit=None):
        try:
            status = self.child.wait(limit or PATIENCE)
        except subprocess.TimeoutExpired:
            raise Unmet(f"{self.name} did not end within {limit or PATIENCE:g} s") from None
        self.out.finish()
        self.err.finish()
        return status

    @property
    def running(self):
        return self.child.poll() is None

    def release(self):
        """Ends it if it runs, and closes its streams."""
        if self.running:
            self.child.kill()
        self.child.wait()
        self.out.finish()
        self.err.finish()
        for stream in (self.child.stdin, self.child.stdout, self.child.stderr):
            try:
                stream.close()
            except BrokenPipeError:
                pass


class Application(Process):
    """voice_application, with what it answers to questions taken apart."""

    def _rows(self, question, pattern):
        return [match.groups() for match in map(re.compile(pattern).match, self.ask(question)) if match]

    def plugins(self):
        """Names of the plugins in its table."""
        return [name for (name,) in self._rows("status", r"plugin (\S+) process=\d+$")]

    def lines(self):
        """For each line by its label (the number, if it has one): state, endpoint number, name."""
        return {
            label: (state, int(endpoint), name)
            for label, state, endpoint, name in self._rows("status", r"line (\S+) (\S+) endpoint=(\d+) (\S+) ")
        }

    def calls(self):
        """State of each call by its text, "101->201"."""
        return dict(self._rows("calls", r"call \d+ (\S+) (\w+) codec="))


class Watcher(Process):
    """voicectl watch --json: the messages that passed, as dictionaries."""

    def expect_message(self, limit=None, **wanted):
        """The next message with fields as given; also by `plugin`, `endpoint` and `name` (of a signal or event)."""
        end = time.monotonic() + (limit or PATIENCE)
        first = self.out.mark()
        while True:
            try:
                line = self.out.expect("^{", max(end - time.monotonic(), 0.001)).string
            except Unmet:
                seen = "\n    ".join(line[:200] for line in self.out.all[first:][-10:])
                raise Unmet(f"the watcher never saw {wanted}; the last it saw:\n    {seen}") from None
            message = json.loads(line)
            if all(field(message, key) == value for key, value in wanted.items()):
                return message

    def messages(self, **wanted):
        """All messages so far whose fields are as given."""
        found = (json.loads(line) for line in list(self.out.all) if line.startswith("{"))
        return [message for message in found if all(field(message, key) == value for key, value in wanted.items())]


def field(message, key):
    ends = (message.get("from", {}), message.get("to", {}))
    if key in ("plugin", "endpoint"):
        return next((end[key] for end in ends if key in end), None)
    if key == "name":
        return message.get("record", {}).get("identifier", {}).get("name")
    return message.get(key)


class System:
    """A voice system of its own: a private folder, a socket in it, and whatever processes are started on it."""

    def __init__(self, bin_folder=None, environment=None):
        self.bin = Path(bin_folder or default_bin())
        self.folder = Path(tempfile.mkdtemp(prefix="voice-"))
        self.socket = self.folder / "bus"
        self.processes = []
        keep = {key: value for key, value in os.environ.items() if key.startswith(PASSED_ON)}
        self.environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": str(self.folder),
            "LC_ALL": "C.UTF-8",
            "ZIL_VOIP_IPC_SOCKET": str(self.socket),
            "ZIL_VOIP_IPC_SOCKET_URI": f"kex://ipc:[{self.socket}]",
            **keep,
            **(environment or {}),
        }

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def start(self, name, *words, kind=Process, environment=None, listener=None):
        """Starts a program of the build by its name, with arguments."""
        program, *arguments = words
        process = kind(name, [self.bin / program, *arguments], {**self.environment, **(environment or {})}, listener)
        self.processes.append(process)
        return process

    def start_application(self, *arguments, **options):
        if "--config" not in arguments:
            settings = self.folder / "address.conf"
            settings.write_text(f"address {own_address()}\n")
            arguments = ("--config", settings, *arguments)
        application = self.start("voice_application", "voice_application", *arguments, kind=Application, **options)
        application.expect("^ready ")
        return application

    def start_fxs(self, name, *arguments, lines=2, ready=True, **options):
        """Simulated telephones: those of fxs1 have the numbers 101, 102 ..., those of fxs2 201, 202 ..."""
        plugin = self.start(name, "fxs_plugin", "--name", name, "--lines", lines, *arguments, **options)
        if ready:
            plugin.expect("^ready ")
        return plugin

    def start_watcher(self, *arguments, **options):
        watcher = self.start("voicectl", "voicectl", "watch", "--json", *arguments, kind=Watcher, **options)
        watcher.err.expect("watching")
        return watcher

    def forget(self, process):
        """Ends a process and keeps nothing of it: for systems in which very many come and go."""
        process.release()
        self.processes.remove(process)

    def report(self):
        """What every process said, for a failure."""
        parts = []
        for process in self.processes:
            if process.out.closed:
                process.err.finish()  # why it ended may stand in its last traces
            lines_shown = 5 if isinstance(process, Watcher) else 60  # a watcher repeats what the others say
            for lines in (process.out, process.err):
                if lines.all:
                    parts.append(f"--- {lines.title}\n" + "\n".join(line[:300] for line in lines.all[-lines_shown:]))
        return "\n".join(parts)

    def leave(self):
        """Asks all to end by themselves, as far as they can: what counts at its own end is then counted."""
        running = [process for process in reversed(self.processes) if process.running]
        for process in running:
            process.thaw()
            process.child.terminate()
        for process in running:
            try:
                process.child.wait(PATIENCE / 4)
            except subprocess.TimeoutExpired:
                pass  # it is ended by close()

    def close(self):
        if "VOICE_TEST_LEAVE" in os.environ:
            self.leave()
        for process in self.processes:
            if process.running:
                process.child.kill()
        for process in self.processes:
            process.release()
        shutil.rmtree(self.folder, ignore_errors=True)
