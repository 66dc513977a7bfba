// SPDX-License-Identifier: MIT
// What the environment asks of the trace service.
#ifndef KEX_TRACE_SETTINGS_H
#define KEX_TRACE_SETTINGS_H

#include "base/contract.h"

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

namespace bus {

constexpr uint32_t kMaxZones = 32;
constexpr size_t kMaxZoneName = 16;
struct Zone {
    char name[kMaxZoneName];
    int level;
};

struct Settings {
    // The highest level that any filter lets pass: one comparison turns away everything else. Until the environment has
    // been read it lets everything through to the point where that is done.
    int highest = INT_MAX;
    bool configured = false;
    int level = ZIL_TRACE_WARNING;
    Zone zones[kMaxZones] = {};
    uint32_t zone_count = 0;
    bool to_syslog = false;
    bool time = false;
    bool colour = false;
};

// In effect now.
extern Settings settings;

// Reads the ZIL_TRACE_ variables.
void trace_settings_read();
// The level up to which messages of the zone pass; null: of no zone.
int zone_level(const char *zone);

} // namespace bus

#endif
