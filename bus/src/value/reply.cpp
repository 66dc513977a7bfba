// SPDX-License-Identifier: MIT
// Replies and their items (kex.h, "Requests and replies").
#include "value/reply.h"
#include "base/footprint.h"
#include "base/limits.h"
#include "base/list.h"
#include "value/variant.h"

#include <initializer_list>
#include <string.h>

using namespace bus;

namespace {

reply_item_t *item_append(reply_t *reply, int32_t type) {
    reply_item_t *item = make<reply_item_t>();
    if (item == nullptr)
        return nullptr;
    item->type = type;
    variant_initialize(&item->value, VARIANT_NONE);
    (reply->last != nullptr ? reply->last->next : reply->first) = item;
    reply->last = item;
    return item;
}

// No more than its readers see: what is kept is counted by that (reply_footprint()).
char *text_copy(Text whole) {
    const Text text = text_as_read(whole);
    char *bytes = static_cast<char *>(memory_take(size_t{text.length} + 1));
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

bool reply_append_error(reply_t *reply, uint32_t code, Text description, Text info) {
    char *copy_of_description = text_copy(description);
    char *copy_of_info = text_copy(info);
    bool complete = copy_of_description != nullptr && copy_of_info != nullptr;
    reply_item_t *item = complete ? item_append(reply, REPLY_ITEM_ERROR) : nullptr;
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

uint32_t reply_footprint(const reply_t *reply) {
    uint32_t whole = 0;
    for (const reply_item_t *item = reply->first; item != nullptr; item = item->next) {
        whole += footprint(sizeof(reply_item_t)) + value_footprint(&item->value);
        for (const char *text : {item->description, item->info})
            whole += text != nullptr ? footprint(strlen(text) + 1) : 0;
    }
    return whole;
}

variant_t *reply_append_value(reply_t *reply) {
    reply_item_t *item = item_append(reply, REPLY_ITEM_RETURN_VALUE);
    return item != nullptr ? &item->value : nullptr;
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
    return reply_append_error(reply, code, text_of(description), text_of(info));
}
