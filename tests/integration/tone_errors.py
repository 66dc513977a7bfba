# SPDX-License-Identifier: MIT
"""How far samples are from a written tone: frequency and level by Fourier transform and least squares, lengths by where
sound begins, ends and changes. The first argument is the module numpy, which not every machine has."""

from tones import PEAK, RATE, timeline, tone

SIDE_BAND = -6.02  # dB beside the carrier, at full modulation
SILENT_MS = 3  # zeros for as long are a pause


def bursts(numpy, samples):
    """First and last sample of each run of sound."""
    sounding = numpy.flatnonzero(samples)
    cuts = numpy.flatnonzero(numpy.diff(sounding) > SILENT_MS * RATE // 1000)
    begins = [sounding[0], *sounding[cuts + 1]]
    ends = [*sounding[cuts], sounding[-1]]
    return list(zip(map(int, begins), map(int, ends)))


def model(numpy, frequencies, count):
    turns = 2 * numpy.pi * numpy.outer(numpy.arange(count), frequencies) / RATE
    return numpy.hstack([numpy.cos(turns), numpy.sin(turns)])


def peaks(numpy, samples, count):
    """The frequencies of the highest peaks of the spectrum, or fewer, where it shows no more."""
    size = 1 << 17
    power = numpy.abs(numpy.fft.rfft(samples * numpy.hanning(len(samples)), size))
    found = []
    top = numpy.flatnonzero((power[1:-1] > power[:-2]) & (power[1:-1] >= power[2:])) + 1
    for place in sorted(top, key=lambda one: -power[one]):
        if len(found) < count and power[place] > 0.1 * power[top].max():
            found.append(place * RATE / size)
    return sorted(found)


def fitted(numpy, samples, frequencies):
    """Frequencies and amplitudes of so many sines, by least squares, from a first guess on (Gauss and Newton)."""
    frequencies = numpy.array(frequencies, float)
    time = numpy.arange(len(samples)) / RATE
    for _ in range(20):
        base = model(numpy, frequencies, len(samples))
        parts = numpy.linalg.lstsq(base, samples, rcond=None)[0]
        count = len(frequencies)
        cosine, sine = parts[:count], parts[count:]
        slopes = 2 * numpy.pi * time[:, None] * (sine * base[:, :count] - cosine * base[:, count:])
        solved = numpy.linalg.lstsq(numpy.hstack([base, slopes]), samples, rcond=None)[0]
        frequencies = frequencies + solved[2 * count :]
        if max(abs(solved[2 * count :])) < 1e-4:
            break
    return frequencies, numpy.hypot(cosine, sine)


def wanted(element):
    """Frequency and level of each sine of an element, from the lowest on."""
    first = element.frequencies[0]
    if not element.modulates:
        return sorted((frequency, element.level) for frequency in element.frequencies)
    side = element.level + SIDE_BAND
    other = element.frequencies[1]
    return [(first - other, side), (first, element.level), (first + other, side)]


def frequency_and_level(numpy, samples, element):
    """The largest error of each, in Hz and dB."""
    rows = wanted(element)
    found = peaks(numpy, samples, len(rows))
    if len(found) < len(rows):  # too short for the transform to part them: two hertz beside is as far as one may begin
        found = [frequency + 2 * (-1) ** place for place, (frequency, _) in enumerate(rows)]
    frequencies, amplitudes = fitted(numpy, samples.astype(float), found)
    order = numpy.argsort(frequencies)
    levels = 20 * numpy.log10(amplitudes[order] / PEAK)
    hertz = max(abs(frequencies[order] - [frequency for frequency, _ in rows]))
    return hertz, max(abs(levels - [level for _, level in rows]))


def boundary(numpy, samples, expected, before, after):
    """Where one element passes into the next without a pause: where two models, one on each side, leave least."""
    reach, edge = 4 * RATE // 1000, 40 * RATE // 1000
    window = samples[expected - edge : expected + edge].astype(float)
    left, right = (model(numpy, element.frequencies, 2 * edge) for element in (before, after))
    rests = []
    for place in range(edge - reach, edge + reach + 1):
        rest = 0
        for base, part in ((left[:place], window[:place]), (right[place:], window[place:])):
            rest += numpy.sum((part - base @ numpy.linalg.lstsq(base, part, rcond=None)[0]) ** 2)
        rests.append(rest)
    return expected - reach + int(numpy.argmin(rests))


def errors(numpy, samples, text):
    """The largest errors of a tone in Hz, ms and dB."""
    per_ms = RATE // 1000
    rows = timeline(tone(text), len(samples) / per_ms)
    found = bursts(numpy, samples)
    worst = [0.0, 0.0, 0.0]
    begin = found[0][0] - 1  # a sine begins with 0
    expected, before = [], None
    for start, end, element, whole in rows:
        sounds = bool(element.frequencies)
        if sounds and before is not None and before.frequencies:
            at = boundary(numpy, samples, begin + int(start) * per_ms, before, element)
            worst[1] = max(worst[1], abs((at - begin) / per_ms - start))
            expected[-1][1] = end
        elif sounds:
            expected.append([start, end])
        before = element
        if sounds and whole or sounds and end - start >= 1000:
            piece = samples[begin + int(start) * per_ms : begin + min(int(end), int(start) + 2000) * per_ms]
            for place, error in zip((0, 2), frequency_and_level(numpy, piece, element)):
                worst[place] = max(worst[place], error)
    assert len(found) == len(expected), f"{len(found)} bursts, not {len(expected)}"
    for (first, last), (start, end) in zip(found, expected):
        worst[1] = max(worst[1], abs((first - 1 - begin) / per_ms - start))
        if last + SILENT_MS * per_ms < len(samples):
            worst[1] = max(worst[1], abs((last + 1 - begin) / per_ms - end))
    return worst
