# SPDX-License-Identifier: MIT
"""A page in Chromium without a window, steered through the browser's debugging pipe: no driver and no network."""

import json
import os
import select
import shutil
import subprocess
import time

PROGRAMS = ("chromium", "chromium-browser", "google-chrome")
WORDS = [
    "--headless",
    "--no-sandbox",
    "--disable-gpu",
    "--disable-dev-shm-usage",
    "--remote-debugging-pipe",
    "--no-first-run",
]
NAMED_KEYS = {
    "Enter": 13,
    "Escape": 27,
    "PageUp": 33,
    "PageDown": 34,
    "End": 35,
    "Home": 36,
    "ArrowUp": 38,
    "ArrowDown": 40,
}


def browser_path():
    return next(filter(None, map(shutil.which, PROGRAMS)), None)


class Browser:
    """One page. Messages go over two pipes, each ended by a zero byte."""

    def __init__(self, folder, limit=60):
        self.limit = limit
        self.number = 0
        self.rest = b""
        self.said = []  # what the page wrote to the console, errors and refusals by its policy among it
        theirs_in, self.out = os.pipe()
        self.into, theirs_out = os.pipe()
        # The browser reads from descriptor 3 and writes to 4.
        shell = 'exec 5<&"$1" 6>&"$2"; exec 3<&5 4>&6 5<&- 6>&-; shift 2; exec "$@"'
        words = [browser_path(), *WORDS, f"--user-data-dir={folder}", "about:blank"]
        self.process = subprocess.Popen(
            ["bash", "-c", shell, "bash", str(theirs_in), str(theirs_out), *words],
            pass_fds=(theirs_in, theirs_out),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": str(folder)},
        )
        os.close(theirs_in)
        os.close(theirs_out)
        self.session = None
        target = next(one for one in self.ask("Target.getTargets")["targetInfos"] if one["type"] == "page")
        self.session = self.ask("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.ask(f"{domain}.enable")
        self.size(1400, 900)

    def close(self):
        os.close(self.out)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.into)

    def read(self, end):
        while b"\0" not in self.rest:
            ready, _, _ = select.select([self.into], [], [], max(0, end - time.monotonic()))
            part = os.read(self.into, 1 << 20) if ready else b""
            assert part, "the browser does not answer"
            self.rest += part
        one, self.rest = self.rest.split(b"\0", 1)
        return json.loads(one)

    def take(self, message):
        what, more = message.get("method"), message.get("params", {})
        if what == "Runtime.exceptionThrown":
            self.said.append(json.dumps(more["exceptionDetails"]))
        elif what == "Runtime.consoleAPICalled":
            self.said.append(json.dumps(more["args"]))
        elif what == "Log.entryAdded":
            self.said.append(more["entry"]["text"])

    def ask(self, method, **more):
        self.number += 1
        message = {"id": self.number, "method": method, "params": more}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + self.limit
        while True:
            answer = self.read(end)
            if answer.get("id") == self.number:
                assert "error" not in answer, answer
                return answer["result"]
            self.take(answer)

    def run(self, script):
        """The value of an expression, of a promise what it becomes."""
        more = {"returnByValue": True, "awaitPromise": True, "allowUnsafeEvalBlockedByCSP": False}
        result = self.ask("Runtime.evaluate", expression=script, **more)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def open(self, address):
        """Until it is there, with two pictures drawn."""
        self.ask("Page.navigate", url=address)
        self.until(f"document.readyState === 'complete' && location.href === {json.dumps(address)}")
        self.pause()

    def until(self, script):
        end = time.monotonic() + self.limit
        while not self.run(script):
            assert time.monotonic() < end, f"never: {script}"

    def pause(self):
        self.run("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(1))))")

    def key(self, name):
        """Presses it: a character, or a name as scripts have it."""
        code = NAMED_KEYS.get(name)
        more = {"key": name, "windowsVirtualKeyCode": code} if code else {"key": name, "text": name}
        if name == "Enter":
            more["text"] = "\r"
        self.ask("Input.dispatchKeyEvent", type="keyDown", **more)
        self.ask("Input.dispatchKeyEvent", type="keyUp", key=name)
        self.pause()

    def type(self, text):
        for one in text:
            self.key(one)

    def size(self, width, height):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def scheme(self, name):
        self.ask("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])
        self.pause()
