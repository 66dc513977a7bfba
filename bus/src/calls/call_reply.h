// SPDX-License-Identifier: MIT
// What goes back to whoever called.
#ifndef KEX_CALL_REPLY_H
#define KEX_CALL_REPLY_H

#include "calls/call.h"

namespace bus {

// Its error items, then the value unless that is none. What is too large is told by an error item in place of it; a
// caller that does not read, or one for whose reply there is no memory, loses its connection.
void call_send_reply(function_call_t *call, const variant_t *value);
// A one-way call gets no reply, but whoever watches the caller's side is to see that it found nothing.
void call_send_miss(function_call_t *call);

} // namespace bus

#endif
