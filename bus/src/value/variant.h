// SPDX-License-Identifier: MIT
// What a variant holds inside, for the files that fill and read it.
#ifndef KEX_VALUE_H
#define KEX_VALUE_H

#include "base/contract.h"

namespace bus {

// Who closes a descriptor.
enum class Ownership : uint32_t {
    borrowed, // whoever set it
    ours,     // received: closed with its value unless somebody reads it
    taken,    // received and read: the reader's
};

struct __attribute__((may_alias)) Value {
    uint32_t type;
    uint32_t length; // of a byte array
    Ownership ownership;
    union {
        int64_t integer;      // integers, booleans and descriptors
        char *text;           // null stands for ""
        uint8_t *bytes;       // null stands for none
        variant_list_t *list; // null stands for an empty list
    };
};
static_assert(sizeof(Value) <= sizeof(variant_t) && alignof(Value) <= alignof(variant_t));

inline Value *inside(variant_t *v) {
    return reinterpret_cast<Value *>(v);
}
inline const Value *inside(const variant_t *v) {
    return reinterpret_cast<const Value *>(v);
}

inline bool value_is_integer(uint32_t type) {
    return type == VARIANT_INT16 || type == VARIANT_INT32 || type == VARIANT_UINT16 || type == VARIANT_UINT32;
}

// Gives a descriptor that was received to the variant, which closes it unless it is read.
void value_own_fd(variant_t *v, int fd);
// An integer type, boolean or descriptor.
void value_set_integer(variant_t *v, uint32_t type, int64_t integer);
// Set text and bytes that need not end with a zero byte. False: no memory; *v is as it was.
bool value_set_text(variant_t *v, const void *text, uint32_t length);
bool value_set_bytes(variant_t *v, const void *bytes, uint32_t length);
// Makes *copy a copy of *v without looking at what *copy held. Descriptors are borrowed. False: no memory; *copy is
// valid.
bool value_copy(variant_t *copy, const variant_t *v);
// Of what the value has allocated; nothing for one that stands in its variant alone.
uint32_t value_footprint(const variant_t *v);
// How many lists stand inside each other: 0 for a value that is none.
uint32_t value_nesting(const variant_t *v);
// Takes memory for so many values in all, and for no more. False: there is none.
bool list_reserve(variant_list_t *list, uint32_t capacity);
// Appends an empty value and hands it out to be filled; null: no memory.
variant_t *list_append(variant_list_t *list);

} // namespace bus

struct variant_list {
    uint32_t count;
    uint32_t capacity;
    variant_t *items;
};

#endif
