# SPDX-License-Identifier: MIT
"""The page of voicectl ladder in a real browser: keys, filter, colours, pictures, and texts that would be markup."""

import base64
import json
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / "tool" / "tests")]
from browser import Browser, browser_path  # noqa: E402
from processes import System  # noqa: E402
from traffic_samples import evening, evening_of  # noqa: E402

pytestmark = pytest.mark.skipif(not browser_path(), reason="chromium is not installed")
AXE = [
    os.environ.get("AXE_CORE", ""),
    "/usr/share/javascript/axe-core/axe.min.js",
    "/usr/share/nodejs/axe-core/axe.min.js",
]
LEAST_CONTRAST = 4.5  # of text, WCAG 2.1 1.4.3
HOSTILE = [
    "</script><script>window.hit=1</script>",
    "<img src=x onerror='window.hit=1'>",
    '"><svg onload=window.hit=1>',
    "<!--<script>",
    "\u202eevil\u2066",
    "e" + "\u0301" * 10_000,
    "${window.hit=1}",
    "__proto__",
]


@pytest.fixture
def made(tmp_path):
    """A browser, and pages for it."""
    folder = tmp_path
    with System() as system:
        browser = Browser(folder / "browser")

        def show(whole, fragment=""):
            page = folder / f"{len(list(folder.iterdir()))}.html"
            words = [system.bin / "voicectl", "ladder", "-", "-w", page]
            subprocess.run(words, input=whole.file(), check=True, timeout=60, env=system.environment)
            browser.said.clear()
            browser.open(page.as_uri() + fragment)
            return browser

        yield show
        browser.close()


def chosen(browser):
    return browser.run("document.querySelector('.chosen')?.querySelector('.words').textContent ?? ''")


def value(browser, name):
    return browser.run(f"document.getElementById('{name}').textContent")


def whole_evening():
    whole = evening(8)
    whole.sound(100, missing={5, 6})
    return whole


def opens_without_a_word(made):
    for order in ("little", "big"):
        browser = made(evening(8, order=order))
        assert browser.said == []
        summary = value(browser, "summary")
        assert "1 error " in summary and "1 blocked caller " in summary and "slowest answer 3.0 s" in summary
        assert value(browser, "count") == f"{browser.run('rows.length')} messages"
        lanes = browser.run("[...document.querySelectorAll('#lanes text')].map(text => text.textContent)")
        assert lanes[:5] == ["FXS1", "fxs1", "voice_application", "dect1", "HS1"]


def keys_lead_everywhere(made):
    browser = made(whole_evening())
    for name, words in [
        ("ArrowDown", "connected"),
        ("j", "register_plugin"),
        ("p", "true answers register_plugin after 0.40 ms"),
        ("p", "register_plugin"),
        ("k", "connected"),
        ("e", "event is waited for"),
        ("e", "true answers event after 3.0 s"),
        ("e", "error 196640"),
        ("E", "true answers event"),
        ("Home", "connected"),
        ("End", "sound ends"),
    ]:
        browser.key(name)
        assert words in chosen(browser), name
    assert browser.run("document.getElementById('rows').getAttribute('aria-activedescendant')") == browser.run(
        "document.querySelector('.chosen').id"
    )
    assert browser.said == []


def enter_shows_what_a_message_carries(made):
    browser = made(whole_evening())
    browser.key("/")
    browser.type("andisp")
    browser.key("Enter")
    browser.key("Enter")
    table = browser.run("document.querySelector('.details').innerText")
    assert "801A010831313231313133380203313031070446585331030331303292" in table
    assert 'shows 101 "FXS1" at 11-21 11:38 for 102, checksum right' in table
    tops = "['.details', '.chosen'].map(name => document.querySelector(name).getBoundingClientRect().top)"
    below, row = browser.run(tops)
    assert below - row == pytest.approx(30, abs=1), "it stands below its row"
    heights = browser.run("[...document.querySelectorAll('.details tr')].map(line => line.offsetHeight)")
    assert len(heights) > 5 and max(heights) < 40, "a line each, as there is room"
    browser.key("Escape")
    places = "['#scroll', '.chosen', '.details'].map(name => document.querySelector(name).getBoundingClientRect())"
    screen, row, box = browser.run(f"{places}.map(one => [one.top, one.bottom])")
    assert screen[0] < row[0] and box[1] < screen[1], "it stays in sight without the filter"
    assert browser.run("document.querySelectorAll('mark').length") == 0
    browser.key("Enter")
    assert browser.run("document.querySelectorAll('.details').length") == 0


