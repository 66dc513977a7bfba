// SPDX-License-Identifier: MIT
// Windows of arrivals.
#include "arrival_windows.h"

#include "sampling_clock.h"

#include <string.h>

void arrival_windows_reset(arrival_windows *windows) {
    for (uint32_t i = 0; i < kArrivalWindows; i++) {
        windows->earliest[i] = INT32_MIN;
        windows->latest[i] = INT32_MAX;
    }
    windows->count = 0;
}

bool arrival_windows_note(arrival_windows *windows, int32_t transit, uint64_t arrival) {
    if (windows->count == 0) {
        windows->from = arrival;
        windows->earliest[0] = windows->latest[0] = transit;
    }
    windows->count++;
    windows->earliest[0] = transit > windows->earliest[0] ? transit : windows->earliest[0];
    windows->latest[0] = transit < windows->latest[0] ? transit : windows->latest[0];
    return arrival >= windows->from + kSampleRate;
}

void arrival_windows_next(arrival_windows *windows) {
    constexpr size_t kOthers = (kArrivalWindows - 1) * sizeof windows->earliest[0];
    memmove(windows->earliest + 1, windows->earliest, kOthers);
    memmove(windows->latest + 1, windows->latest, kOthers);
    windows->count = 0;
}

int32_t arrival_windows_earliest(const arrival_windows *windows) {
    int32_t earliest = windows->earliest[0];
    for (int32_t each : windows->earliest)
        earliest = each > earliest ? each : earliest;
    return earliest;
}

int32_t arrival_windows_latest(const arrival_windows *windows) {
    int32_t latest = windows->latest[0];
    for (int32_t each : windows->latest)
        latest = each < latest ? each : latest;
    return latest;
}
