#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a campaign makes of targets that go on, break, and do not start: programs in place of the real ones."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent

GOES_ON = """#!/usr/bin/python3
import signal, sys
def end(*_):
    print("#900\\tNEW    cov: 41 ft: 77 corp: 3/9b\\nstat::number_of_executed_units: 1234", file=sys.stderr)
    sys.exit(0)
signal.signal(signal.SIGUSR1, end)
while True:
    pass
"""
BREAKS = """#!/bin/sh
for word; do
    case $word in -artifact_prefix=*) echo broken >"${word#-artifact_prefix=}crash-1" ;; esac
done
echo "#7	NEW    cov: 5 ft: 6 corp: 1/1b" >&2
echo "does not hold: what must hold" >&2
exit 77
"""
DOES_NOT_START = "#!/bin/sh\necho 'what is this' >&2\nexit 1\n"


class Campaign(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def run_targets(self, **programs):
        for name, text in programs.items():
            path = self.root / f"fuzz_{name}"
            path.write_text(text, encoding="utf-8")
            path.chmod(0o755)
        return subprocess.run(
            [sys.executable, str(HERE / "campaign.py"), "--programs", str(self.root), "--work", str(self.root / "work")]
            + ["--seconds", "0.2", "--jobs", "2", *programs],
            capture_output=True,
            text=True,
            timeout=100,
            check=False,
        )

    def test_a_target_gets_its_time_and_ends_in_order(self):
        done = self.run_targets(good=GOES_ON)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        head, row = done.stdout.splitlines()
        self.assertEqual(head.split()[0], "target")
        target, seconds, executions, _, edges, features, findings = row.split()
        self.assertEqual((target, executions, edges, features, findings), ("good", "1234", "41", "77", "0"))
        self.assertRegex(seconds, r"^\d+$")

    def test_a_finding_fails_the_campaign_and_says_how_to_see_it_again(self):
        done = self.run_targets(good=GOES_ON, bad=BREAKS)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stdout, r"(?m)^good .* 0$")
        self.assertRegex(done.stdout, r"(?m)^bad .* 1$")
        self.assertIn("does not hold: what must hold", done.stdout)
        self.assertRegex(done.stdout, r"again: \S*fuzz_bad \S*findings/crash-1")

    def test_a_target_that_does_not_start_is_no_success(self):
        done = self.run_targets(broken=DOES_NOT_START)
        self.assertEqual(done.returncode, 1)
        self.assertIn("ended with 1", done.stdout)
        self.assertIn("what is this", done.stdout)


if __name__ == "__main__":
    unittest.main()