def sound_is_a_bar(made):
    browser = made(whole_evening())
    browser.key("End")
    browser.key("Enter")
    table = browser.run("document.querySelector('.details').innerText")
    assert re.search(r"lost\s+2\s+2\.0 %", table) and re.search(r"jitter\s+0\.0 ms", table)
    assert browser.run("document.querySelectorAll('rect.bar').length") >= 2


def filter_stands_in_the_address(made):
    browser = made(whole_evening())
    browser.key("/")
    browser.type("al_of -HS1")
    assert browser.run("location.hash") == "#q=al_of%20-HS1"
    assert value(browser, "count").startswith("8 of ")
    assert browser.run("[...document.querySelectorAll('mark')].every(mark => mark.textContent === 'al_of')")
    assert "HS1" not in value(browser, "lanes"), "lanes without messages are away"
    browser.key("Escape")
    assert browser.run("location.hash") == "" and value(browser, "count").endswith("messages")
    browser = made(whole_evening(), "#q=rtt%3E2&hide=events,nonsense")
    assert value(browser, "count").startswith("1 of ")
    assert browser.run("document.querySelector('[data-group=events]').getAttribute('aria-pressed')") == "false"
    browser.run("location.hash = '#q=nothing_like_it'")
    browser.pause()
    assert value(browser, "count").startswith("0 of ") and not browser.run("document.getElementById('nothing').hidden")
    assert browser.said == []


def text_is_a_text(made, text):
    whole = evening(1, names=(text, "dect1"))
    whole.event(("fxs_plugin", 200, 1), 1, 0x20090500)
    whole.call(
        ("fxs_plugin", 200, 1), ("voice_application", 100, 0), text, text, [(text, text)], errors=[(1, text, text)]
    )
    browser = made(whole)
    browser.key("End")
    browser.key("k")
    browser.key("Enter")
    assert browser.said == [] and browser.run("window.hit") is None
    assert browser.run("document.querySelectorAll('img, script, svg [onload]').length") == 2, "its data and its script"
    everything = browser.run("document.body.innerText + document.title")
    assert not re.search("[\u202a-\u202e\u2066-\u2069]|\u0301{4}", everything)
    if text.isascii():
        assert text in browser.run("document.querySelector('.details').textContent")
        ElementTree.fromstring(browser.run("pictureMake()"))


def policy_lets_no_markup_in(made):
    browser = made(evening(1))
    for attempt in ("document.body.innerHTML = '<b>'", "document.write('<b>')", "eval('1')", "new Function('1')"):
        assert browser.run(
            f"(() => {{ try {{ {attempt}; return 'done' }} catch (error) {{ return error.name }} }})()"
        ) in (
            "TypeError",
            "EvalError",
        ), attempt


def saved_picture_is_xml_in_light_colours(made):
    browser = made(whole_evening())
    for scheme in ("light", "dark"):
        browser.scheme(scheme)
        picture = browser.run("pictureMake()")
        root = ElementTree.fromstring(picture)
        texts = [node.text for node in root.iter("{http://www.w3.org/2000/svg}text")]
        assert {"FXS1", "voice_application", "message"} <= set(texts) and "al_ri" in texts
        assert "#12161c" not in picture and "--signal" in picture
    browser.scheme("light")


