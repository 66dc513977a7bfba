// SPDX-License-Identifier: MIT
// Who gets one of the bus's places for connections: no process takes them all, nor do users who are only allowed to
// come.
#ifndef KEX_ADMISSION_H
#define KEX_ADMISSION_H

#include "transport/transport.h"

namespace bus {

// A sentence why there is no place for one more connection of this process and user, else null.
const char *admission_refusal(Transport *transport, int32_t process_id, uint32_t user_id);
// A connection of this process has been taken in. When it leaves one after the other, so fast that the bus has not seen
// it, it is not refused: those who come next wait until its places are free.
void admission_note(Transport *transport, int32_t process_id);
bool admission_has_to_wait(Transport *transport);
// Keeps so many places for a user; 0 gives them up. False: the table of reservations, or that of places, is full.
bool places_reserve(Transport *transport, uint32_t user_id, uint32_t places);

} // namespace bus

#endif
