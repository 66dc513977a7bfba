# SPDX-License-Identifier: MIT
"""Set up wrongly: which process says what, so that nobody looks for the mistake where it is not."""

import re
import subprocess

import pytest

from dialling import talk
from processes import QUICK_RETRY
from wire import APPLICATION, RawPeer, call

NOBODY = (
    r"no application at kex://ipc:\[.*\]: start voice_application there, or say where it is by --socket PATH \(else by "
)
NOBODY += r"ZIL_VOIP_IPC_SOCKET_URI\)"
ALONE = "^plugin tel registered, but no endpoint came"


def test_second_plugin_of_a_name_waits_until_it_is_free(system):
    application = system.start_application()
    first = system.start_fxs("fxs1")
    second = system.start_fxs("fxs1", ready=False, environment={"KEX_TIME_FACTOR": "4"})
    # Both are named, with their processes, by the one that knows of both; the second says what it lacks.
    application.expect(
        f"^plugin fxs1 rejected: fxs_plugin \\(process {second.pid}\\) wants the name of "
        f"fxs_plugin \\(process {first.pid}\\)$"
    )
    second.err.expect("Plugin registration failed. Trying again in 10s.")
    second.expect('^no "init" came from the application: is another plugin named fxs1 running\\? --name NAME ')
    first.ask("1 off")
    application.expect("^line 101 dial-tone$")
    # The first leaves, and the second's next attempt takes its place.
    assert first.terminate() == 0
    application.expect("^plugin fxs1 left$")
    second.expect("^ready country=DE lines=2$")
    application.expect("^endpoint 0 fxs1.FXS1 number=101")
    second.ask("1 off")
    application.expect("^line 101 dial-tone$")


def test_second_plugin_of_a_name_leaves_without_a_trace(system):
    application = system.start_application()
    first = system.start_fxs("fxs1")
    second = system.start_fxs("fxs1", ready=False)
    application.expect("^plugin fxs1 rejected: ")
    assert second.terminate() == 0
    other = system.start_fxs("fxs2")
    talk(first, "201", other)
    application.expect("^call 1 101->201 answered")
    assert first.out.since(0, "^exit ") == []


def test_plugin_that_was_not_initialised_deregisters_nobody(system):
    # This application takes every name: "init" goes to the first plugin that has it.
    application = system.start("application", "counting_application")
    application.expect("^ready$")
    first = system.start_fxs("fxs1")
    watcher = system.start_watcher()
    second = system.start_fxs("fxs1", ready=False)
    watcher.expect_message(kind="connected")
    second.expect('^no "init" came from the application')
    assert second.terminate() == 0
    watcher.expect_message(kind="closed")
    assert watcher.messages(function="deregister_plugin") == []
    assert first.running and first.out.since(0, "^(exit|application lost)") == []


def test_name_can_be_deregistered_by_its_holder_only(system):
    application = system.start_application()
    first = system.start_fxs("fxs1")
    with RawPeer.connect(system.socket) as stranger:
        answer = stranger.call(APPLICATION, "deregister_plugin", [("plugin_name", "fxs1")])
        assert [error[:2] for error in answer.errors] == [(65539, "Not allowed")]
        stranger.send(call(99, APPLICATION, "deregister_plugin", [("plugin_name", "fxs1\0")], one_way=True)[0])
        for _ in range(2):
            application.expect(
                f"^plugin fxs1 stays: raw \\(process \\d+\\) "
                f"cannot deregister what fxs_plugin \\(process {first.pid}\\) "
            )
        assert stranger.register("raw1") is True
        assert stranger.call(APPLICATION, "deregister_plugin", [("plugin_name", "raw1")]).errors == []
    assert application.plugins() == ["fxs1"]
    assert first.out.since(0, "^exit ") == []
    assert first.terminate() == 0
    application.expect("^plugin fxs1 left$")


def test_plugin_name_that_the_table_would_cut(system):
    application = system.start_application()
    with RawPeer.connect(system.socket) as peer:
        assert peer.register("n" * 19) is True
        application.expect(f"^plugin {'n' * 19} registered$")
        assert peer.register("n" * 20) is False
        application.expect(f"^plugin {'n' * 20} rejected: name too long: 19 characters at most$")
        assert peer.register("n" * 3000) is False
        application.expect("^plugin n{40,} rejected: name too long")


@pytest.mark.parametrize(
    "mistake, missing",
    [
        ("misnamed", "calls 'init' of 'tel': there is no such object$"),
        ("undeclared", "calls 'init' of 'tel': no such function is declared for objects without a class$"),
    ],
)
def test_plugin_that_init_does_not_reach(system, mistake, missing):
    application = system.start_application()
    watcher = system.start_watcher()
    plugin = system.start("tel", "wrong_plugin", mistake)
    application.expect("^plugin tel registered$")
    # On the side where the mistake is, where the call came from, and for whoever watches.
    plugin.err.expect(f"'voice_application' \\(process {application.pid}\\) {missing}")
    sent = watcher.expect_message(kind="one_way_call", function="init")
    answer = watcher.expect_message(kind="reply", serial=sent["serial"], function="init")
    assert [error["code"] for error in answer["errors"]] == [65537 if mistake == "misnamed" else 65538]
    application.expect(ALONE)
    assert plugin.out.all == []


