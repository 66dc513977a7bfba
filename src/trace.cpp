// SPDX-License-Identifier: MIT
// The entry and exit markers of public functions.
#include "trace.h"

namespace voice {

void trace_enter(const char *function, uint32_t place) {
    const Frame frame(place);
    zilTraceZ(ZIL_TRACE_MARKER, kZones[0], "%s%-7.7s%s - >>>>>>>>>>%s - %s(%s@%s:%d)%s", "", kZones[0], "", "", "",
              function, frame.file, frame.line, "");
}

void trace_leave(const char *function, uint32_t place) {
    const Frame frame(place);
    zilTraceZ(ZIL_TRACE_MARKER, kZones[0], "%s%-7.7s%s - <<<<<<<<<<%s - %s(%s@%s:%d)%s", "", kZones[0], "", "", "",
              function, frame.file, frame.line, "");
}

} // namespace voice
