# SPDX-License-Identifier: MIT
"""voicectl top and stats beside a running system: what they count, for people, programs and scrapers."""

import contextlib
import http.client
import json
import re
import select
import socket
import subprocess

import pytest

from dialling import start_telephones, talk
from processes import until
from terminal import Terminal
from tool_run import tool_run
from wire import APPLICATION, RawPeer

HOSTILE = b'\x1b[2J"\\\n\xe2\x80\xae\xff</script>'


def start(system, *words):
    """The tool, which counts everything from here on."""
    process = system.start("count", "voicectl", *words)
    process.err.expect("^voicectl: watching kex://ipc:")
    return process


def rows(line):
    """The counts of a line of JSON by plugin and endpoint."""
    return {(row["plugin"], row["endpoint"]): row for row in json.loads(line)["rows"]}


def metrics(exposition):
    """Value of each sample by its name and labels, as a parser of others reads them."""
    parser = pytest.importorskip("prometheus_client.parser", reason="python3-prometheus-client is not installed")
    found = {}
    for family in parser.text_string_to_metric_families(exposition):
        assert family.type != "unknown" and family.documentation
        for sample in family.samples:
            key = sample.name, *(value for _, value in sorted(sample.labels.items()))
            assert key not in found
            found[key] = sample.value
    return found


class Scraper(http.client.HTTPConnection):
    """HTTP over a local socket."""

    def __init__(self, path):
        super().__init__("localhost", timeout=20)
        self.path = str(path)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


def scrape(path, wanted="/metrics", method="GET"):
    """Status, type and text of an answer."""
    with contextlib.closing(Scraper(path)) as scraper:
        scraper.request(method, wanted)
        answer = scraper.getresponse()
        return answer.status, answer.headers["Content-Type"], answer.read().decode()


# --------------------------------------------------------------------------------------------------------------- top


def test_top_in_a_pipe_is_a_line_each_time(system):
    system.start_application()
    top = start(system, "top", "--interval", "0.1")
    start_telephones(system)
    top.out.expect(r"^\d\d:\d\d:\d\d  \d+\.\d messages/s  plugins [12]  waits 0  errors 0  lost 0  busiest fxs[12]")
    top.out.expect(r"^\d\d:\d\d:\d\d  0\.0 messages/s  plugins 2  waits 0  errors 0  lost 0$")
    assert top.terminate() == 0


def test_top_counts_what_passed(system):
    system.start_application()
    watcher = system.start_watcher()
    top = start(system, "top", "--json", "--interval", "0.1")
    first, second = start_telephones(system)
    talk(first, "201", second)

    def quiet():
        """All that the watcher has seen, once the counts are the same."""
        lines = [line for line in list(top.out.all) if line.startswith("{")]
        shown = {}
        for message in watcher.messages():
            ends = message["from"] if "connection" in message["from"] else message["to"]
            shown[ends.get("endpoint", "")] = shown.get(ends.get("endpoint", ""), 0) + 1
        counted = {}
        for (_, endpoint), row in rows(lines[-1]).items() if lines else ():
            counted[endpoint] = counted.get(endpoint, 0) + row["messages"]
        return sum(counted.values()) == sum(shown.values()) > 30 and counted

    counted = until("both saw the same", quiet)
    assert counted["FXS1"] > 5 and set(counted) <= {"", "FXS1", "FXS2"}
    assert top.terminate() == 0 and watcher.terminate() == 0


def test_top_shows_who_waits(system):
    application = system.start_application()
    first, _ = start_telephones(system)
    top = start(system, "top", "--json", "--interval", "0.1")
    first.freeze()
    application.tell("get 101 tdmc_gain")

    def waits():
        line = top.out.expect("^{").string
        row = rows(line).get(("fxs1", "FXS1"))
        return row and row["waits"] == 1 and row["longest_wait_s"] > 0.2

    until("the wait is shown", waits)
    first.thaw()
    until("it is over", lambda: json.loads(top.out.expect("^{").string)["waits"] == 0)
    assert top.terminate() == 0


def on_terminal(system, terminal, *words):
    screen = Terminal(79)
    top = screen.start(
        [system.bin / "voicectl", "top", "--interval", "0.1", *words],
        env={**system.environment, "TERM": terminal},
        stderr=subprocess.PIPE,
    )
    with contextlib.closing(top.stderr):
        top.stderr.readline()
        with RawPeer.connect(system.socket) as peer:
            peer.register("fxs1")
            until("it is shown", lambda: b"fxs1 " in screen.written and screen.written.count(b"messages/s") > 4)
        top.terminate()
        assert top.wait(20) == 0
    return screen.finish().decode()


