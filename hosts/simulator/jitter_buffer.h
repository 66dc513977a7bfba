// SPDX-License-Identifier: MIT
/**
 * @file jitter_buffer.h
 * The jitter buffer: what has arrived waits in it until it is its time to be heard.
 *
 * What does it do?
 *   Each sample is played at its RTP time, once, however its packet came: early, late, twice, or behind its successor.
 *   What is missing is concealed. How long packets wait follows the network: as short as it allows.
 *
 * How does it work?
 *   A ring of samples by their RTP time. The playing point moves with the sampling clock. The first packet is made to
 *   wait for the nominal time. When the newest packet comes too late, the whole stream is late: the playing point steps
 *   back to it, and the packets wait for longer from then on. Once a second the wait is compared with the spread of
 *   arrivals in the last 8 s; when it is too long or too short, one pitch period is left out or played twice, where the
 *   sound is like itself. No sockets and no clock here: the moments are given.
 */
#pragma once

#include <stdint.h>

#include "arrival_windows.h"
#include "concealment.h"

constexpr uint32_t kJitterRing = 4096;   // samples, a power of two: 512 ms
constexpr uint32_t kJitterMostMs = 200;  // longest wait
constexpr uint32_t kJitterLeastMs = 10;  // shortest that can be set
constexpr uint32_t kJitterNormalMs = 40; // at the start, and the shortest, unless something else is set

/** How it waits; parameters of a line. */
struct jitter_settings {
    uint32_t shortest_ms; // kJitterLeastMs to kJitterMostMs
    uint32_t nominal_ms;  // at the start; the same range
    uint32_t rate;        // by how many ms the wait may change within a second, 1 to 100; not when a stream is late
    bool adapts;          // no: the wait stays nominal, and is so again when all packets of a second were late
};

constexpr jitter_settings kJitterSettings = {kJitterNormalMs, kJitterNormalMs, 20, true};

/** What has become of it; times in samples of 1/8000 s. */
struct jitter_counts {
    uint32_t late;      // packets that came after their time
    uint32_t overruns;  // packets that came so early that they had no room
    uint32_t flushed;   // packets that were waiting when the stream's time began anew
    uint32_t underruns; // times that it ran empty
    uint32_t concealed; // samples
    uint32_t adjusted;  // times that the wait was made longer or shorter
    uint32_t waits;     // packets that have waited
    uint32_t shortest, longest, last;
    uint64_t sum; // of all waits
};

struct jitter_buffer {
    bool started;
    bool heard;               // something of this stream has been played
    uint64_t position;        // of the sampling clock: the next sample to be played
    uint32_t base;            // RTP time less sampling clock, of the first packet
    int32_t lead;             // by how much the first packet would wait: the playing point is position + base - lead
    uint32_t end;             // RTP time behind the newest packet
    uint32_t cleared;         // RTP time from which on the ring's marks count
    bool odd;                 // the packet before had a time far off
    int32_t odd_transit;      // and that was how far
    bool too_late;            // the newest packet was too late to be waited for
    int32_t due;              // samples by which the wait is to change, at the next opportunity
    arrival_windows arrivals; // transit less base
    uint32_t packet;          // samples of the newest packet
    concealment gap;
    jitter_counts counts;
    int16_t samples[kJitterRing];
    uint8_t there[kJitterRing]; // whether the sample has arrived
};

/** Waits for a new stream; counts go on. @param position  of the sampling clock */
void jitter_buffer_restart(jitter_buffer *buffer, uint64_t position);
/** Takes a packet's samples. @param arrival  when it came, by the sampling clock @return whether it will be heard, at
 *  least in part; else it was counted */
bool jitter_buffer_put(jitter_buffer *buffer, const jitter_settings *settings, uint32_t timestamp,
                       const int16_t *samples, uint32_t count, uint64_t arrival);
/** The next kStepSamples. @param position  theirs, by the sampling clock; what lies between is left out */
void jitter_buffer_take(jitter_buffer *buffer, uint64_t position, int16_t *samples);
