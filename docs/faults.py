#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the faults that docs/find-the-cause.md tells of, in real processes, and keeps what the tools say about them.

  faults.py BIN            write the outputs into the page; BIN is the folder of the built programs
  faults.py --check BIN    change nothing; report each output that is another one now. Times, numbers of processes and
                           what else differs from run to run are left aside, and so is the order of lines

The exit status is 1 when something is wrong, else 0.
"""

import argparse
import re
import resource
import shutil
import subprocess
import sys
import time
from pathlib import Path

from capture import put

ROOT = Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT / "hosts/demo"))
from processes import System, until  # noqa: E402

PAGE = "docs/find-the-cause.md"
DISSECTOR = ROOT / "tool/wireshark/kexbus.lua"


class House(System):
    """A voice system whose processes say what is shown on the page."""

    def __init__(self, folder):
        super().__init__(folder)
        self.environment["PATH"] = f"{self.bin}:{self.environment['PATH']}"
        plugins = self.folder / ".local/lib/wireshark/plugins"
        plugins.mkdir(parents=True)
        shutil.copy(DISSECTOR, plugins)
        self.application = self.start_application()

    def begin(self, command):
        """A command that runs beside what follows, once it watches."""
        before = self.application.descriptors()
        process = self.start("tool", "voicectl", *command.split()[1:])
        if command.startswith("voicectl doctor"):  # it says nothing before its end
            until("it watches", lambda: self.stays_connected(before))
        else:
            process.err.expect("^voicectl: watching ")
        return command, process

    def stays_connected(self, before):
        """Whether somebody has come who stays: what doctor asks first ends its connection at once."""
        return all(time.sleep(0.05) or self.application.descriptors() > before for _ in range(20))

    def shell(self, command):
        """A command that ends, and what it prints."""
        done = subprocess.run(
            ["sh", "-c", command],
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
            timeout=60,
            check=False,
        )
        return f"$ {command}\n{done.stdout}"


def shown(watched):
    """What a command in the background has said, once it has ended."""
    command, process = watched
    return f"$ {command}\n" + "".join(f"{line}\n" for line in process.out.all)


def ended(watched):
    watched[1].terminate()
    return shown(watched)


def telephones_call(house, first, second):
    """101 calls 201, which answers."""
    first.ask("1 off")
    first.ask("1 dial 201")
    second.expect("^1 rings ")
    second.ask("1 off")


def codec(folder):
    with House(folder) as house:
        application = house.application
        registration = house.begin("voicectl watch --function register_endpoint --endpoint fxs1.FXS1")
        first, second = (house.start_fxs(name, "--codecs", "G729,PCMA") for name in ("fxs1", "fxs2"))
        call = house.begin("voicectl watch --plugin fxs1")
        telephones_call(house, first, second)
        first.expect("^1 hears busy-tone$")
        for line in ("<-- destroy", "<-- signal  busy tone", "--> event  generic error"):
            call[1].out.expect_from(0, line)
        yield "codec-call", ended(call)
        registration[1].out.expect_from(0, "register_endpoint answered")
        yield "codec-registration", ended(registration)
        application.expect("^call 1 101->201 ended")
        yield "codec-application", "".join(f"{line}\n" for line in application.out.since(0, "^call "))


def blocks(folder):
    with House(folder) as house:
        application = house.application
        first = house.start_fxs("fxs1")
        watch = house.begin("voicectl watch --plugin fxs1")
        counts = house.begin("voicectl stats")
        doctor = house.begin("voicectl doctor --for 8")
        first.freeze()
        application.ask("get 101 tdmc_gain")
        watch[1].out.expect("has no answer yet")
        doctor[1].wait()
        yield "blocks-watch", shown(watch)
        yield "blocks-counts", ended(counts)
        command, said = doctor[0], doctor[1].out.all
        waits = next(at for at, line in enumerate(said) if " waits " in line)
        yield "blocks-doctor", f"$ {command} | grep -A 1 ' waits '\n" + "".join(
            f"{line}\n" for line in said[waits:][:2]
        )
        yield "blocks-process", house.shell(f"grep State: /proc/{first.pid}/status")
        mark = watch[1].out.mark()
        command = f"kill -CONT {first.pid}"
        house.shell(command)
        watch[1].out.expect_from(mark, "get answered|set|signal|event")
        watch[1].terminate()
        yield "blocks-after", f"$ {command}\n" + "".join(f"{line}\n" for line in watch[1].out.all[mark:])


def descriptor(folder):
    with House(folder) as house:
        first, second = house.start_fxs("fxs1"), house.start_fxs("fxs2")
        highest = max(int(path.name) for path in Path(f"/proc/{second.pid}/fd").iterdir())
        resource.prlimit(second.pid, resource.RLIMIT_NOFILE, (highest + 1, highest + 1))
        watch = house.begin("voicectl watch --plugin fxs2")
        counts = house.begin("voicectl stats")
        begin = time.monotonic()
        telephones_call(house, first, second)
        second.expect("^application lost$")
        second.expect("^ready ")
        at, _ = watch[1].out.expect_from(0, "FXS2 .*register_endpoint answered")
        watch[1].out.expect_from(at, "signal  dial tone")
        yield "descriptor-watch", ended(watch)
        until("rates are those of a second at least", lambda: time.monotonic() > begin + 1)
        yield "descriptor-counts", ended(counts)
        yield "descriptor-trace", "".join(f"{line}\n" for line in second.err.all)
        pid = second.pid
        yield "descriptor-process", house.shell(f"ls /proc/{pid}/fd | wc -l; grep 'open files' /proc/{pid}/limits")


def outputs(folder):
    for fault in (codec, blocks, descriptor):
        yield from fault(folder)


def lasting(text):
    """The lines without what differs from run to run, in an order of their own."""
    for pattern, word in [
        (r"\d\d:\d\d:\d\d(\.\d{3})?", "TIME"),
        (r"(process |/proc/|-CONT )\d+", r"\1N"),
        (r"\d+(\.\d+)? (ms|s)\b", r"N \2"),
        (r"\d+\.\d+(?= messages/s)", "N"),
        (r"sockets \d+ \d+", "sockets N N"),
        (r"^(\S+ +\S+ +)[\d.]+ +\d+( .*)$", r"\1N N\2"),  # a row of counts: rate and messages
        (r"^\d+$", "N"),
        (r"ended: [12]01: no", "ended: N: no"),  # whoever is first
        (r"(Max open files +)\d+ +\d+", r"\1N N"),
        (r" +", " "),
    ]:
        text = re.sub(pattern, word, text, flags=re.M)
    return sorted(line.rstrip() for line in text.splitlines())


def page_outputs():
    text = (ROOT / PAGE).read_text(encoding="utf-8")
    return dict(re.findall(r"<!-- output: ([\w-]+) -->\n\n?```\w+\n(.*?)```\n", text, re.S))


def differences(found):
    held = page_outputs()
    for name in held.keys() | found.keys():
        before, now = lasting(held.get(name, "")), lasting(found.get(name, ""))
        for line in sorted(set(before) ^ set(now)):
            yield f"{PAGE}: {name}: {'-' if line in before else '+'} {line}"


def main():
    options = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    options.add_argument("--check", action="store_true", help="change nothing")
    options.add_argument("folder", type=Path, metavar="BIN", help="the folder of the built programs")
    arguments = options.parse_args()
    found = dict(outputs(arguments.folder.resolve()))
    if not arguments.check:
        put(PAGE, found)
        return 0
    faults = list(differences(found))
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
