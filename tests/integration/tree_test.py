# SPDX-License-Identifier: MIT
"""voicectl tree: what it shows of an application, and of one that does not answer as it should."""

import json
import re
import threading

from target import struct
from tool_run import tool_run
from wire import REPLY, RawListener, head, reply, text


def run(system, *words):
    return tool_run(system, "tree", *words)


def test_objects_of_the_application(system):
    system.start_application()
    status, out, err = run(system)
    assert (status, err) == (0, "")
    assert re.search(r"^VoiceService$", out, re.MULTILINE)
    assert re.search(r"^  VoiceApplication +class VoiceService$\n +register_plugin\(plugin_name\)$", out, re.MULTILINE)
    objects = [json.loads(line) for line in run(system, "--json")[1].splitlines()]
    application = next(one for one in objects if one["path"] == "VoiceService.VoiceApplication")
    assert application["class"] == "VoiceService" and application["kind"] == "object"
    assert {"name": "event", "arguments": ["plugin_name", "event"]} in application["functions"]


def test_control_socket_adds_plugins_and_endpoints(system):
    control = system.folder / "control"
    system.start_application("--control", control)
    fxs = system.start_fxs("fxs1")
    status, out, err = run(system, "--control", control)
    assert (status, err) == (0, "")
    assert re.search(rf"^fxs1 +plugin, process {fxs.pid}$", out, re.MULTILINE)
    assert re.search(r"^    FXS2 +endpoint, class EndPoint$\n +signal\(signal\)$", out, re.MULTILINE)
    objects = [json.loads(line) for line in run(system, "--json", "--control", control)[1].splitlines()]
    assert [one["path"] for one in objects][2:] == ["fxs1", "fxs1.EndPoint.FXS1", "fxs1.EndPoint.FXS2"]
    status, out, err = run(system, "--control", system.folder / "none")
    assert status == 1 and "VoiceApplication" in out and "no control socket" in err


def answered(system, answer):
    """What the tool makes of an application that answers so."""
    (system.folder / "raw").unlink(missing_ok=True)
    with RawListener(system.folder / "raw") as listener:

        def serve():
            with listener.accept() as peer:
                answer(peer, peer.receive())

        thread = threading.Thread(target=serve)
        thread.start()
        try:
            return run(system, "--socket", system.folder / "raw", "--for", "0.5")
        finally:
            thread.join(20)


def test_application_that_answers_otherwise(system):
    hostile = "A\x1b[2J object \x1b[31m f\x1b(\u202e)"
    status, out, err = answered(system, lambda peer, call: peer.send(reply(call.serial, [hostile])))
    assert (status, err) == (
        0,
        "",
    ) and out == "A\\x1B[2J                            class \\x1B[31m\n    f\\x1B(\\xE2\\x80\\xAE)\n"
    status, out, err = answered(system, lambda peer, call: peer.send(reply(call.serial, ["A object -", "\x1b", 3 > 2])))
    assert (status, out) == (1, "A\n") and "\x1b" not in err and "cannot be read: '\\x1B'" in err
    status, out, err = answered(system, lambda peer, call: peer.send(reply(call.serial, "A object -")))
    assert (status, out, err) == (1, "", "voicectl: the answer is no list of objects\n")
    error = b"\x01" + struct.pack("=I", 0x10004) + text("The listing is too large") + text("\x1bkex") + b"\x00"
    status, out, err = answered(system, lambda peer, call: peer.send(head(REPLY, call.serial) + error))
    assert (status, out, err) == (1, "", "voicectl: the application answers: The listing is too large \\x1Bkex\n")


def test_application_that_does_not_answer(system):
    silent = "voicectl: the application gives no answer: see voicectl doctor\n"
    assert answered(system, lambda peer, call: None) == (1, "", silent), "it goes in the middle"
    application = system.start_application()
    application.freeze()
    assert run(system, "--for", "0.3") == (1, "", silent)
