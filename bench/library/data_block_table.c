/* SPDX-License-Identifier: MIT */
/* Call setup blocks by a table of fields, in C by hand: each byte is turned once, and the same trace messages are written. */
#include <string.h>

#include "peers.h"
#include "ziltrace.h"

#define SHOW(format, ...)                                                                                           \
    zilTraceZ(ZIL_TRACE_INFO, "SIGNL", "%s%-7.7s%s - %s[%s]%s%s" format "%s - %s(%s@%s:%d)%s", "", "SIGNL", "", "", \
              "i", "", "", __VA_ARGS__, "", "", __func__, "data_block_table.c", __LINE__, "")

struct field {
    uint8_t type;
    uint8_t size;
    uint8_t is_text;
    uint8_t of_message;
    uint16_t offset;
    const char *label;
};

#define COMMON(type, size, text, name, label) \
    { type, size, text, 0, offsetof(libvoice_db_common_fields, name), label }
#define MESSAGE(type, size, text, name, label) \
    { type, size, text, 1, offsetof(libvoice_db_message_fields, name), label }

static const struct field fields[] = {
    COMMON(0x01, 8, 1, date_time, "time"),     COMMON(0x02, 20, 1, calling_number, "id"),
    COMMON(0x04, 1, 0, no_calling_number, ""), MESSAGE(0x07, 50, 1, name, "name"),
    MESSAGE(0x08, 1, 0, no_name, ""),          MESSAGE(0x03, 20, 1, slot2, "called id"),
    MESSAGE(0x11, 1, 0, call_type, ""),
};
#define FIELDS (sizeof fields / sizeof fields[0])

static const char digits[] = "0123456789ABCDEF";
static const int8_t digit_values[256] = {
    ['0'] = 1,  ['1'] = 2,  ['2'] = 3,  ['3'] = 4,  ['4'] = 5,  ['5'] = 6,  ['6'] = 7,  ['7'] = 8,
    ['8'] = 9,  ['9'] = 10, ['A'] = 11, ['B'] = 12, ['C'] = 13, ['D'] = 14, ['E'] = 15, ['F'] = 16,
    ['a'] = 11, ['b'] = 12, ['c'] = 13, ['d'] = 14, ['e'] = 15, ['f'] = 16,
};

static const libvoice_db_field *field_of(const struct field *f, const void *message, const void *common) {
    return (const libvoice_db_field *)((const char *)(f->of_message ? message : common) + f->offset);
}

uint32_t table_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common, char *out) {
    uint8_t block[128];
    uint32_t end = 2;
    uint8_t sum = 0;
    block[0] = LIBVOICE_DB_CALL_SETUP;
    for (size_t i = 0; i < FIELDS; ++i) {
        const libvoice_db_field *field = field_of(&fields[i], message, common);
        const uint32_t length = field->length < fields[i].size ? field->length : fields[i].size;
        if (!field->value)
            continue;
        block[end] = fields[i].type;
        block[end + 1] = (uint8_t)length;
        memcpy(block + end + 2, field->value, length);
        end += 2 + length;
    }
    block[1] = (uint8_t)(end - 2);
    for (uint32_t i = 0; i < end; ++i)
        sum = (uint8_t)(sum + block[i]);
    block[end++] = sum;
    for (uint32_t i = 0; i < end; ++i) {
        out[2 * i] = digits[block[i] >> 4];
        out[2 * i + 1] = digits[block[i] & 15];
    }
    out[2 * end] = '\0';
    return 2 * end + 1;
}

static const struct field *field_find(uint8_t type) {
    for (size_t i = 0; i < FIELDS; ++i)
        if (fields[i].type == type)
            return &fields[i];
    return NULL;
}

int table_decode(const char *text, libvoice_db_message_fields *message, libvoice_db_common_fields *common) {
    uint8_t block[260];
    const size_t bytes = strlen(text) / 2;
    uint8_t sum = 0;
    if (bytes < 3 || bytes > sizeof block)
        return 1;
    for (size_t i = 0; i < bytes; ++i) {
        const int high = digit_values[(uint8_t)text[2 * i]], low = digit_values[(uint8_t)text[2 * i + 1]];
        if (high == 0 || low == 0)
            return 1;
        block[i] = (uint8_t)((high - 1) << 4 | (low - 1));
    }
    SHOW("db = %s", text);
    SHOW("mtype = 0x%02x, len = 0x%02x", block[0], block[1]);
    if (bytes < block[1] + 3u || block[0] != LIBVOICE_DB_CALL_SETUP)
        return 1;
    for (uint32_t i = 0; i < block[1] + 2u; ++i)
        sum = (uint8_t)(sum + block[i]);
    if (sum != block[block[1] + 2])
        return 1;
    for (uint32_t at = 2; at <= block[1] && at + block[at + 1] <= block[1]; at += block[at + 1] + 2u) {
        const struct field *f = field_find(block[at]);
        const libvoice_db_field *field = f ? field_of(f, message, common) : NULL;
        const uint32_t length = field && block[at + 1] > field->length ? field->length : block[at + 1];
        if (!field || !field->value)
            continue;
        if (!f->is_text) {
            *(uint8_t *)field->value = block[at + 2];
            continue;
        }
        memset(field->value, 0, field->length);
        memcpy(field->value, block + at + 2, length);
        ((char *)field->value)[length] = '\0';
        SHOW("%s = %s", f->label, (const char *)field->value);
    }
    return 0;
}
