// SPDX-License-Identifier: MIT
// Implements environment.h.
#include "bus/environment.h"
#include "base/trace.h"

#include <errno.h>
#include <stdlib.h>

namespace bus {

namespace {

constexpr uint32_t kMaxFactor = 1000000;

bool number_read(const char *text, char **end, uint32_t *number) {
    errno = 0;
    unsigned long value = strtoul(text, end, 10);
    if (*end == text || *text == '-' || errno != 0 || value > UINT32_MAX)
        return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

// "100,1000". A list that does not read so is passed over as a whole: half an allow-list helps nobody.
uint32_t variable_ids(const char *variable, uint32_t *ids) {
    const char *text = getenv(variable);
    uint32_t count = 0;
    while (text != nullptr && *text != '\0') {
        char *end;
        if (count == Access::kMaxIds || !number_read(text, &end, &ids[count]) || (*end != '\0' && *end != ',')) {
            note(ZIL_TRACE_ERROR, "%s is not a list of at most %u numbers: nobody is allowed by it", variable,
                 Access::kMaxIds);
            return 0;
        }
        count++;
        text = *end == ',' ? end + 1 : end;
    }
    return count;
}

uint32_t variable_factor(const char *variable) {
    const char *text = getenv(variable);
    char *end;
    uint32_t factor = 1;
    if (text == nullptr || *text == '\0')
        return 1;
    if (number_read(text, &end, &factor) && *end == '\0' && factor >= 1 && factor <= kMaxFactor)
        return factor;
    note(ZIL_TRACE_ERROR, "%s is not a number from 1 to %u: time runs as usual", variable, kMaxFactor);
    return 1;
}

} // namespace

void environment_read(Environment &environment) {
    environment.access.uid_count = variable_ids("KEX_ALLOW_UIDS", environment.access.uids);
    environment.access.gid_count = variable_ids("KEX_ALLOW_GIDS", environment.access.gids);
    environment.time_factor = variable_factor("KEX_TIME_FACTOR");
}

} // namespace bus
