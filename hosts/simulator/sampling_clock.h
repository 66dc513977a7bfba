// SPDX-License-Identifier: MIT
/**
 * @file sampling_clock.h
 * The sampling clock: 8 kHz, one for the sound of the whole process.
 *
 * What does it do?
 *   It says what time it is in samples, and has the sound of each 10 ms made when they are over. RTP time, the playing
 *   of what has arrived and reports are all counted by it, so that nothing moves against anything else.
 *
 * How does it work?
 *   It is the steady clock of the machine, divided. A timer only wakes the process; how much sound is due follows from
 *   the clock. What is due for longer than kMostLateMs is left out: the process was stopped, and sound that nobody made
 *   in time would only be a burst of packets. A test replaces the steady clock by a time of its own.
 */
#pragma once

#include <stdint.h>

#include "kex.h"

constexpr uint32_t kSampleRate = 8000;
constexpr uint32_t kStepSamples = 80; // 10 ms, of which packets of 10, 20 and 30 ms are made
constexpr uint32_t kStepMs = 10;
constexpr uint32_t kMostLateMs = 40; // sound that is due for longer is left out

/** What hears that time has passed. */
struct sampling_listener {
    /** The process was stopped: so much is left out, up to `position`. */
    void (*skip)(uint64_t position);
    /** The samples from `position` on, kStepSamples of them, are over. */
    void (*step)(uint64_t position);
};

/** Hands the bus over, whose loop the timer wakes, and who hears of it. The clock stands at 0 from the first call on.
 */
void sampling_clock_begin(kex_t *bus, const sampling_listener *listener);
/** Lets steps be made, woken every `period_ms` (10 or 20), or no more: 0. What was before it is not made.
 *  @return whether it could be done; no timer can be had now. */
bool sampling_clock_run(uint32_t period_ms);
/** Makes the steps that are due. The timer calls this; who reads a packet calls it first, so that the packet meets the
 *  buffer as it stands at that moment. */
void sampling_clock_advance();

/** The present moment: nanoseconds since the clock stood at 0, and the same in whole samples. */
uint64_t sampling_clock_nanoseconds();
uint64_t sampling_clock_now();
/** The moment so many nanoseconds ago; a test's clock stands still meanwhile. */
uint64_t sampling_clock_before(uint64_t nanoseconds);
/** The samples that have been made, or left out: a multiple of kStepSamples, at most a period behind now. */
uint64_t sampling_clock_position();

/** For tests: a steady clock in nanoseconds in place of the machine's, and no timer; null: the machine's. */
void sampling_clock_replace(uint64_t (*nanoseconds)());
