// SPDX-License-Identifier: MIT
// Implements environment.h.
#include "bus/environment.h"
#include "base/faults.h"
#include "base/number.h"
#include "base/trace.h"

#include <stdlib.h>

namespace bus {

namespace {

constexpr uint32_t kMaxFactor = 1000000;

// "100,1000". A list that does not read so is passed over as a whole: half an allow-list helps nobody.
uint32_t variable_ids(const char *variable, uint32_t *ids) {
    const char *text = getenv(variable);
    uint32_t count = 0;
    while (text != nullptr && *text != '\0') {
        const char *end;
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
    const char *end;
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
    faults_read(getenv("KEX_FAULTS"));
    environment.access.uid_count = variable_ids("KEX_ALLOW_UIDS", environment.access.uids);
    environment.access.gid_count = variable_ids("KEX_ALLOW_GIDS", environment.access.gids);
    environment.time_factor = variable_factor("KEX_TIME_FACTOR");
}

} // namespace bus
