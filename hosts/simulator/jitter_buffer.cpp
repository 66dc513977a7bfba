// SPDX-License-Identifier: MIT
// The jitter buffer.
//
//      ... heard | to be heard                        | not there yet ...        RTP time ->
//                ^ playing point                      ^ end of the newest packet
//                  = position + base - lead
#include "jitter_buffer.h"

#include "sampling_clock.h"

#include <string.h>

namespace {

constexpr uint32_t kPerMs = kSampleRate / 1000;
constexpr uint32_t kMask = kJitterRing - 1;
constexpr uint32_t kKept = 1280; // samples behind the playing point that can be played again
constexpr int32_t kMostWait = kJitterMostMs * kPerMs;
constexpr int32_t kOddlyEarly = kMostWait + 800; // the ring has room for it
constexpr int32_t kOddlyLate = -kMostWait;
constexpr int32_t kSameJump = 800;  // two packets in a row are that far off alike: time has begun anew
constexpr int32_t kMargin = 80;     // samples that the latest packet is to come before its time
constexpr int32_t kTolerated = 120; // samples by which the wait may be wrong

uint32_t playing_point(const jitter_buffer *buffer) {
    return static_cast<uint32_t>(buffer->position) + buffer->base - static_cast<uint32_t>(buffer->lead);
}

int32_t distance(uint32_t from, uint32_t to) {
    return static_cast<int32_t>(to - from);
}

// The marks of what is too old to be played again make room for what is to come.
void marks_clear(jitter_buffer *buffer) {
    const uint32_t from = playing_point(buffer) - kKept;
    const int32_t count = distance(buffer->cleared, from);
    if (count <= 0)
        return;
    if (count >= static_cast<int32_t>(kJitterRing))
        memset(buffer->there, 0, sizeof buffer->there);
    else
        for (uint32_t i = 0; i < static_cast<uint32_t>(count); i++)
            buffer->there[(buffer->cleared + i) & kMask] = 0;
    buffer->cleared = from;
    if (distance(buffer->end, from) > static_cast<int32_t>(kJitterRing)) // else it would be ahead some day
        buffer->end = from - kJitterRing;
}

void stream_begin(jitter_buffer *buffer, const jitter_settings *settings, uint32_t timestamp, uint64_t arrival) {
    const uint32_t wait = settings->nominal_ms > settings->shortest_ms || !settings->adapts ? settings->nominal_ms
                                                                                            : settings->shortest_ms;
    buffer->started = true;
    buffer->base = timestamp - static_cast<uint32_t>(arrival);
    buffer->lead = static_cast<int32_t>(wait * kPerMs);
    buffer->end = timestamp;
    buffer->cleared = playing_point(buffer) - kKept;
    memset(buffer->there, 0, sizeof buffer->there);
}

// ---------------------------------------------------------------------------------------------------------- Adapting

// The wait is that of the earliest packets, so that the latest ones still come in time.
void wait_compare(jitter_buffer *buffer, const jitter_settings *settings) {
    int32_t wanted = arrival_windows_earliest(&buffer->arrivals) - arrival_windows_latest(&buffer->arrivals) + kMargin;
    const int32_t shortest = static_cast<int32_t>(settings->shortest_ms * kPerMs);
    wanted = wanted < shortest ? shortest : wanted > kMostWait ? kMostWait : wanted;
    const int32_t wrong = buffer->arrivals.earliest[0] + buffer->lead - wanted;
    const int32_t most = static_cast<int32_t>(settings->rate * kPerMs);
    buffer->due = 0;
    if (wrong > kTolerated)
        buffer->due = wrong > most ? most : wrong;
    else if (wrong < -kTolerated)
        buffer->due = wrong < -most ? -most : wrong;
}

// Of a fixed wait: when not even the earliest packet of a second had one, all are late for good.
void wait_restore(jitter_buffer *buffer, const jitter_settings *settings) {
    if (buffer->arrivals.earliest[0] + buffer->lead < 0)
        buffer->lead = static_cast<int32_t>(settings->nominal_ms * kPerMs) - buffer->arrivals.earliest[0];
}

void arrival_note(jitter_buffer *buffer, const jitter_settings *settings, int32_t transit, uint64_t arrival) {
    if (!arrival_windows_note(&buffer->arrivals, transit, arrival))
        return;
    if (settings->adapts)
        wait_compare(buffer, settings);
    else
        wait_restore(buffer, settings);
    arrival_windows_next(&buffer->arrivals);
}

// Leaves a period out, or plays one twice. @return the samples it has written: kJoinSamples, or none for lack of sound
uint32_t period_adjust(jitter_buffer *buffer, int16_t *samples) {
    const int32_t direction = buffer->due > 0 ? 1 : -1;
    const uint32_t most = static_cast<uint32_t>(direction * buffer->due);
    if (most < kShortestPeriod || buffer->gap.missing > 0)
        return 0;
    // On the one side only: there may be little ahead where the wait is too short.
    const uint32_t before = direction < 0 ? kLongestPeriod : 0;
    int16_t around[kLongestPeriod + kJoinSamples];
    const uint32_t first = playing_point(buffer) - before;
    for (uint32_t i = 0; i < sizeof around / sizeof around[0]; i++) {
        if (!buffer->there[(first + i) & kMask])
            return 0;
        around[i] = buffer->samples[(first + i) & kMask];
    }
    const int16_t *here = around + before;
    const uint32_t period = period_find(here, direction, most < kLongestPeriod ? most : kLongestPeriod);
    const int32_t change = direction * static_cast<int32_t>(period);
    for (uint32_t i = 0; i < kJoinSamples; i++)
        samples[i] = samples_join(here[i], here[static_cast<int32_t>(i) + change], i);
    buffer->lead -= change;
    buffer->due -= change;
    buffer->counts.adjusted++;
    return kJoinSamples;
}

// ------------------------------------------------------------------------------------------------------------ Arrival

// Packets that wait, as well as they can be told by their samples.
uint32_t packets_waiting(const jitter_buffer *buffer) {
    uint32_t samples = 0;
    for (uint32_t at = playing_point(buffer); distance(at, buffer->end) > 0; at++)
        samples += buffer->there[at & kMask];
    return buffer->packet == 0 ? 0 : (samples + buffer->packet - 1) / buffer->packet;
}

// A time far off. The first one may be wrong; when the second is off alike, time has begun anew.
bool is_anew(jitter_buffer *buffer, int32_t transit, int32_t wait) {
    const int32_t apart = distance(static_cast<uint32_t>(buffer->odd_transit), static_cast<uint32_t>(transit));
    const bool again = buffer->odd && apart < kSameJump && apart > -kSameJump;
    buffer->odd = true;
    buffer->odd_transit = transit;
    if (again)
        return true;
    if (wait < 0)
        buffer->counts.late++;
    else
        buffer->counts.overruns++;
    return false;
}

// The newest packet is late, and so all that will follow: it is waited for from here on. Where the others would then wait
// for too long, one alone is not; of two in a row the network of before has gone.
void step_back(jitter_buffer *buffer, uint32_t timestamp) {
    const int32_t back = distance(timestamp, playing_point(buffer));
    if (back <= 0)
        return;
    const bool is_too_late = arrival_windows_earliest(&buffer->arrivals) + buffer->lead + back > kMostWait;
    const bool is_alone = is_too_late && !buffer->too_late;
    buffer->too_late = is_alone;
    if (is_alone)
        return;
    if (is_too_late)
        arrival_windows_reset(&buffer->arrivals);
    buffer->lead += back;
}

// The first that comes for a moment is the one that is heard.
void samples_keep(jitter_buffer *buffer, uint32_t timestamp, const int16_t *samples, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t at = (timestamp + i) & kMask;
        if (buffer->there[at] || distance(buffer->cleared, timestamp + i) < 0)
            continue;
        buffer->samples[at] = samples[i];
        buffer->there[at] = 1;
    }
}

