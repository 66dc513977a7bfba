// SPDX-License-Identifier: MIT
// The parameter buffer: writing items, finding one, walking all. Both sides of the bus use it.
//
//     0         4         8            8+length
//    +---------+---------+------------+-------------+
//    | id      | length  | value ...  | 0 to 3 zeros|   whole 32-bit words, host byte order
//    +---------+---------+------------+-------------+
#include <string.h> // memcpy, memset

#include "libvoice_plugin.h"
#include "trace.h"

namespace {

constexpr uint32_t kWord = 4;
constexpr uint32_t kHead = 2 * kWord;

// The zeros behind a value.
constexpr uint32_t padding(uint32_t length) {
    return -length % kWord;
}

// Whether this many bytes hold a value and its zeros. No length from outside can wrap.
constexpr bool holds(uint32_t bytes, uint32_t length) {
    return length <= bytes && padding(length) <= bytes - length;
}

uint32_t word_at(const uint8_t *bytes) {
    uint32_t word;
    memcpy(&word, bytes, kWord);
    return word;
}

// Skips one word.
uint32_t next_word(uint8_t **cursor, uint32_t *remaining, voice::Where here) {
    if (*remaining < kWord) {
        TRACE_ERROR_AT(here, "Error buflen < 4");
        return LIBVOICE_ERR_PARAM_FORMAT;
    }
    *cursor += kWord;
    *remaining -= kWord;
    return LIBVOICE_OK;
}

// The two word readers where less than the head of an item is left; trace messages bear their names. What the words say
// is of no interest there.
uint32_t libvoice_p_id(uint8_t **cursor, uint32_t *remaining) {
    return next_word(cursor, remaining, voice::Where::caller());
}

uint32_t libvoice_p_len(uint8_t **cursor, uint32_t *remaining) {
    return next_word(cursor, remaining, voice::Where::caller());
}

// A search has come to the last bytes, too few for an item.
uint32_t rest_find(uint8_t **cursor, uint32_t *remaining) {
    // A cut-off tail where an item should start is "not found", as is an identifier with nothing behind it.
    if (*remaining == 0 || libvoice_p_id(cursor, remaining) != LIBVOICE_OK || *remaining == 0)
        return LIBVOICE_ERR_PARAM_NOT_FOUND;
    return libvoice_p_len(cursor, remaining);
}

// A walk has.
uint32_t rest_walk(uint8_t **cursor, uint32_t *remaining) {
    // Kept: an empty rest skips the identifier: trace message and result are those of the length reader.
    if (*remaining != 0 && libvoice_p_id(cursor, remaining) != LIBVOICE_OK)
        return LIBVOICE_ERR_PARAM_FORMAT;
    return libvoice_p_len(cursor, remaining);
}

} // namespace

extern "C" {

uint32_t libvoice_add_param(uint32_t id, uint32_t length, const void *value, uint8_t **cursor, uint32_t *remaining) {
    const uint32_t room = *remaining;
    if (room < kHead || !holds(room - kHead, length))
        return LIBVOICE_ERR_PARAM_NO_SPACE;
    if (length != 0 && !value)
        return LIBVOICE_ERR_INVALID_ARG;
    uint8_t *item = *cursor;
    uint8_t *end = item + kHead + length + padding(length);
    memcpy(item, &id, kWord);
    memcpy(item + kWord, &length, kWord);
    *cursor = end;
    *remaining = room - static_cast<uint32_t>(end - item);
    if (length == 0)
        return LIBVOICE_OK;
    // Clear the last word first: the value then covers its share, and no old memory leaves the process.
    memset(end - kWord, 0, kWord);
    memcpy(item + kHead, value, length);
    return LIBVOICE_OK;
}

uint32_t libvoice_get_param(uint32_t id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining) {
    uint8_t *item = *cursor;
    uint32_t left = *remaining;
    while (left >= kHead) {
        const uint32_t found = word_at(item);
        const uint32_t bytes = word_at(item + kWord);
        uint8_t *start = item + kHead;
        left -= kHead;
        if (!holds(left, bytes)) {
            *cursor = start;
            *remaining = left;
            // Kept: success, with the outputs as the caller preset them.
            TRACE_ERROR("buflen < p_len_aligned");
            return LIBVOICE_OK;
        }
        item = start + bytes + padding(bytes);
        left -= bytes + padding(bytes);
        if (found != id)
            continue;
        *cursor = item;
        *remaining = left;
        *length = bytes;
        *value = start;
        return LIBVOICE_OK;
    }
    *cursor = item;
    *remaining = left;
    return rest_find(cursor, remaining);
}

uint32_t libvoice_get_current_param(uint32_t *id, uint32_t *length, uint8_t **value, uint8_t **cursor,
                                    uint32_t *remaining) {
    uint8_t *item = *cursor;
    const uint32_t left = *remaining - kHead;
    if (*remaining < kHead)
        return rest_walk(cursor, remaining);
    const uint32_t bytes = word_at(item + kWord);
    // Kept: success without a trace message when the value is cut off; the caller preset the outputs.
    *cursor = item + kHead;
    *remaining = left;
    if (!holds(left, bytes))
        return LIBVOICE_OK;
    *cursor = item + kHead + bytes + padding(bytes);
    *remaining = left - bytes - padding(bytes);
    *id = word_at(item);
    *length = bytes;
    *value = item + kHead;
    return LIBVOICE_OK;
}
}
