// SPDX-License-Identifier: MIT
// One-shot timers.
#ifndef KEX_TIMER_H
#define KEX_TIMER_H

#include "bus/bus.h"

struct kex_timer : bus::Task, bus::Node<kex_timer> {
    kex_t *bus;
    bool running; // stands among the running timers of its bus, else among the idle ones
    uint64_t deadline;
    void (*handler)(kex_timer_t *timer);
};

namespace bus {

// When the soonest timer is due by the bus's clock; 0: none runs.
uint64_t timers_deadline(kex_t *bus);
// Queues what is due.
void timers_expire(kex_t *bus);
void timers_free(kex_t *bus);

} // namespace bus

#endif
