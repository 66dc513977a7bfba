// SPDX-License-Identifier: MIT
// The entry and exit markers of public functions.
#include "trace.h"

namespace voice {

void trace_enter(Where where) {
    zilTraceZ(ZIL_TRACE_MARKER, "LIBV", "%s%-7.7s%s - >>>>>>>>>>%s - %s(%s@%s:%d)%s", "", "LIBV", "", "", "",
              where.function, where.file, where.line, "");
}

void trace_leave(Where where) {
    zilTraceZ(ZIL_TRACE_MARKER, "LIBV", "%s%-7.7s%s - <<<<<<<<<<%s - %s(%s@%s:%d)%s", "", "LIBV", "", "", "",
              where.function, where.file, where.line, "");
}

} // namespace voice