def test_top_on_a_terminal_stays_in_its_place(system):
    system.start_application()
    shown = on_terminal(system, "xterm")
    tables = re.split(r"\x1b\[(\d+)A\r\x1b\[J", shown)
    assert len(tables) > 4
    for table, up in zip(tables[0::2], tables[1::2]):
        lines = table.split("\r\n")
        assert len(lines) - 1 == int(up), "it goes back over all of the table before"
        assert all(len(line) <= 78 for line in lines[1:]) and lines[1].startswith("PLUGIN ")
    assert "\x1b" not in on_terminal(system, "dumb")


@pytest.mark.parametrize("command", ["top", "stats"])
def test_shortest_run_looks_once(system, command):
    status, _, err = tool_run(system, command, "--for", "1e-9")
    assert status == 1 and err.startswith(f"voicectl: no socket {system.socket}: is voice_application running?")
    system.start_application()
    assert tool_run(system, command, "--for", "1e-9")[0] == 0


def test_nobody_there_and_gone_in_the_middle(system):
    for words in (["top"], ["stats"], ["tree"]):
        status, out, err = tool_run(system, *words)
        assert (status, out) == (1, "") and "is voice_application running?" in err
    application = system.start_application()
    top, stats = start(system, "top"), start(system, "stats", "--prometheus")
    staying = start(system, "top", "--reconnect", "--interval", "0.1")
    application.kill()
    for process in (top, stats):
        assert process.wait() == 0
        process.err.expect("^voicectl: the voice application is gone$")
    assert metrics("\n".join(stats.out.all) + "\n")["voice_up",] == 0
    staying.out.expect("  not connected$")
    system.start_application()
    staying.err.expect("^voicectl: watching ")
    assert staying.terminate() == 0


def test_reader_that_leaves_ends_them(system):
    system.start_application()
    for words in (["top", "--interval", "0.1"], ["stats", "--for", "0.3"], ["tree"]):
        read, write = socket.socketpair()
        read.close()
        with write:
            status, _, _ = tool_run(system, *words, output=write)
        assert status == 1, words
    with open("/dev/full", "w", encoding="ascii") as full:
        for words in (["top", "--count", "1"], ["stats", "--for", "0.1"], ["tree"]):
            assert tool_run(system, *words, output=full)[0] == 1


# ------------------------------------------------------------------------------------------------------------- stats


def test_stats_in_its_three_forms_says_the_same(system):
    system.start_application()
    forms = [start(system, "stats", *form) for form in ([], ["--json"], ["--prometheus"])]
    watcher = system.start_watcher()
    _, second = start_telephones(system)
    assert second.terminate() == 0
    until("it is gone", lambda: watcher.messages(kind="closed"))
    for process in forms:
        assert process.terminate() == 0
    counted = rows(forms[1].out.all[-1])
    assert counted["fxs1", "FXS1"]["connected"] and not counted["fxs2", "FXS1"]["connected"]
    table = "\n".join(forms[0].out.all)
    samples = metrics("\n".join(forms[2].out.all) + "\n")
    assert samples["voice_up",] == 1 and samples["voice_plugins",] == 1
    for (plugin, endpoint), row in counted.items():
        assert re.search(rf"^{plugin} +{endpoint or '-'} +\S+ +{row['messages']} +0 +- +0 ", table, re.MULTILINE)
        for name, field in [
            ("voice_messages_total", "messages"),
            ("voice_message_bytes_total", "bytes"),
            ("voice_answer_seconds_count", "answers"),
            ("voice_errors_total", "errors"),
            ("voice_waiting_calls", "waits"),
        ]:
            assert samples[name, endpoint, plugin] == row[field]
        classes = [
            value
            for key, value in samples.items()
            if key[0] == "voice_answer_seconds_bucket" and key[1] == endpoint and key[3] == plugin
        ]
        assert classes == sorted(classes) and classes[-1] == row["answers"] and len(classes) == 7


def test_scraper_sees_the_application_come_and_go(system):
    path = system.folder / "metrics"
    stats = system.start("count", "voicectl", "stats", "--prometheus", "--listen", path)
    stats.err.expect(f"^voicectl: metrics at {path}$")

    def up(value):
        return lambda: metrics(scrape(path)[2])["voice_up",] == value

    until("nobody is there", up(0))
    application = system.start_application()
    until("it is there", up(1))
    with RawPeer.connect(system.socket) as peer:
        assert peer.register("fxs1")
        until(
            "the call is counted", lambda: metrics(scrape(path)[2]).get(("voice_answer_seconds_count", "", "fxs1")) == 1
        )
    application.kill()
    until("it is gone", up(0))
    system.start_application()
    until("it is back", up(1))
    assert metrics(scrape(path)[2])["voice_answer_seconds_count", "", "fxs1"] == 1, "counters go on"
    assert stats.terminate() == 0 and not path.exists()