def test_template_without_a_class(system):
    application = system.start_application()
    plugin = system.start("tel", "wrong_plugin", "classless")
    plugin.expect("^endpoint 0$")
    plugin.err.expect(
        r"calls 'set' of 'tel\.EndPoint\.TEL1': no such function is declared for objects without a class$"
    )
    assert application.lines() != {} and application.out.since(0, ALONE) == []


def test_plugin_without_a_mistake_is_not_complained_about(system):
    application = system.start_application(environment={"KEX_TIME_FACTOR": "4"})
    plugin = system.start("tel", "wrong_plugin", "none")
    plugin.expect("^set$")
    dsp = system.start("dsp1", "dsp_plugin")
    # What holds for every DSP plugin is a hint, said once, and after 2 s for each of them: that of "tel" is through.
    application.expect(r"^plugin dsp1 registered, but no endpoint came \(right for a DSP plugin only\)$")
    assert application.out.since(0, ALONE) == []
    assert plugin.err.all == [] and dsp.running


def test_endpoint_name_that_the_tables_would_cut(system):
    application = system.start_application()
    plugin = system.start("tel", "wrong_plugin", "long-name")
    application.expect("^endpoint refused plugin=tel: name too long: 15 characters at most$")
    plugin.expect("^endpoint -1$")
    done = run(system, "fxs_plugin", "--stem", "TEL-IN-KITCHEN-")
    assert done.returncode == 2
    assert done.stderr == "error: endpoint name 'TEL-IN-KITCHEN-2': name too long: 15 characters at most\nTry --help.\n"


def test_callback_that_blocks_is_named(system):
    application = system.start_application()
    plugin = system.start("tel", "wrong_plugin", "slow")
    plugin.err.expect(r"'init' of 'tel' ran for 2\.\d s: nothing else was done meanwhile$")
    assert application.running


def test_number_that_is_taken_is_said_with_its_holder(system):
    application = system.start_application()
    system.start_fxs("fxs1", lines=1)
    system.start_fxs("cellar1", lines=1)
    application.expect(r"^endpoint 1 cellar1\.FXS1 number=none ")
    application.expect(r"^endpoint 1 cellar1\.FXS1 has no number: 101 is taken by fxs1\.FXS1$")
    system.start_fxs("fxs9", lines=1)
    application.expect(r"^endpoint 2 fxs9\.FXS1 has no number: its name gives none, and the settings do not name it$")


def run(system, *words, stdin=subprocess.DEVNULL, environment=None):
    program, *arguments = words
    return subprocess.run(
        [system.bin / program, *arguments],
        env={**system.environment, **(environment or {})},
        stdin=stdin,
        capture_output=True,
        text=True,
        timeout=20,
    )


def settings(system, text):
    path = system.folder / "settings.conf"
    path.write_text(text)
    return path


@pytest.mark.parametrize(
    "text, row, why",
    [
        ('country DE\nnumber 10 FXS1 "Kitchen\n', 2, "a quote is not closed"),
        ("incoming 10\nnumber 11 FXS1\n", 1, "incoming: no line has this number"),
        ("number 10 FXS1 Front door\n", 1, "'door' is too much: a name with blanks stands in quotes"),
    ],
)
def test_settings_that_mean_something_else(system, text, row, why):
    path = settings(system, text)
    done = run(system, "voice_application", "--config", str(path))
    assert (done.returncode, done.stderr) == (1, f"error: {path}:{row}: {why}\n")
    assert done.stdout == ""


def test_settings_cut_anywhere(system):
    whole = 'country AT\nnumber 10 FXS1 "Front door"\nexchange 9 FXO2\nincoming 10\nports 40000-40003\n'
    for end in range(len(whole) + 1):
        path = settings(system, whole[:end])
        done = run(system, "voice_application", "--config", str(path))
        if done.returncode == 0:
            assert done.stdout.startswith("ready "), (whole[:end], done)
        else:
            assert done.returncode == 1 and done.stderr.startswith(
                f"error: {path}:{whole[:end].count(chr(10)) + 1}: "
            ), (whole[:end], done)


@pytest.mark.parametrize("where, why", [("/nowhere", "No such file or directory"), ("/dev/null", "Not a directory")])
def test_display_sound_into_nowhere(system, where, why):
    done = run(system, "fxs_plugin", "--display-wav", where)
    assert (done.returncode, done.stderr) == (2, f"error: --display-wav {where}: {why}\nTry --help.\n")


@pytest.mark.parametrize("plugin", ["fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"])
def test_no_application_and_no_input_is_status_one(system, plugin):
    done = run(system, plugin)
    assert done.returncode == 1
    assert re.search(f"^error: {NOBODY}$", done.stderr, re.M), done.stderr


def test_no_input_beside_an_application_is_status_zero(system):
    system.start_application()
    for _ in range(5):
        assert run(system, "fxs_plugin").returncode == 0


@pytest.mark.parametrize("way", ["--no-stdin", "--control"])
def test_without_input_it_goes_on_trying(system, way):
    words = [way] if way == "--no-stdin" else [way, system.folder / "control"]
    plugin = system.start_fxs("fxs1", *words, ready=False, environment=QUICK_RETRY)
    plugin.child.stdin.close()
    plugin.expect("^" + NOBODY + "$")
    system.start_application()
    plugin.expect("^ready ")
    assert plugin.terminate() == 0
