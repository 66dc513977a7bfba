// SPDX-License-Identifier: MIT
// Values: what stands in the 32 bytes of a variant_t.
#ifndef SDBUS_VALUE_H
#define SDBUS_VALUE_H

#include "base/contract.h" // kex.h and kex_host.h, for the linker to see

#include <deque>
#include <string>
#include <utility>
#include <vector>

struct variant_list {
    std::deque<variant_t> items; // which do not move when more are added
};

namespace sdbus {

// Zero-filled it is an empty text: a null `text`.
struct __attribute__((may_alias)) Inside {
    uint32_t type;  // a variant_type_code
    uint32_t owned; // a received descriptor that nobody has read
    int64_t number; // of integers, booleans and descriptors
    union {
        std::string *text; // of texts and bytes
        variant_list_t *list;
    };
};
static_assert(sizeof(Inside) <= sizeof(variant_t));

inline Inside *inside(variant_t *v) {
    return reinterpret_cast<Inside *>(v->opaque);
}
inline const Inside *inside(const variant_t *v) {
    return reinterpret_cast<const Inside *>(v->opaque);
}

// A variant that cleans up after itself, for what this library keeps.
struct Value : variant_t {
    Value() { variant_initialize(this, VARIANT_NONE); }
    Value(Value &&other) noexcept : variant_t(other) { variant_initialize(&other, VARIANT_NONE); }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    ~Value() { variant_cleanup(this); }
};

using Parameters = std::vector<std::pair<std::string, Value>>; // names and values

bool value_copy(variant_t *copy, const variant_t *v);
// A copy of a list that gets its descriptors; the original keeps -1 in their places.
variant_list_t *list_take(variant_list_t *list);
void value_set_text(variant_t *v, uint32_t type, const void *data, size_t length);

// What a message takes until it has been sent.
struct Weight {
    size_t bytes = 1536; // of the heap: what sd-bus keeps for a short one
    size_t descriptors = 0;
};
void value_weigh(const variant_t *v, Weight &weight);

} // namespace sdbus

#endif