def test_scrapers_that_do_not_keep_to_http(system):
    path = system.folder / "metrics"
    with socket.socket(socket.AF_UNIX) as left:  # one that is left from a process that was killed is taken over
        left.bind(str(path))
    stats = system.start("count", "voicectl", "stats", "--prometheus", "--listen", path)
    stats.err.expect("^voicectl: metrics at ")
    status, kind, exposition = scrape(path, "/")
    assert (status, kind) == (200, "text/plain; version=0.0.4; charset=utf-8") and exposition.endswith("\n")
    assert scrape(path, "/metrics?a=b")[0] == 200
    assert scrape(path, "/other")[0] == 404 and scrape(path, method="POST")[0] == 405
    assert path.stat().st_mode & 0o777 == 0o660
    idle = []
    for _ in range(7):
        idle.append(socket.socket(socket.AF_UNIX))
        idle[-1].connect(str(path))
        idle[-1].send(b"GET ")
    with contextlib.ExitStack() as stack:
        for one in idle:
            stack.enter_context(one)
        assert scrape(path)[0] == 200, "those who say nothing hold nobody up"
        late, eighth = (stack.enter_context(socket.socket(socket.AF_UNIX)) for _ in range(2))
        eighth.connect(str(path))
        late.connect(str(path))
        late.send(b"GET / HTTP/1.0\r\n\r\n")
        assert not select.select([late], [], [], 0.1)[0], "eight at a time"
        eighth.close()
        late.settimeout(20)
        assert b" 200 " in late.recv(1000)
        idle[0].settimeout(20)
        idle[0].send(b"x" * 9000)
        assert b" 431 " in idle[0].recv(1000)
        idle[1].close()
        assert scrape(path)[0] == 200
    status, _, err = tool_run(system, "stats", "--prometheus", "--listen", path)
    assert status == 1 and err == f"voicectl: cannot listen on '{path}': Address already in use\n"
    assert stats.terminate() == 0
    path.write_text("mine")
    status, _, err = tool_run(system, "stats", "--prometheus", "--listen", path)
    assert status == 1 and "File exists" in err and path.read_text() == "mine"


def test_names_of_peers_steer_nothing(system):
    system.start_application()
    counting = [start(system, *words) for words in (["stats", "--prometheus"], ["stats", "--json"], ["stats"])]
    lines = start(system, "top", "--interval", "0.1")
    with RawPeer.connect(system.socket) as peer:
        peer.register(HOSTILE.decode(errors="surrogateescape"))
        peer.call(APPLICATION, "nothing", [(HOSTILE, "x")])
        lines.out.expect("busiest ")
    for process in (*counting, lines):
        assert process.terminate() == 0
        assert not re.search("[\x1b\u202e\ufffd]", "\n".join(process.out.all + process.err.all))
    # As it is shown on a terminal, too.
    name = '\\x1B[2J"\\\\\\x0A\\xE2\\x80\\xAE\\xFF</script>'
    samples = metrics("\n".join(counting[0].out.all) + "\n")
    assert samples["voice_errors_total", "", name] == 1
    assert rows(counting[1].out.all[-1])[name, ""]["errors"] == 1


@pytest.mark.parametrize("command", ["top", "stats"])
def test_examples_of_the_help_work(system, command):
    system.start_application()
    _, told, _ = tool_run(system, command, "--help")
    examples = re.findall(r"^(?:Examples?:)? *voicectl (.*)$", told, re.MULTILINE)
    assert examples
    for example in examples:
        status, out, _ = tool_run(system, *example.split())
        assert status == 0 and out, example


@pytest.mark.parametrize(
    "words, sentence",
    [
        (["top", "--interval", "0"], "--interval is a number of seconds above 0, 31536000 at most, not '0'"),
        (["top", "--interval", "0.01"], "--interval is 0.1 s at least"),
        (["stats", "--json", "--prometheus"], "--json and --prometheus do not go together"),
        (["stats", "--listen", "x"], "--listen wants --prometheus"),
        (["tree", "--control", ""], "--control is a path of 1 to 107 characters, not ''"),
    ],
)
def test_wrong_command_lines_are_said(system, words, sentence):
    assert tool_run(system, *words) == (2, "", f"voicectl: {sentence}. Try voicectl {words[0]} --help.\n")
