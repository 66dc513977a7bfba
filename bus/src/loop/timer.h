// SPDX-License-Identifier: MIT
// One-shot timers (kex.h, "Peers, timers, data model").
#ifndef KEX_TIMER_H
#define KEX_TIMER_H

#include "loop/loop.h"

namespace bus {

void timers_begin(Loop *loop, uint32_t time_factor);
void timers_end(Loop *loop);
kex_timer_t *timer_create(Loop *loop);

} // namespace bus

#endif
