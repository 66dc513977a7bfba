/* SPDX-License-Identifier: MIT */
/* The parameter buffer as one writes it by hand, with the same checks and without the oddities of its ends. */
#include <string.h>

#include "peers.h"

static uint64_t padded(uint32_t length) {
    return ((uint64_t)length + 3) & ~(uint64_t)3;
}

int plain_add(uint32_t id, uint32_t length, const void *value, uint8_t **cursor, uint32_t *remaining) {
    const uint64_t needed = 8 + padded(length);
    uint8_t *item = *cursor;
    if (*remaining < needed || (length != 0 && !value))
        return 1;
    memcpy(item, &id, 4);
    memcpy(item + 4, &length, 4);
    memset(item + needed - 4, 0, length != 0 ? 4 : 0);
    memcpy(item + 8, value, length);
    *cursor = item + needed;
    *remaining -= (uint32_t)needed;
    return 0;
}

int plain_next(uint32_t *id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining) {
    uint8_t *item = *cursor;
    uint32_t bytes;
    if (*remaining < 8)
        return 1;
    memcpy(&bytes, item + 4, 4);
    if (*remaining - 8 < padded(bytes))
        return 1;
    memcpy(id, item, 4);
    *length = bytes;
    *value = item + 8;
    *cursor = item + 8 + padded(bytes);
    *remaining -= 8 + (uint32_t)padded(bytes);
    return 0;
}

int plain_find(uint32_t id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining) {
    uint8_t *item = *cursor;
    uint32_t left = *remaining;
    while (left >= 8) {
        uint32_t found, bytes;
        memcpy(&found, item, 4);
        memcpy(&bytes, item + 4, 4);
        if (left - 8 < padded(bytes))
            return 1;
        left -= 8 + (uint32_t)padded(bytes);
        item += 8;
        if (found == id) {
            *length = bytes;
            *value = item;
            *cursor = item + padded(bytes);
            *remaining = left;
            return 0;
        }
        item += padded(bytes);
    }
    return 1;
}