def channel(number):
    return number / 12.92 if number <= 0.03928 else ((number + 0.055) / 1.055) ** 2.4


def luminance(colour):
    parts = [channel(int(colour[at : at + 2], 16) / 255) for at in (1, 3, 5)]
    return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2]


def contrast(one, other):
    low, high = sorted((luminance(one), luminance(other)))
    return (high + 0.05) / (low + 0.05)


def text_can_be_read_in_both_schemes(made):
    browser = made(evening(1))
    grounds = {}
    names = ["ground", "card", "chosen", "text", "quiet", "signal", "event", "call", "reply", "error", "wait", "sound"]
    script = (
        f"{json.dumps(names)}.map(name => getComputedStyle(document.documentElement).getPropertyValue('--' + name))"
    )
    for scheme in ("light", "dark"):
        browser.scheme(scheme)
        values = [
            value if len(value) == 7 else "#" + "".join(2 * one for one in value[1:]) for value in browser.run(script)
        ]
        grounds[scheme] = browser.run("getComputedStyle(document.body).backgroundColor")
        for ground in values[:3]:
            for name, text in zip(names[3:], values[3:]):
                assert contrast(ground, text) >= LEAST_CONTRAST, (scheme, name, ground)
    browser.key("d")
    assert browser.run("getComputedStyle(document.body).backgroundColor") == grounds["light"] != grounds["dark"]
    browser.scheme("light")


def prints_every_row(made):
    browser = made(whole_evening())
    pdf = base64.b64decode(browser.ask("Page.printToPDF")["data"])
    assert pdf.startswith(b"%PDF")
    browser.run("dispatchEvent(new Event('beforeprint'))")
    assert browser.run("document.querySelectorAll('.row').length === rows.length")
    browser.run("dispatchEvent(new Event('afterprint'))")
    assert browser.run("document.querySelectorAll('.row').length < rows.length")


def only_rows_that_can_be_seen_are_there(made):
    browser = made(evening_of(20_000))
    assert value(browser, "count") == "20,000 messages"
    for key in ("End", "Home", "PageDown"):
        browser.key(key)
        assert browser.run("document.querySelectorAll('*').length") < 2000
        assert chosen(browser)
    assert browser.said == []


def without_scripts_there_is_a_text(made):
    browser = made(evening(1))
    text = browser.run("document.querySelector('noscript').textContent")
    assert "voice_application" in text and "al_ri ring" in text


def test_it_is_read_by_keys_and_by_filter(made):
    opens_without_a_word(made)
    keys_lead_everywhere(made)
    enter_shows_what_a_message_carries(made)
    sound_is_a_bar(made)
    filter_stands_in_the_address(made)
    only_rows_that_can_be_seen_are_there(made)


def test_texts_of_the_bus_are_texts(made):
    for text in HOSTILE:
        text_is_a_text(made, text)
    policy_lets_no_markup_in(made)


def test_it_is_seen_in_both_schemes_saved_and_printed(made):
    text_can_be_read_in_both_schemes(made)
    saved_picture_is_xml_in_light_colours(made)
    prints_every_row(made)
    without_scripts_there_is_a_text(made)


@pytest.mark.skipif(not any(map(os.path.isfile, AXE)), reason="axe-core is not installed (AXE_CORE names its file)")
def test_axe_finds_nothing(made):
    axe = Path(next(filter(os.path.isfile, AXE))).read_text(encoding="utf-8")
    browser = made(whole_evening())
    browser.ask("Page.setBypassCSP", enabled=True)
    browser.ask("Page.reload")
    browser.pause()
    for scheme in ("light", "dark"):
        browser.scheme(scheme)
        browser.key("ArrowDown")
        browser.key("Enter")
        browser.run(axe + ";1")
        found = browser.run(
            "axe.run().then(result => result.violations.map(one => [one.id, one.nodes.length, one.nodes[0].html]))"
        )
        assert found == [], scheme
    browser.ask("Page.setBypassCSP", enabled=False)
