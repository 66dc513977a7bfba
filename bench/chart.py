# SPDX-License-Identifier: MIT
"""A chart of what was measured: for each row with a goal, how much of the goal ours takes. Below 1 it is met."""

import subprocess

import pygal

STYLE = pygal.style.Style(background="white", plot_background="white", font_family="sans-serif", colors=("#1f77b4",))
ROW_HEIGHT = 28
MET, MISSED = "#2ca02c", "#d62728"


def write(path, results):
    """Writes it, and looks by programs of others whether it is one."""
    rows = [result for result in results if result.goal is not None]
    chart = pygal.HorizontalBar(
        width=1100,
        height=160 + ROW_HEIGHT * len(rows),
        show_legend=False,
        print_values=True,
        print_values_position="top",
        value_formatter=lambda value: f"{value:.2f}",
        truncate_label=-1,
        js=[],
        style=STYLE,
        title="Ours as a part of the goal: 1 is the most that it may take",
    )
    # The first row of the table is to stand at the top.
    rows = rows[::-1]
    chart.x_labels = [f"{row.what} : {row.peer}" for row in rows]
    values = [max(row.by_least / row.goal, 0) for row in rows]
    chart.add("part of the goal", [{"value": v, "color": MET if r.is_met else MISSED} for v, r in zip(values, rows)])
    path.write_text(chart.render(is_unicode=True), encoding="utf-8")
    for judge in (["xmllint", "--noout", path], ["rsvg-convert", path]):
        subprocess.run(judge, check=True, stdout=subprocess.DEVNULL)
