# SPDX-License-Identifier: MIT
"""What processes of a voice system know of each other, and what they leave behind."""

import fcntl
import os
import re
from pathlib import Path


class EndpointTable:
    """The endpoints of a plugin as it has said them itself: number by name."""

    def __init__(self, process):
        self.process, self.read, self.names, self.numbers = process, 0, {}, {}

    def take(self, row):
        if row == "application lost":
            self.numbers.clear()
        elif match := re.match(r"(\d+) registered (\S+) endpoint=(\d+)$", row):
            place, name, number = match.groups()
            self.names[place] = name
            self.numbers[name] = int(number)
        elif match := re.match(r"(\d+) deregistered$", row):
            self.numbers.pop(self.names[match[1]], None)

    def now(self):
        rows = self.process.out.all
        while self.read < len(rows):
            self.take(rows[self.read])
            self.read += 1
        return self.numbers


def application_endpoints(application):
    """Those of all plugins as the application has them: number by "plugin.name"."""
    rows = (re.match(r"line \S+ \S+ endpoint=(\d+) (\S+) ", row) for row in application.ask("status"))
    return {row[2]: int(row[1]) for row in rows if row}


def differences(application, tables):
    """Which plugins and the application do not agree; the plugins' tables by their names."""
    found = application_endpoints(application)
    own = {f"{plugin}.{name}": number for plugin, table in tables.items() for name, number in table.now().items()}
    return [
        f"{key}: {own.get(key)} here, {found.get(key)} there"
        for key in sorted(own.keys() | found.keys())
        if own.get(key) != found.get(key)
    ]


def check_lock(socket):
    """An error when somebody still holds the lock of a socket that was closed."""
    with open(f"{socket}.lock", "r+", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)


def left_files(folder):
    """Sockets that processes have left in their folder."""
    return sorted(path.name for path in Path(folder).iterdir() if path.is_socket())


def targets(process):
    """What each descriptor of a process stands for."""
    found = []
    for name in os.listdir(f"/proc/{process.pid}/fd"):
        try:
            found.append(os.readlink(f"/proc/{process.pid}/fd/{name}"))
        except FileNotFoundError:
            pass
    return found
