# SPDX-License-Identifier: MIT
"""Every tone of every country in its samples, judged by others: by numpy for frequency, level and cadence, against the
written tables; by spandsp for the cadence; the table by libtonezone."""

import ctypes

import pytest

from processes import default_bin
from tone_errors import errors
from tones import COUNTRIES, page, render, sources, tone

WORDS = {  # of the page of the line, and as a telephone says it
    "dial": "dial-tone",
    "ringing": "ring-back",
    "busy": "busy-tone",
    "congestion": "congestion-tone",
    "special-information": "sit-tone",
    "warning": "warning-tone",
    "payphone": "payphone-tone",
    "call-waiting": "call-waiting-tone",
    "caller-waiting": "caller-waiting-tone",
    "confirmation": "conference-tone",
    "held": "held-tone",
    "message-waiting": "message-waiting-tone",
}
MOST_HZ, MOST_MS, MOST_DB = 0.5, 1.0, 0.3


@pytest.fixture(scope="module")
def table():
    """The written tone of each country and word."""
    return {(country, WORDS[name]): text for (country, name), text in page().items()}


@pytest.fixture
def rendered(tmp_path):
    """Renders the tones that have these words, all of them without."""
    return lambda *words: render(default_bin() / "tone_render", tmp_path, words)


# ---------------------------------------------------------------------------------------------------------- the tables


def test_the_page_has_what_tables_have(table):
    assert len(table) == len(COUNTRIES) * len(WORDS)
    for key, text in sources().items():
        assert table[key] == text, key


def test_frequency_cadence_and_level_are_those_of_the_table(table, rendered):
    numpy = pytest.importorskip("numpy", reason="python3-numpy is not installed")
    samples, said = rendered()
    assert set(samples) == set(table)
    worst = {country: [(0.0, ""), (0.0, ""), (0.0, "")] for country in COUNTRIES}
    known = {}  # many countries share a tone, to the sample
    for (country, word), text in table.items():
        key = text, samples[country, word].tobytes()
        if key not in known:
            known[key] = errors(numpy, samples[country, word], text)
        for place, error in enumerate(known[key]):
            worst[country][place] = max(worst[country][place], (float(error), word))
    for country in sorted(COUNTRIES, key=lambda one: -max(worst[one][0][0] / MOST_HZ, worst[one][2][0] / MOST_DB)):
        hertz, ms, db = worst[country]
        print(f"{country}: {hertz[0]:.3f} Hz {hertz[1]}, {ms[0]:.3f} ms {ms[1]}, {db[0]:.3f} dB {db[1]}")
    for country, (hertz, ms, db) in worst.items():
        assert hertz[0] <= MOST_HZ and ms[0] <= MOST_MS and db[0] <= MOST_DB, country
    check_errors_are_noticed(numpy, samples["DE", "busy-tone"], samples["GB", "message-waiting-tone"])
    check_names(table, said)


def check_errors_are_noticed(numpy, samples, joined):
    """The measures themselves: another frequency, another length, another level."""
    assert errors(numpy, samples, "426/480,0/480")[0] == pytest.approx(1, abs=0.1)
    assert errors(numpy, samples, "425/478,0/482")[1] == pytest.approx(2, abs=0.2)
    assert errors(numpy, samples, "425@1/480,0/480")[2] == pytest.approx(1, abs=0.05)
    with pytest.raises(AssertionError, match="bursts, not"):
        errors(numpy, samples, "425/1000,0/4000")
    assert errors(numpy, joined, "350+440/748,440/752")[1] == pytest.approx(2, abs=0.3)


def check_names(table, heard):
    """What the telephone says are the tone's name and others, in the end its own and its equals'."""
    for (country, word), text in table.items():
        equals = [other for other in WORDS.values() if table[country, other] == text]
        said = heard[country, word]
        assert said and said[-1].split(" or ") == equals, (country, word, said)
        for one in said:
            assert word in one.split(" or "), (country, word, said)


# ------------------------------------------------------------------------------------------------------------- spandsp

PARTED = ["dial-tone", "ring-back", "busy-tone", "congestion-tone", "sit-tone"]
NEAR_MS = 25  # spandsp looks at steps of 16 ms
# Sums whose two frequencies are one to its filters of 62.5 Hz, as is 425 Hz with those of Australia's dial tone.
ONE_TO_IT = {("GB", "ring-back"), ("AU", "ring-back"), ("AU", "dial-tone")}


def cadence(text):
    """What spandsp tells apart: no levels, and of what is the same twice one."""
    elements = [(element.frequencies, element.ms) for element in tone(text).elements]
    half = len(elements) // 2
    return elements[:half] if elements[:half] == elements[half:] else elements


