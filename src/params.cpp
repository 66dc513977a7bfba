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

// A value's share of the buffer, whole words. In 64 bits, so that no length from outside can wrap.
constexpr uint64_t padded(uint32_t length) {
    return (static_cast<uint64_t>(length) + (kWord - 1)) & ~static_cast<uint64_t>(kWord - 1);
}

struct Word {
    uint32_t result;
    uint32_t value;
};

Word next_word(uint8_t **cursor, uint32_t *remaining, voice::Where here) {
    if (*remaining < kWord) {
        TRACE_ERROR_AT(here, "Error buflen < 4");
        return {LIBVOICE_ERR_PARAM_FORMAT, 0};
    }
    Word word = {LIBVOICE_OK, 0};
    memcpy(&word.value, *cursor, kWord);
    *cursor += kWord;
    *remaining -= kWord;
    return word;
}

// The two word readers; trace messages bear their names.
Word libvoice_p_id(uint8_t **cursor, uint32_t *remaining) {
    return next_word(cursor, remaining, voice::Where::caller());
}

Word libvoice_p_len(uint8_t **cursor, uint32_t *remaining) {
    return next_word(cursor, remaining, voice::Where::caller());
}

void consume(uint64_t bytes, uint8_t **cursor, uint32_t *remaining) {
    *cursor += bytes;
    *remaining -= static_cast<uint32_t>(bytes);
}

} // namespace

extern "C" {

uint32_t libvoice_add_param(uint32_t id, uint32_t length, const void *value, uint8_t **cursor, uint32_t *remaining) {
    const uint64_t needed = 2 * kWord + padded(length);
    if (*remaining < needed)
        return LIBVOICE_ERR_PARAM_NO_SPACE;
    if (length != 0 && !value)
        return LIBVOICE_ERR_INVALID_ARG;
    uint8_t *item = *cursor;
    memcpy(item, &id, kWord);
    memcpy(item + kWord, &length, kWord);
    consume(needed, cursor, remaining);
    if (length == 0)
        return LIBVOICE_OK;
    // Clear the last word first: the value then covers its share, and no old memory leaves the process.
    memset(*cursor - kWord, 0, kWord);
    memcpy(item + 2 * kWord, value, length);
    return LIBVOICE_OK;
}

uint32_t libvoice_get_param(uint32_t id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining) {
    while (*remaining != 0) {
        const Word found = libvoice_p_id(cursor, remaining);
        // A cut-off tail where an item should start is "not found", as is an identifier with nothing behind it.
        if (found.result != LIBVOICE_OK || *remaining == 0)
            return LIBVOICE_ERR_PARAM_NOT_FOUND;
        const Word bytes = libvoice_p_len(cursor, remaining);
        if (bytes.result != LIBVOICE_OK)
            return bytes.result;
        if (*remaining < padded(bytes.value)) {
            // Kept: success, with the outputs as the caller preset them.
            TRACE_ERROR("buflen < p_len_aligned");
            return LIBVOICE_OK;
        }
        uint8_t *start = *cursor;
        consume(padded(bytes.value), cursor, remaining);
        if (found.value == id) {
            *length = bytes.value;
            *value = start;
            return LIBVOICE_OK;
        }
    }
    return LIBVOICE_ERR_PARAM_NOT_FOUND;
}

uint32_t libvoice_get_current_param(uint32_t *id, uint32_t *length, uint8_t **value, uint8_t **cursor,
                                    uint32_t *remaining) {
    Word found = {LIBVOICE_OK, 0};
    // Kept: an empty rest skips the identifier: trace message and result are those of the length reader.
    if (*remaining != 0)
        found = libvoice_p_id(cursor, remaining);
    if (found.result != LIBVOICE_OK)
        return found.result;
    const Word bytes = libvoice_p_len(cursor, remaining);
    if (bytes.result != LIBVOICE_OK)
        return bytes.result;
    // Kept: success without a trace message when the value is cut off; the caller preset the outputs.
    if (*remaining < padded(bytes.value))
        return LIBVOICE_OK;
    *id = found.value;
    *length = bytes.value;
    *value = *cursor;
    consume(padded(bytes.value), cursor, remaining);
    return LIBVOICE_OK;
}
}
