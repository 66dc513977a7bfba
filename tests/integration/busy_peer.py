# SPDX-License-Identifier: MIT
"""A process that sends calls without end on all the connections it may have: busy_peer.py SOCKET."""

import select
import sys

from wire import RawPeer, call

PER_PROCESS = 8  # connections that one process may have


def send_all_the_time(path):
    """What a busy process does: calls without end on all its connections."""
    packet, _ = call(1, "kex", "list", [], one_way=True)
    peers = [RawPeer.connect(path, "busy") for _ in range(PER_PROCESS)]
    for peer in peers:
        peer.socket.setblocking(False)
    print("busy", flush=True)
    while True:
        for ready in select.select([], [peer.socket for peer in peers], [])[1]:
            try:
                for _ in range(64):
                    ready.send(packet)
            except BlockingIOError:
                pass


if __name__ == "__main__":
    send_all_the_time(sys.argv[1])