class SuperTone:
    """spandsp's detector of tones by cadence, taught the tones of a country."""

    REPORT = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, ctypes.c_int, ctypes.c_int)

    def __init__(self, tones):
        try:
            self.spandsp = ctypes.CDLL("libspandsp.so.2")
        except OSError:
            pytest.skip("libspandsp2 is not installed")
        for name in ("make_descriptor", "init"):
            getattr(self.spandsp, f"super_tone_rx_{name}").restype = ctypes.c_void_p
        self.descriptor = ctypes.c_void_p(self.spandsp.super_tone_rx_make_descriptor(None))
        for text in tones:
            number = self.spandsp.super_tone_rx_add_tone(self.descriptor)
            for element in tone(text).elements:
                first, second = (*element.frequencies, 0, 0)[:2]
                if element.modulates:
                    second = 0
                least, most = (element.ms - NEAR_MS, element.ms + NEAR_MS) if element.ms else (1500, 0)
                self.spandsp.super_tone_rx_add_element(self.descriptor, number, first, second, least, most)
        self.reported = []
        self.report = self.REPORT(lambda _, code, level, delay: self.reported.append(code))
        self.state = ctypes.c_void_p(self.spandsp.super_tone_rx_init(None, self.descriptor, self.report, None))

    def hear(self, samples):
        """The tones that it reports, in turn."""
        native = samples.astype("=i2")
        pointer = native.ctypes.data_as(ctypes.c_void_p)
        self.spandsp.super_tone_rx(self.state, pointer, len(native))
        return [code for code in self.reported if code >= 0]

    def close(self):
        self.spandsp.super_tone_rx_free(self.state)
        self.spandsp.super_tone_rx_free_descriptor(self.descriptor)


def test_spandsp_finds_the_same_cadence(table, rendered):
    samples, _ = rendered(*PARTED)
    for country in COUNTRIES:
        words = [word for word in PARTED if (country, word) not in ONE_TO_IT]
        tones = [table[country, word] for word in words]
        for word in words:
            other = SuperTone(tones)
            found = other.hear(samples[country, word])
            other.close()
            # A long burst is a dial tone to it, until the cadence shows.
            equals = [place for place, text in enumerate(tones) if cadence(text) == cadence(table[country, word])]
            assert found and found[-1] in equals, (country, word, found)


# --------------------------------------------------------------------------------------------------------- libtonezone


class Sound(ctypes.Structure):
    _fields_ = [("tone", ctypes.c_int), ("data", ctypes.c_char * 256)]


class Zone(ctypes.Structure):
    """A country of libtonezone 3: up to 16 lengths of rings and 16 tones."""

    _fields_ = [
        ("zone", ctypes.c_int),
        ("country", ctypes.c_char * 10),
        ("description", ctypes.c_char * 40),
        ("ring", ctypes.c_int * 16),
        ("tones", Sound * 16),
    ]


NUMBERS = {
    "dial-tone": 0,
    "busy-tone": 1,
    "ring-back": 2,
    "congestion-tone": 3,
    "call-waiting-tone": 4,
    "warning-tone": 6,
    "sit-tone": 7,
    "message-waiting-tone": 10,
}
ONCE = "it is played once there"
DIFFERENT = {
    ("FR", "sit-tone"): ONCE,
    ("US", "sit-tone"): ONCE,
    ("IT", "sit-tone"): "it is played three times there",
    ("JP", "sit-tone"): ONCE,
    ("BR", "sit-tone"): "there is no pause there",
    ("GB", "sit-tone"): "there are pauses of 15 ms between the three there; other makers have none",
    ("SE", "sit-tone"): "332 ms with pauses of 24 ms, five times, there",
    ("ES", "sit-tone"): "the first of the three alone there",
    ("AU", "sit-tone"): "another tone there",
    ("DE", "call-waiting-tone"): "the national text has another pause at its begin",
    ("GB", "congestion-tone"): "it has no levels; other makers have the second burst louder",
    ("AU", "congestion-tone"): "its level is not written out",
    ("AU", "dial-tone"): "415+440 there; the supplement has both",
    ("AU", "ring-back"): "the national text has other frequencies",
    ("AU", "call-waiting-tone"): "the first burst is shorter there; sources differ",
    ("JP", "ring-back"): "a sum with 15 Hz there, where the supplement means modulation",
    ("JP", "call-waiting-tone"): "a sum with 16 Hz there, where the supplement means modulation",
}


def ordered(text):
    """A pattern with the lower frequency of a sum first."""
    parts = []
    for part in text.split(","):
        mark, rest = ("!", part[1:]) if part.startswith("!") else ("", part)
        sum_of, slash, ms = rest.partition("/")
        parts.append(mark + "+".join(sorted(sum_of.split("+"), key=lambda one: (len(one), one))) + slash + ms)
    return ",".join(parts)


def test_libtonezone_has_the_same_table(table):
    """Its source is that of many tables, so that this is no proof; what differs is known, with the reason."""
    try:
        library = ctypes.CDLL("libtonezone.so.2")
    except OSError:
        pytest.skip("libtonezone2.0 is not installed")
    library.tone_zone_find.restype = ctypes.POINTER(Zone)
    for country in COUNTRIES:
        zone = library.tone_zone_find({"GB": "uk"}.get(country, country.lower()).encode()).contents
        theirs = {sound.tone: sound.data.decode() for sound in zone.tones if sound.data}
        for word, number in NUMBERS.items():
            same = ordered(theirs[number]) == ordered(table[country, word])
            reason = DIFFERENT.get((country, word))
            assert same == (reason is None), (country, word, theirs[number], table[country, word], reason)
