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

const Sender *sender_find(int32_t process_id) {
    if (process_id == 0)
        return &senders[0];
    for (const Sender &one : senders) {
        if (one.process_id == process_id && pending(one) > 0)
            return &one;
    }
    return nullptr;
}

} // namespace

uint8_t sender_place(int32_t process_id) {
    const Sender *found = sender_find(process_id);
    for (uint32_t i = 1; found == nullptr && i < kMaxPeers; i++) {
        if (pending(senders[i]) > 0)
            continue;
        senders[i].process_id = process_id;
        found = &senders[i];
    }
    return static_cast<uint8_t>(found != nullptr ? found - senders : 0);
}

void sender_add(uint8_t place) {
    __atomic_add_fetch(&senders[place].pending, 1, __ATOMIC_SEQ_CST);
}

void sender_remove(uint8_t place) {
    __atomic_sub_fetch(&senders[place].pending, 1, __ATOMIC_SEQ_CST);
}

uint32_t sender_pending(int32_t process_id) {
    const Sender *sender = sender_find(process_id);
    return sender != nullptr ? pending(*sender) : 0;
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
