# SPDX-License-Identifier: MIT
"""Gives each test a voice system of its own, and shows what its processes said when the test fails."""

import pytest

from processes import System


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
