# SPDX-License-Identifier: MIT
"""voicectl, run to its end."""

import subprocess

LIMIT = 30  # seconds; none takes a tenth of it


def tool_run(system, *words, before=(), output=subprocess.PIPE, **options):
    """Its status, output and errors. `before` are words of a program that starts it; `input` may be text or bytes."""
    given = options.pop("input", None)
    done = subprocess.run(
        [*before, system.bin / "voicectl", *words],
        env=system.environment,
        input=given.encode() if isinstance(given, str) else given,
        stdout=output,
        stderr=subprocess.PIPE,
        timeout=LIMIT,
        check=False,
        **options,
    )
    return done.returncode, (done.stdout or b"").decode(), done.stderr.decode()
