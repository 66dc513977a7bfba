// SPDX-License-Identifier: MIT
// Replies: errors, then at most one value (kex.h, "Requests and replies").
#include "bus.h"

using namespace sdbus;

namespace {

reply_item_t *item_append(reply_t &reply, int32_t type) {
    reply.items.push_back(std::make_unique<reply_item>());
    reply_item_t *item = reply.items.back().get();
    item->reply = &reply;
    item->index = reply.items.size() - 1;
    item->type = type;
    return item;
}

void errors_read(Reader &reader, reply_t &reply) {
    reader.enter('a', "(uayay)");
    while (reader.more()) {
        uint32_t code = 0;
        std::string description, info;
        reader.enter('r', "uayay");
        reader.number('u', &code);
        reader.bytes(description);
        reader.bytes(info);
        reader.exit();
        reply_add(reply, code, description, info);
    }
    reader.exit();
}

} // namespace

namespace sdbus {

void reply_add(reply_t &reply, uint32_t code, const std::string &description, const std::string &info) {
    if (reply.items.size() >= kMaxErrors)
        return;
    reply_item_t *item = item_append(reply, REPLY_ITEM_ERROR);
    item->code = code;
    item->description = description;
    item->info = info;
}

int reply_read(sd_bus_message *message, reply_t &reply) {
    Value value;
    Reader reader{message};
    errors_read(reader, reply);
    reader.value(&value);
    if (reader.result >= 0 && variant_type(&value) != VARIANT_NONE)
        std::swap(static_cast<variant_t &>(item_append(reply, REPLY_ITEM_RETURN_VALUE)->value),
                  static_cast<variant_t &>(value));
    return reader.result;
}

int reply_write(sd_bus_message *message, const reply_t &reply, const variant_t *value) {
    Writer writer{message};
    writer.open('a', "(uayay)");
    for (const std::unique_ptr<reply_item> &item : reply.items) {
        writer.open('r', "uayay");
        writer.number('u', &item->code);
        writer.bytes(item->description);
        writer.bytes(item->info);
        writer.close();
    }
    writer.close();
    writer.value(value);
    return writer.result;
}

Weight reply_weigh(const reply_t &reply, const variant_t *value) {
    Weight weight;
    for (const std::unique_ptr<reply_item> &item : reply.items)
        weight.bytes += item->description.size() + item->info.size();
    value_weigh(value, weight);
    return weight;
}

} // namespace sdbus

reply_item_t *reply_firstItem(reply_t *reply) {
    return reply != nullptr && !reply->items.empty() ? reply->items.front().get() : nullptr;
}
reply_item_t *reply_nextItem(reply_item_t *item) {
    const bool is_last = item == nullptr || item->index + 1 >= item->reply->items.size();
    return is_last ? nullptr : item->reply->items[item->index + 1].get();
}
int32_t reply_item_type(reply_item_t *item) {
    return item != nullptr ? item->type : 0;
}
uint32_t reply_item_error(reply_item_t *item) {
    return item != nullptr ? item->code : 0;
}
const char *reply_item_errorDescription(reply_item_t *item) {
    return item != nullptr ? item->description.c_str() : nullptr;
}
const char *reply_item_errorInfo(reply_item_t *item) {
    return item != nullptr ? item->info.c_str() : nullptr;
}
const variant_t *reply_item_returnValue(reply_item_t *item) {
    return item != nullptr && item->type == REPLY_ITEM_RETURN_VALUE ? &item->value : nullptr;
}

int reply_addError(reply_t *reply, uint32_t code, const char *description, const char *info) {
    if (reply == nullptr || !reply->being_built || reply->items.size() >= kMaxErrors)
        return 0;
    reply_add(*reply, code, description != nullptr ? description : "", info != nullptr ? info : "");
    return 1;
}
