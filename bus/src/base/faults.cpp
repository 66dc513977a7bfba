// SPDX-License-Identifier: MIT
// Implements faults.h.
#include "base/faults.h"
#include "base/number.h"
#include "base/trace.h"

#include <errno.h>
#include <string.h>

namespace bus {

bool faults_on;

namespace {

constexpr uint32_t kMaxItems = 16;
constexpr uint32_t kPercent = 100;
constexpr uint32_t kLongestDelay = 60000;

struct Kind {
    const char *name;
    int error; // what a full or tired kernel says
};

// In the order of Fault.
constexpr Kind kKinds[] = {{"memory", ENOMEM}, {"send", ENOBUFS},   {"receive", ENOMEM},  {"accept", ENFILE},
                           {"socket", EMFILE}, {"connect", EAGAIN}, {"bind", EADDRINUSE}, {"listen", ENOBUFS},
                           {"epoll", ENOSPC},  {"timer", EMFILE},   {"dup", EMFILE},      {"lock", ENOLCK},
                           {"open", EMFILE},   {"refuse", ENOBUFS}, {"delay", 0},         {"close", 0}};
static_assert(sizeof kKinds / sizeof *kKinds == static_cast<size_t>(Fault::kinds));

// One item of the plan: the n-th of a kind, or some of a hundred.
struct Item {
    uint32_t kind;
    uint32_t number;  // 0: by chance
    uint32_t percent; // of them
    uint32_t milliseconds;
};

struct Plan {
    Item items[kMaxItems];
    uint32_t item_count;
    uint32_t counts[static_cast<uint32_t>(Fault::kinds)];
    uint32_t seed;
    uint64_t chance;
    uint32_t delay;
};

Plan plan;

// splitmix64: the same numbers from the same seed on every machine.
uint32_t chance_next() {
    plan.chance += 0x9E3779B97F4A7C15;
    uint64_t mixed = plan.chance;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return static_cast<uint32_t>((mixed ^ (mixed >> 31)) >> 32);
}

// A whole number within limits; *text goes behind it.
bool limited_read(const char **text, uint32_t low, uint32_t high, uint32_t *number) {
    return number_read(*text, text, number) && *number >= low && *number <= high;
}

bool kind_read(const char **text, uint32_t *kind) {
    for (*kind = 0; *kind < static_cast<uint32_t>(Fault::kinds); ++*kind) {
        const size_t length = strlen(kKinds[*kind].name);
        if (strncmp(*text, kKinds[*kind].name, length) != 0 || ((*text)[length] != ':' && (*text)[length] != '%'))
            continue;
        *text += length;
        return true;
    }
    return false;
}

// "memory:12", "send%5", "delay:3=200"
bool item_read(const char **text, Item &item) {
    item = {};
    if (!kind_read(text, &item.kind))
        return false;
    const bool by_chance = *(*text)++ == '%';
    if (!(by_chance ? limited_read(text, 1, kPercent, &item.percent) : limited_read(text, 1, UINT32_MAX, &item.number)))
        return false;
    if (item.kind != static_cast<uint32_t>(Fault::delay))
        return true;
    return *(*text)++ == '=' && limited_read(text, 1, kLongestDelay, &item.milliseconds);
}

bool seed_read(const char **text) {
    constexpr char kSeed[] = "seed=";
    if (strncmp(*text, kSeed, sizeof kSeed - 1) != 0)
        return false;
    *text += sizeof kSeed - 1;
    return limited_read(text, 0, UINT32_MAX, &plan.seed);
}

bool plan_read(const char *text) {
    for (;;) {
        if (strncmp(text, "seed", 4) == 0) {
            if (!seed_read(&text))
                return false;
        } else if (plan.item_count == kMaxItems || !item_read(&text, plan.items[plan.item_count])) {
            return false;
        } else {
            plan.item_count++;
        }
        if (*text == '\0')
            return plan.item_count > 0;
        if (*text++ != ',')
            return false;
    }
}

bool item_strikes(const Item &item, uint32_t count) {
    return item.number != 0 ? item.number == count : chance_next() % kPercent < item.percent;
}

} // namespace

void faults_read(const char *text) {
    plan = {};
    plan.seed = 1;
    faults_on = false;
    if (text == nullptr || *text == '\0')
        return;
    if (!plan_read(text)) {
        note(ZIL_TRACE_ERROR,
             "KEX_FAULTS is no list of at most %u faults like memory:12,send%%5,delay:3=200,seed=7: nothing fails",
             kMaxItems);
        return;
    }
    plan.chance = plan.seed;
    faults_on = true;
    note(ZIL_TRACE_WARNING, "faults on request: KEX_FAULTS=%s with seed=%u", text, plan.seed);
}

bool fault_strikes(Fault fault) {
    const uint32_t kind = static_cast<uint32_t>(fault);
    const uint32_t count = ++plan.counts[kind];
    bool strikes = false;
    for (uint32_t i = 0; i < plan.item_count; i++) {
        const Item &item = plan.items[i];
        if (item.kind != kind || !item_strikes(item, count))
            continue;
        strikes = true;
        plan.delay = item.milliseconds;
    }
    if (!strikes)
        return false;
    note(ZIL_TRACE_WARNING, "fault on request: %s:%u", kKinds[kind].name, count);
    errno = kKinds[kind].error;
    return true;
}

uint32_t fault_delay() {
    return plan.delay;
}

} // namespace bus
