#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The installed completion in the shells that it is for: each offers what the programs take. A shell that is not
installed is left out."""

import fcntl
import os
import pty
import re
import shutil
import subprocess
import tempfile
import termios
import threading
import time
import unittest
from pathlib import Path

from staged import BIN, LIMIT, PROGRAMS, SOURCE, STAGE, clean_environment, run

BASH_COMPLETION = Path("/usr/share/bash-completion/bash_completion")
OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][\w-]*")
SHARE = STAGE / "share"

# A command line up to where Tab is pressed: what must be offered, and what must not.
OFFERED = [
    ("voicectl ", {"watch", "capture", "doctor", "tree", "top", "stats", "ids", "params", "block"}, {"FXS1", "al_of"}),
    ("voicectl wat", {"watch"}, {"capture"}),
    ("voicectl watch --direction ", {"in", "out", "both"}, {"--json"}),
    ("voicectl watch --package ", {"al", "cg", "zil"}, {"al_of"}),
    ("voicectl watch -k al c", {"cg", "callsrv"}, {"al"}),
    ("voicectl watch --function re", {"register_plugin", "register_endpoint", "remove_stream"}, {"event"}),
    ("voicectl ids al_", {"al_of", "al_ri_cad"}, {"cg_dt"}),
    ("voicectl ladder --output ", {"html", "svg", "mermaid", "text"}, {"--write"}),
    ("voicectl params --as ", {"buffer", "signal", "event", "set"}, {"al_of"}),
    ("voicectl params --write andisp_d", {"andisp_data", "andisp_dwa"}, {"al_of"}),
    ("voicectl block --lamp ", {"on", "off"}, {"in"}),
    ("voicectl capture -o ca", {"calls.pcapng"}, {"other"}),
    ("fxs_plugin --display-modem ", {"v23", "bell202"}, {"--name"}),
    ("fxs_plugin --codecs PCM", {"PCMA", "PCMU"}, set()),
    ("fxs_plugin --media-file ca", {"calls.pcapng"}, {"other"}),
    ("voicectl capture --media-from other ca", {"calls.pcapng"}, {"other"}),
    ("fxs_plugin --control ca", {"calls.pcapng"}, {"other"}),
    ("kex_conformance ca", {"calls.pcapng"}, {"--only"}),
]

BASH = """
source "$1"
line=$2
read -ra COMP_WORDS <<<"$line"
[[ $line != *' ' ]] || COMP_WORDS+=('')
COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_LINE=$line COMP_POINT=${#line}
_completion_loader "${COMP_WORDS[0]}"
$(complete -p "${COMP_WORDS[0]}" | sed 's/.*-F \\([^ ]*\\) .*/\\1/')
printf '%s\\n' "${COMPREPLY[@]}"
"""

# Writes down what is added as a match instead of showing it; "==" ends the matches of one line.
ZSH = """
PS1='%% ' fpath=({folders} $fpath)
autoload -Uz compinit && compinit -u -d {dump}
compadd() {{
    case " $* " in *' -O '*|*' -A '*|*' -D '*) builtin compadd "$@"; return ;; esac
    local -a words
    builtin compadd -A words "$@"
    print -rl -- $words >>{found}
    builtin compadd "$@"
}}
listed() {{ _main_complete; print '==' >>{found} }}
zle -C listed list-choices listed
setopt no_beep no_always_last_prompt no_list_beep
LISTMAX=100000
bindkey -e
bindkey '^I' listed
print '==' >>{found}
"""


def options_of(program, *subcommand):
    """All that its help names as one."""
    return set(OPTION.findall(run(BIN / program, *subcommand, "--help")))


def subcommands():
    listed = run(BIN / "voicectl", "--help").partition("Subcommands:")[2]
    return re.findall(r"^  ([a-z]+) ", listed, re.MULTILINE)


def questions():
    """Every command of every program with a dash: all of its options; then the table above."""
    for program in PROGRAMS:
        yield f"{program} --", {one for one in options_of(program) if one.startswith("--")}, {"watch"}
    for name in subcommands():
        told = options_of("voicectl", name)
        yield f"voicectl {name} --", {one for one in told if one.startswith("--")}, {"watch"}
    yield from OFFERED


class Install(unittest.TestCase):
    def setUp(self):
        self.maxDiff = None
        folder = tempfile.TemporaryDirectory(prefix="voice-completion-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name in ("calls.pcapng", "other"):
            (self.folder / name).touch()
        self.environment = clean_environment(
            HOME=str(self.folder),
            TERM="dumb",
            XDG_DATA_DIRS=f"{SHARE}:/usr/share",
        )
        self.environment["PATH"] = f"{BIN}:{self.environment['PATH']}"

    def expect_offers(self, ask):
        for line, wanted, unwanted in questions():
            with self.subTest(line):
                offered = {word.rstrip("=") for word in ask(line)}
                self.assertEqual((wanted - offered, unwanted & offered), (set(), set()), sorted(offered))

    def test_completion_is_that_of_the_programs(self):
        run(SOURCE / "docs/completion.py", "--check", BIN)

    @unittest.skipUnless(BASH_COMPLETION.exists(), "bash-completion is not installed")
    def test_completion_bash(self):
        def ask(line):
            words = ["bash", "--norc", "-c", BASH, "bash", BASH_COMPLETION, line]
            return run(*words, environment=self.environment, cwd=self.folder).splitlines()

        self.expect_offers(ask)
        # As bash takes --direction=i apart.
        self.assertEqual(ask("voicectl watch --direction = i"), ["in"])

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_completion_fish(self):
        def ask(line):
            words = ["fish", "--no-config", "-c"]
            where = f"set -p fish_complete_path '{SHARE}/fish/vendor_completions.d'; "
            script = f'{where} complete -C "{line}"'
            told = run(*words, script, environment=self.environment, cwd=self.folder)
            return [row.partition("\t")[0] for row in told.splitlines()]

        self.expect_offers(ask)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_completion_zsh(self):
        found = self.folder / "found"
        folders = [SHARE / "zsh/site-functions", SHARE / "zsh/vendor-completions"]
        setup = self.folder / "setup"
        setup.write_text(ZSH.format(folders=" ".join(map(str, folders)), dump=self.folder / "dump", found=found))
        with Zsh(self.environment, self.folder) as shell:
            shell.type(f"source {setup}\n")
            self.answers(found, 1)

            def ask(line):
                before = len(self.answers(found, 1))
                shell.type(f"{line}\t")
                offered = self.answers(found, before + 1)[before - 1]
                shell.type("\x15")  # clears the line
                return offered

            self.expect_offers(ask)

    def answers(self, found, count):
        """What zsh has added to each line so far, once that are so many."""
        end = time.monotonic() + LIMIT
        while True:
            parts = found.read_text().split("==\n") if found.exists() else [""]
            if len(parts) > count:
                return [part.split() for part in parts[1:]]
            self.assertLess(time.monotonic(), end, "zsh does not answer")
            time.sleep(0.005)


class Zsh:
    """An interactive zsh, whose terminal is read and thrown away."""

    def __init__(self, environment, folder):
        self._ours, theirs = pty.openpty()
        self._child = subprocess.Popen(
            ["zsh", "-f", "-i"],
            env=environment,
            cwd=folder,
            stdin=theirs,
            stdout=theirs,
            stderr=theirs,
            start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )
        os.close(theirs)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._child.kill()
        self._child.wait()
        self._reader.join(LIMIT)
        os.close(self._ours)

    def _read(self):
        try:
            while os.read(self._ours, 65536):
                pass
        except OSError:  # so a terminal ends when its process has
            pass

    def type(self, text):
        os.write(self._ours, text.encode())


if __name__ == "__main__":
    unittest.main()
