# SPDX-License-Identifier: MIT
"""Gives each test a voice system of its own, and shows what its processes said when the test fails."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "hosts" / "demo"), str(ROOT / "tests")]
from processes import System  # noqa: E402


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    if call.when == "call":
        item.failed = outcome.get_result().failed


@pytest.fixture
def system(request):
    with System() as one:
        yield one
        if getattr(request.node, "failed", False):
            print(one.report())
