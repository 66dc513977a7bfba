// SPDX-License-Identifier: MIT
// A module's share of every turn of the loop. The loop knows modules by these functions only.
//
// A turn polls, then calls begin, read and expire, runs the tasks that stand in the queue, and calls accept and send:
// each for all modules in the order in which they joined. Most modules have something to do in few of these phases, so
// the loop keeps a list for each: a turn calls nobody in vain.
#ifndef KEX_MODULE_H
#define KEX_MODULE_H

#include <stdint.h>

namespace bus {

constexpr uint64_t kNever = 0; // a deadline that is none

// A null function has nothing to do.
struct Module {
    void *self; // what the functions are given
    void (*begin)(void *self);
    void (*read)(void *self);
    // After running: whoever connects again finds its old connection's place free, unless much of it is left.
    void (*accept)(void *self);
    // Whether the module needs a turn now although no descriptor is ready.
    bool (*has_work)(void *self);
    // When it needs one, by the loop's clock.
    uint64_t (*deadline)(void *self);
    // The deadline has come.
    void (*expire)(void *self, uint64_t now);
    void (*send)(void *self);
};

constexpr uint32_t kMaxModules = 8; // five join

// What the loop calls in one phase of a turn.
template <class Share>
struct Phase {
    Share shares[kMaxModules];
    uint32_t count;

    const Share *begin() const { return shares; }
    const Share *end() const { return shares + count; }
    void add(const Share &share) { shares[count++] = share; }
};

struct Step {
    void *self;
    void (*run)(void *self);
};

struct Need {
    void *self;
    bool (*has_work)(void *self);
};

struct Expiry {
    void *self;
    uint64_t (*deadline)(void *self);
    void (*expire)(void *self, uint64_t now);
};

struct Phases {
    Phase<Step> begin;
    Phase<Step> read;
    Phase<Step> accept;
    Phase<Step> send;
    Phase<Need> needs;
    Phase<Expiry> expiries;
};

} // namespace bus

#endif
