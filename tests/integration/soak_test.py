# SPDX-License-Identifier: MIT
"""A short form of ./test soak: a whole house with accidents and strangers, the same actions each time, untimed."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "soak"))
from run import PARTS, Run  # noqa: E402

ACTIONS = 45  # with a rest among them, and one at the end


@pytest.mark.parametrize("part", PARTS)
def test_a_house_lives_through_accidents_and_strangers(part):
    run = Run(part, seed=1)
    figures = run.run(end=float("inf"), most=ACTIONS)
    assert run.number == ACTIONS
    assert figures["what", "calls completed"] > 0 and figures["what", "users' events, each once and in order"] > 0
    assert sum(number for (table, _), number in figures.items() if table == "kills") > 0


def test_a_seed_makes_the_same_actions_again():
    runs = [Run(part=2, seed=2), Run(part=2, seed=2), Run(part=2, seed=3)]
    for run in runs:
        run.run(end=float("inf"), most=12)
    assert runs[0].done == runs[1].done != runs[2].done
