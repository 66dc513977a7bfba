// SPDX-License-Identifier: MIT
/**
 * @file arrival_windows.h
 * How early and how late the packets of a stream have come in the last 8 s.
 *
 * How does it work?
 *   A packet's transit is its RTP time less the moment of its arrival, both in samples of 1/8000 s and from any origin:
 *   the greater, the earlier it came. Of each second the earliest and the latest packet are kept.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kArrivalWindows = 8; // of a second each

struct arrival_windows {
    uint64_t from; // sampling clock: begin of the present window
    uint32_t count;
    int32_t earliest[kArrivalWindows], latest[kArrivalWindows]; // transits: the present window first
};

/** Forgets all. */
void arrival_windows_reset(arrival_windows *windows);
/** A packet has come. @param arrival  by the sampling clock @return whether that was the last one of a second: look at
 *  the windows now, and then begin the next one */
bool arrival_windows_note(arrival_windows *windows, int32_t transit, uint64_t arrival);
/** The present window is over. */
void arrival_windows_next(arrival_windows *windows);
/** Of all windows; INT32_MIN and INT32_MAX when nothing has come. */
int32_t arrival_windows_earliest(const arrival_windows *windows);
int32_t arrival_windows_latest(const arrival_windows *windows);