void wait_note(jitter_counts *counts, int32_t wait) {
    const uint32_t waited = wait > 0 ? static_cast<uint32_t>(wait) : 0;
    counts->shortest = counts->waits == 0 || waited < counts->shortest ? waited : counts->shortest;
    counts->longest = waited > counts->longest ? waited : counts->longest;
    counts->last = waited;
    counts->sum += waited;
    counts->waits++;
}

// ------------------------------------------------------------------------------------------------------------ Playing

// Mostly all of a step is there, with no gap before it. @return no: it is not
bool step_copy(jitter_buffer *buffer, int16_t *samples) {
    const uint32_t at = playing_point(buffer) & kMask;
    if (!buffer->started || buffer->gap.missing > 0 || at + kStepSamples > kJitterRing ||
        memchr(buffer->there + at, 0, kStepSamples) != nullptr)
        return false;
    memcpy(samples, buffer->samples + at, kStepSamples * sizeof *samples);
    buffer->heard = true;
    return true;
}

// From sample `i` of a step on.
void step_fill(jitter_buffer *buffer, int16_t *samples, uint32_t i) {
    for (; i < kStepSamples; i++) {
        const uint32_t at = playing_point(buffer) + i;
        if (buffer->started && buffer->there[at & kMask]) {
            samples[i] = concealment_join(&buffer->gap, buffer->samples[at & kMask]);
            buffer->heard = true;
            continue;
        }
        buffer->counts.underruns += buffer->heard && buffer->gap.missing == 0 && distance(at, buffer->end) <= 0;
        buffer->counts.concealed += buffer->heard && buffer->gap.missing < kFadeEnd;
        samples[i] = concealment_next(&buffer->gap);
    }
}

} // namespace

