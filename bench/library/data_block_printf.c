/* SPDX-License-Identifier: MIT */
/* Call setup blocks with what the C library has for numbers, and no trace messages. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "peers.h"

static uint32_t item_write(char *out, int type, const libvoice_db_field *field, uint8_t *sum) {
    const uint8_t *value = field->value;
    char *end = out;
    if (!value)
        return 0;
    end += sprintf(end, "%02X%02X", (unsigned)type, (unsigned)field->length);
    *sum = (uint8_t)(*sum + (unsigned)type + field->length);
    for (uint32_t i = 0; i < field->length; ++i) {
        end += sprintf(end, "%02X", value[i]);
        *sum = (uint8_t)(*sum + value[i]);
    }
    return (uint32_t)(end - out);
}

uint32_t printf_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common, char *out) {
    char length[3];
    uint32_t end = 4;
    uint8_t sum = LIBVOICE_DB_CALL_SETUP;
    end += item_write(out + end, 0x01, &common->date_time, &sum);
    end += item_write(out + end, 0x02, &common->calling_number, &sum);
    end += item_write(out + end, 0x04, &common->no_calling_number, &sum);
    end += item_write(out + end, 0x07, &message->name, &sum);
    end += item_write(out + end, 0x08, &message->no_name, &sum);
    end += item_write(out + end, 0x03, &message->slot2, &sum);
    end += item_write(out + end, 0x11, &message->call_type, &sum);
    sum = (uint8_t)(sum + (end - 4) / 2);
    memcpy(out, "80", 2);
    snprintf(length, sizeof length, "%02X", (unsigned)((end - 4) / 2 & 255));
    memcpy(out + 2, length, 2);
    end += (uint32_t)sprintf(out + end, "%02X", sum);
    return end + 1;
}

static uint8_t byte_at(const char *text, uint32_t k) {
    const char two[3] = {text[2 * k], text[2 * k + 1], '\0'};
    return (uint8_t)strtol(two, NULL, 16);
}

static const libvoice_db_field *field_of(int type, const libvoice_db_message_fields *message,
                                         const libvoice_db_common_fields *common) {
    switch (type) {
    case 0x01:
        return &common->date_time;
    case 0x02:
        return &common->calling_number;
    case 0x03:
        return &message->slot2;
    case 0x04:
        return &common->no_calling_number;
    case 0x07:
        return &message->name;
    case 0x08:
        return &message->no_name;
    case 0x11:
        return &message->call_type;
    default:
        return NULL;
    }
}

int printf_decode(const char *text, libvoice_db_message_fields *message, libvoice_db_common_fields *common) {
    const uint32_t length = byte_at(text, 1);
    uint8_t sum = 0;
    if (strlen(text) < 2 * (length + 3) || byte_at(text, 0) != LIBVOICE_DB_CALL_SETUP)
        return 1;
    for (uint32_t k = 0; k < length + 2; ++k)
        sum = (uint8_t)(sum + byte_at(text, k));
    if (sum != byte_at(text, length + 2))
        return 1;
    for (uint32_t at = 2; at <= length && at + byte_at(text, at + 1) <= length; at += byte_at(text, at + 1) + 2u) {
        const libvoice_db_field *field = field_of(byte_at(text, at), message, common);
        uint8_t *value = field ? field->value : NULL;
        uint32_t k = 0;
        if (!value)
            continue;
        for (; k < byte_at(text, at + 1) && (k < field->length || k == 0); ++k)
            value[k] = byte_at(text, at + 2 + k);
        if (field->length > 1)
            value[k] = '\0';
    }
    return 0;
}
