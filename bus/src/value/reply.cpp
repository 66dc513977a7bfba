// SPDX-License-Identifier: MIT
// Replies and their items (kex.h, "Requests and replies").
#include "value/reply.h"
#include "base/list.h"

#include <string.h>

using namespace bus;

namespace {

reply_item_t *append(reply_t *reply, int32_t type) {
    reply_item_t *item = make<reply_item_t>();
    if (item == nullptr)
        return nullptr;
    item->type = type;
    variant_initialize(&item->value, VARIANT_NONE);
    (reply->last != nullptr ? reply->last->next : reply->first) = item;
    reply->last = item;
    return item;
}

char *copy(wire::Text text) {
    char *bytes = static_cast<char *>(malloc(size_t{text.length} + 1));
    if (bytes == nullptr)
        return nullptr;
    memcpy(bytes, text.bytes, text.length);
    bytes[text.length] = '\0';
    return bytes;
}

} // namespace

namespace bus {

void reply_clear(reply_t *reply) {
    while (reply->first != nullptr) {
        reply_item_t *item = reply->first;
        reply->first = item->next;
        variant_cleanup(&item->value);
        free(item->description);
        free(item->info);
        free(item);
    }
    reply->last = nullptr;
    reply->errors = 0;
}

bool reply_append_error(reply_t *reply, uint32_t code, wire::Text description, wire::Text info) {
    char *copy_of_description = copy(description);
    char *copy_of_info = copy(info);
    bool complete = copy_of_description != nullptr && copy_of_info != nullptr;
    reply_item_t *item = complete ? append(reply, REPLY_ITEM_ERROR) : nullptr;
    if (item == nullptr) {
        free(copy_of_description);
        free(copy_of_info);
        return false;
    }
    item->code = code;
    item->description = copy_of_description;
    item->info = copy_of_info;
    reply->errors++;
    return true;
}

bool reply_append_error(reply_t *reply, uint32_t code, const char *description, const char *info) {
    return reply_append_error(reply, code, {description, static_cast<uint32_t>(strlen(description))},
                              {info, static_cast<uint32_t>(strlen(info))});
}

variant_t *reply_append_value(reply_t *reply) {
    reply_item_t *item = append(reply, REPLY_ITEM_RETURN_VALUE);
    return item != nullptr ? &item->value : nullptr;
}

void reply_write(wire::Writer &writer, const reply_t *reply, const variant_t *value) {
    wire::put_byte(writer, static_cast<uint8_t>(reply->errors));
    for (const reply_item_t *item = reply->first; item != nullptr; item = item->next) {
        wire::put_word(writer, item->code);
        wire::put_text(writer, item->description);
        wire::put_text(writer, item->info);
    }
    bool has_value = value != nullptr && variant_type(value) != VARIANT_NONE;
    wire::put_byte(writer, has_value);
    if (has_value)
        wire::put_value(writer, value);
}

} // namespace bus

reply_item_t *reply_firstItem(reply_t *reply) {
    return reply != nullptr ? reply->first : nullptr;
}
reply_item_t *reply_nextItem(reply_item_t *item) {
    return item != nullptr ? item->next : nullptr;
}
int32_t reply_item_type(reply_item_t *item) {
    return item != nullptr ? item->type : 0;
}
uint32_t reply_item_error(reply_item_t *item) {
    return item != nullptr ? item->code : 0;
}

const char *reply_item_errorDescription(reply_item_t *item) {
    if (item == nullptr)
        return nullptr;
    return item->description != nullptr ? item->description : "";
}

const char *reply_item_errorInfo(reply_item_t *item) {
    if (item == nullptr)
        return nullptr;
    return item->info != nullptr ? item->info : "";
}

const variant_t *reply_item_returnValue(reply_item_t *item) {
    return item != nullptr && item->type == REPLY_ITEM_RETURN_VALUE ? &item->value : nullptr;
}

int reply_addError(reply_t *reply, uint32_t code, const char *description, const char *info) {
    if (reply == nullptr || description == nullptr || info == nullptr)
        return 0;
    if (!reply->being_built || reply->errors == kMaxErrors)
        return 0;
    return reply_append_error(reply, code, description, info);
}
