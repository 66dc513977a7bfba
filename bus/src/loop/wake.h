// SPDX-License-Identifier: MIT
// What makes the loop's poll descriptor readable: the next deadline, and work that no descriptor announces.
#ifndef KEX_WAKE_H
#define KEX_WAKE_H

#include "loop/loop.h"

namespace bus {

// The poll descriptor becomes readable when the next deadline is there, or at once while work is left over.
void loop_arm(Loop *loop);
// What the loop calls for the descriptors behind this.
void timer_ready(Source *source);
void work_ready(Source *source);

} // namespace bus

#endif
