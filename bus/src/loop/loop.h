// SPDX-License-Identifier: MIT
// The loop: which descriptors are listened to, and what a turn does in which order.
#ifndef KEX_LOOP_H
#define KEX_LOOP_H

#include "bus/bus.h"

namespace bus {

bool loop_open(kex_t *bus);
void loop_close(kex_t *bus);

// False: the kernel cannot listen to this descriptor (errno says why).
bool loop_add(kex_t *bus, int fd, Source *source);
void loop_interest(kex_t *bus, int fd, Source *source, bool reads, bool writes);
void loop_remove(kex_t *bus, int fd, Source *source);

// Queues a task, from anywhere.
void loop_push(kex_t *bus, Task *task);
// Something has to happen soon although no descriptor says so. Free of cost inside a turn.
void loop_wake(kex_t *bus);

} // namespace bus

#endif