void jitter_buffer_restart(jitter_buffer *buffer, uint64_t position) {
    buffer->started = buffer->heard = buffer->odd = buffer->too_late = false;
    buffer->position = position;
    buffer->due = 0;
    arrival_windows_reset(&buffer->arrivals);
}

bool jitter_buffer_put(jitter_buffer *buffer, const jitter_settings *settings, uint32_t timestamp,
                       const int16_t *samples, uint32_t count, uint64_t arrival) {
    if (!buffer->started)
        stream_begin(buffer, settings, timestamp, arrival);
    // Times are modulo 2^32: what is half of that away has no sum with the lead.
    const uint32_t expected = static_cast<uint32_t>(arrival) + buffer->base;
    int32_t transit = distance(expected, timestamp);
    const int32_t first_wait = distance(expected - static_cast<uint32_t>(buffer->lead), timestamp);
    if (first_wait > kOddlyEarly || first_wait < kOddlyLate) {
        if (!is_anew(buffer, transit, first_wait))
            return false;
        buffer->counts.flushed += packets_waiting(buffer);
        jitter_buffer_restart(buffer, buffer->position);
        stream_begin(buffer, settings, timestamp, arrival);
        transit = 0;
    }
    buffer->odd = false;
    arrival_note(buffer, settings, transit, arrival);
    const bool newest = distance(buffer->end, timestamp + count) > 0;
    if (newest && settings->adapts && transit + buffer->lead < 0)
        step_back(buffer, timestamp);
    else if (newest)
        buffer->too_late = false;
    if (distance(playing_point(buffer), timestamp + count) <= 0) {
        buffer->counts.late++;
        return false;
    }
    if (distance(buffer->cleared, timestamp + count) > static_cast<int32_t>(kJitterRing)) {
        buffer->counts.overruns++;
        return false;
    }
    samples_keep(buffer, timestamp, samples, count);
    wait_note(&buffer->counts, transit + buffer->lead);
    buffer->packet = count;
    if (newest)
        buffer->end = timestamp + count;
    return true;
}

void jitter_buffer_take(jitter_buffer *buffer, uint64_t position, int16_t *samples) {
    buffer->position = position;
    marks_clear(buffer);
    const uint32_t adjusted = buffer->started && buffer->due != 0 ? period_adjust(buffer, samples) : 0;
    if (adjusted > 0 || !step_copy(buffer, samples))
        step_fill(buffer, samples, adjusted);
    concealment_note(&buffer->gap, samples, kStepSamples);
    buffer->position = position + kStepSamples;
}
