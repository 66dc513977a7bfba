// SPDX-License-Identifier: MIT
// Implements sender.h.
#include "base/sender.h"
#include "base/limits.h"

namespace bus {

namespace {

// A place is free as soon as nothing of its process is left.
struct Sender {
    int32_t process_id;
    uint32_t pending;
};

Sender senders[kMaxPeers]; // the first one: nobody in particular

uint32_t pending(const Sender &sender) {
    return __atomic_load_n(&sender.pending, __ATOMIC_SEQ_CST);
}

} // namespace

uint8_t sender_place(int32_t process_id) {
    uint8_t free = 0;
    for (uint8_t i = kMaxPeers - 1; i > 0 && process_id != 0; i--) {
        if (pending(senders[i]) == 0)
            free = i;
        else if (senders[i].process_id == process_id)
            return i;
    }
    if (free != 0)
        senders[free].process_id = process_id;
    return free;
}

void sender_add(uint8_t place) {
    __atomic_add_fetch(&senders[place].pending, 1, __ATOMIC_SEQ_CST);
}

void sender_remove(uint8_t place) {
    __atomic_sub_fetch(&senders[place].pending, 1, __ATOMIC_SEQ_CST);
}

uint32_t sender_pending(int32_t process_id) {
    return pending(senders[sender_place(process_id)]);
}

uint32_t senders_pending(uint32_t share) {
    uint32_t sum = 0;
    for (const Sender &one : senders) {
        const uint32_t of_one = pending(one);
        sum += of_one < share ? of_one : share;
    }
    return sum;
}

void senders_clear() {
    for (Sender &one : senders)
        one.pending = 0;
}

} // namespace bus
