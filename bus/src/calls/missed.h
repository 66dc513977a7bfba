// SPDX-License-Identifier: MIT
// Calls that find no object or no function: a host that was set up wrongly on one of the two sides.
#ifndef KEX_MISSED_H
#define KEX_MISSED_H

#include "calls/peer.h"

namespace bus {

void missed_calls_begin(Calls *calls);
// Traces one such call of a peer: its title, and a sentence what is missing. False: too many have been traced just now,
// and it is counted instead.
bool missed_call_tell(const Peer *peer, const char *title, const char *why);

} // namespace bus

#endif
