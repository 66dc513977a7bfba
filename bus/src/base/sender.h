// SPDX-License-Identifier: MIT
// Whose descriptors are being closed beside the loop: a table of processes. The loop gives places away, its threads
// count down.
#ifndef KEX_SENDER_H
#define KEX_SENDER_H

#include <stdint.h>

namespace bus {

// The place of a process in the table; that of nobody in particular (0) when the table is full, or for process 0.
uint8_t sender_place(int32_t process_id);
void sender_add(uint8_t place);
void sender_remove(uint8_t place);
// How many descriptors are being closed of whoever has its place, or would have it; and of all processes, with no more
// than a share of each.
uint32_t sender_pending(int32_t process_id);
uint32_t senders_pending(uint32_t share);
void senders_clear();

} // namespace bus

#endif
