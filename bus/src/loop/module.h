// SPDX-License-Identifier: MIT
// A module's share of every turn of the loop. The loop knows modules by these functions only.
//
// A turn polls, then calls begin, read and expire, runs the tasks that stand in the queue, and calls accept and send:
// each for all modules in the order in which they joined. A null function has nothing to do.
#ifndef KEX_MODULE_H
#define KEX_MODULE_H

#include <stdint.h>

namespace bus {

constexpr uint64_t kNever = 0; // a deadline that is none
// kNever is later than all others.
inline uint64_t sooner(uint64_t one, uint64_t other) {
    return one - 1 < other - 1 ? one : other;
}

constexpr uint32_t kMostModules = 5; // timers, watches, transport, missed calls, trace

struct Module {
    void (*begin)(void *self) = nullptr;
    void (*read)(void *self) = nullptr;
    // After running: whoever connects again finds its old connection's place free, unless much of it is left.
    void (*accept)(void *self) = nullptr;
    // Whether the module needs a turn now although no descriptor is ready.
    bool (*has_work)(void *self) = nullptr;
    // When it needs one, by the loop's clock.
    uint64_t (*deadline)(void *self) = nullptr;
    // The deadline has come. Null: nothing but a turn is needed then.
    void (*expire)(void *self, uint64_t now) = nullptr;
    void (*send)(void *self) = nullptr;
};

// The modules that have one of the functions, in the order in which they joined: a turn asks nobody else.
struct Phase {
    struct Share {
        const Module *module;
        void *self; // what the functions are given
    };
    Share shares[kMostModules];
    uint32_t count;

    const Share *begin() const { return shares; }
    const Share *end() const { return shares + count; }
};

} // namespace bus

#endif
