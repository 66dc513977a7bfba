# SPDX-License-Identifier: MIT
"""A chart of what processes took: resident size above, descriptors below, a line for each process, by minutes."""

import subprocess

import pygal

WIDTH, HEIGHT = 1200, 600  # of each of the two
COLOURS = "#d62728 #1f77b4 #2ca02c #ff7f0e #9467bd #8c564b #e377c2 #7f7f7f #bcbd22 #17becf #000000".split()
STYLE = pygal.style.Style(background="white", plot_background="white", font_family="sans-serif", colors=COLOURS)


def one(title, unit, kind, lives_by_name):
    chart = pygal.XY(
        width=WIDTH,
        height=HEIGHT,
        show_dots=False,
        allow_interruptions=True,
        include_x_axis=True,
        truncate_legend=-1,
        js=[],
        style=STYLE,
        title=title,
        x_title="minutes",
        y_title=unit,
    )
    for name, lives in lives_by_name.items():
        points = []
        for life in lives:
            points += [(sample.at / 60, getattr(sample, kind)) for sample in life] + [(life[-1].at / 60, None)]
        chart.add(name, points)
    return chart.render(is_unicode=True, disable_xml_declaration=True)


def write(path, samples):
    """Writes it, and looks by programs of others whether it is one."""
    parts = [
        one("Resident size", "KiB", "resident", samples.lives),
        one("Descriptors", "open", "descriptors", samples.lives),
    ]
    placed = (
        part.replace("<svg ", f'<svg y="{place * HEIGHT}" width="{WIDTH}" height="{HEIGHT}" ', 1)
        for place, part in enumerate(parts)
    )
    head = f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT * len(parts)}">'
    path.write_text(f"{head}{''.join(placed)}</svg>\n", encoding="utf-8")
    for judge in (["xmllint", "--noout", path], ["rsvg-convert", path]):
        subprocess.run(judge, check=True, stdout=subprocess.DEVNULL)
