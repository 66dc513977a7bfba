// SPDX-License-Identifier: MIT
// Errors and warnings that another process causes: a few in a second are written, the rest is counted, so that nobody
// fills the log by what it sends.
#ifndef KEX_TRACE_LIMIT_H
#define KEX_TRACE_LIMIT_H

#include <stdint.h>

namespace bus {

constexpr int32_t kNobody = -1;

// Whose doing the next messages are: a process as the kernel vouches for it, 0 for one that it does not know, or
// kNobody. Answers whose it was, to be set again afterwards.
int32_t trace_set_cause(int32_t process);

// While it lives the process is the cause.
class TraceCause {
public:
    explicit TraceCause(int32_t process) : before_(trace_set_cause(process)) {}
    ~TraceCause() { trace_set_cause(before_); }
    TraceCause(const TraceCause &) = delete;
    TraceCause &operator=(const TraceCause &) = delete;

private:
    int32_t before_;
};

// Writes "so many more messages of process ..."; 0 stands for all processes that are not known any more.
using TraceTold = void(uint32_t more, int32_t process);

// Whether an error or warning may be written now. False: it has been counted. Tells first what is due.
bool trace_limit_passes(TraceTold *told);
// When what was counted has to be told, by the kernel's clock; 0: nothing was.
uint64_t trace_limit_due();
// Tells what is due.
void trace_limit_tell(TraceTold *told);
// Forgets all that was counted.
void trace_limit_begin();

} // namespace bus

#endif
