// SPDX-License-Identifier: MIT
// Where trace messages go: standard error or the system's log. Nobody waits for whoever reads them: what cannot be
// written at once is kept, up to a limit, and written later; what is more is counted.
#ifndef KEX_TRACE_OUTPUT_H
#define KEX_TRACE_OUTPUT_H

#include <stddef.h>
#include <stdint.h>

namespace bus {

// From now on; drops what waits.
void trace_output_begin(bool to_system_log);
// One message with its line break, or for the system's log with its priority and tag.
void trace_output_put(const char *message, size_t length);
// What cannot be written at once is tried again after so long, in nanoseconds; 0: nothing waits.
uint64_t trace_output_retry();
void trace_output_flush();
// Tries for so long to write what waits: the process is about to end.
void trace_output_end(uint64_t nanoseconds);

// Where the system's log is read; tests have one of their own.
constexpr char kSystemLog[] = "/dev/log";
void trace_output_set_system_log(const char *path);

} // namespace bus

#endif
