# SPDX-License-Identifier: MIT
"""A stranger beside a voice system: strangers.py SOCKET SEED. Does what it is told, one word a line, and answers
"done", the word, and why it was refused, as JSON. What it keeps open it closes before the next word."""

import json
import os
import random
import socket
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("hosts/demo", "tests/integration")]
from broken_packets import BROKEN_GREETINGS, BROKEN_PACKETS  # noqa: E402
from faulty_calls import APPLICATION_FUNCTIONS, faults  # noqa: E402
from wire import APPLICATION, REFUSED, REPLY, TAP_HELLO, Fd, RawPeer, call, head, text  # noqa: E402

FLOOD = 2000  # calls; a watcher is not to lose anything by it
MANY = 200_000  # replies that are not read: more than anybody keeps
LIMIT = 60  # seconds for an answer


class Stranger:
    def __init__(self, path, seed):
        self.path, self.random = path, random.Random(seed)
        self.open, self.refusals = [], []

    def connect(self, **options):
        peer = RawPeer.connect(self.path, "stranger", **options)
        peer.socket.settimeout(LIMIT)
        return peer

    def keep(self, peer):
        self.open.append(peer)
        return peer

    def greeting(self):
        """Breaks the rules in the first packet."""
        for name in self.random.sample(sorted(BROKEN_GREETINGS), 5):
            with self.connect(hello=False) as peer:
                peer.send(BROKEN_GREETINGS[name])
                self.refused(name, peer.refusal())

    def packet(self):
        """Breaks them later."""
        for name in self.random.sample(sorted(BROKEN_PACKETS), 5):
            with self.connect() as peer:
                peer.send(BROKEN_PACKETS[name])
                self.refused(name, peer.refusal())

    def refused(self, what, why):
        if not why:
            raise ValueError(f"nobody said why '{what}' was refused")
        self.refusals.append(why)

    def ask(self, peer, path, function, arguments):
        """The reply. Without one the listener is gone, or counts connections that have just been closed."""
        answer = peer.call(path, function, arguments, answer=lambda packet: None)
        if answer is None:
            raise ConnectionResetError
        if answer.kind == REFUSED:
            self.refusals.append(answer.text)
            raise ConnectionRefusedError if "connections" in answer.text else ValueError(answer.text)
        return answer

    def arguments(self):
        """Calls with wrong arguments, each of which is answered with the error that belongs to it."""
        with self.connect() as peer:
            for case in self.random.sample(list(faults(APPLICATION_FUNCTIONS)), 20):
                function, arguments, error = case.values
                answer = self.ask(peer, APPLICATION, function, arguments)
                if answer.errors != [error]:
                    raise ValueError(f"{case.id} was answered with {answer.errors}")
                self.refusals.append(f"answered: {error[1]}")

    def name(self):
        """Takes a name that is too long, and leave for somebody else."""
        with self.connect() as peer:
            for function, name in (("register_plugin", "x" * 40), ("deregister_plugin", "fxs1")):
                answer = self.ask(peer, APPLICATION, function, [("plugin_name", name)])
                if answer.result is True and function == "register_plugin":
                    raise ValueError(f"{function} of {name} was taken")
                self.refusals.append(f"answered: {function} rejected")

    def descriptors(self):
        """Sends more than anybody asked for."""
        with open(os.devnull, "rb") as null, self.connect() as peer:
            for _ in range(20):
                some = [Fd(null.fileno())] * 10
                self.ask(peer, APPLICATION, "event", [("plugin_name", "x"), ("event", some)])
            peer.send(call(1, APPLICATION, "event", [])[0], [null.fileno()] * 10)
            self.refused("descriptors", peer.refusal())

    def flood(self):
        packet = call(1, APPLICATION, "nothing", [], one_way=True)[0]
        with self.connect() as peer:
            for _ in range(FLOOD):
                peer.send(packet)
            self.ask(peer, APPLICATION, "event", [])

    def deaf(self):
        """Calls, and reads no reply, until it is closed; keeps its end."""
        peer, packet = self.keep(self.connect()), call(1, APPLICATION, "nothing", [])[0]
        try:
            for _ in range(MANY):
                peer.send(packet)
        except (BrokenPipeError, ConnectionResetError):
            return self.refusals.append("closed: it does not read")
        raise ValueError(f"{MANY} replies were kept")

    def taps(self):
        """Wants three taps where a process may have two; never reads them."""
        for _ in range(3):
            peer = self.keep(self.connect(hello=False))
            peer.send(head(TAP_HELLO) + text("stranger"))
        packet = self.open[-1].receive()
        if packet is not None and packet.kind == REFUSED:
            self.refusals.append(packet.text)

    def crowd(self):
        """More connections than a process may have."""
        peers = [self.keep(self.connect()) for _ in range(12)]
        answers = 0
        for peer in peers:
            try:
                answer = peer.call("kex", "list", [])
            except BrokenPipeError:
                answer = None
            answers += answer is not None and answer.kind == REPLY
            if answer is not None and answer.kind == REFUSED:
                self.refusals.append(answer.text)
        if answers > 8:
            raise ValueError(f"{answers} connections of one process were served")

    def silent(self):
        """Says nothing."""
        self.keep(self.connect(hello=False))

    def leaving(self):
        """Leaves at once, and in the middle of a call."""
        for _ in range(20):
            self.connect(hello=False).close()
            with self.connect() as peer:
                peer.send(call(1, APPLICATION, "register_plugin", [("plugin_name", "x" * 40)])[0])

    def drop(self):
        for peer in self.open:
            peer.close()
        self.open.clear()


MISCHIEF = "greeting packet arguments name descriptors flood deaf taps crowd silent leaving".split()


def main():
    stranger = Stranger(sys.argv[1], sys.argv[2])
    for row in sys.stdin:
        word, wrong = row.strip(), ""
        stranger.refusals.clear()
        stranger.drop()
        try:
            getattr(stranger, word)()
        except (ConnectionError, FileNotFoundError):
            wrong = "gone"  # the application was killed meanwhile, or has no room for one process more
        except (ValueError, AssertionError, socket.timeout) as problem:
            wrong = f"wrong: {problem!r}"
        print("done", word, json.dumps({"refusals": stranger.refusals, "wrong": wrong}), flush=True)


if __name__ == "__main__":
    main()
