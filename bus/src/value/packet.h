// SPDX-License-Identifier: MIT
// A packet that has come, taken apart into its messages.
#ifndef KEX_PACKET_H
#define KEX_PACKET_H

#include "value/message.h"

namespace bus::wire {

struct Packet {
    uint32_t count;
    Message messages[kMaxMessages]; // where they lie
};

// Looks at the heads only. A sentence when these bytes are not messages of ours from the first to the last, else null.
const char *packet_open(const void *bytes, uint32_t size, Packet &packet);
// Checks the whole of it: every message, what they have together, and that the descriptors that came with it are
// theirs. A sentence what is wrong with it, else null: only then is there anything in it that may be used.
const char *packet_validate(const void *bytes, uint32_t size, uint32_t descriptors, Packet &packet);

// What messages take of a packet that is being put together.
struct PacketUse {
    uint32_t messages;
    uint32_t size;
    uint32_t descriptors;
    uint32_t values;
    uint32_t errors;
};

// Counts one message more in. False: it has to leave in another packet, and is not counted.
bool packet_takes(PacketUse &packet, const PacketUse &message, uint32_t limit);

} // namespace bus::wire

#endif
