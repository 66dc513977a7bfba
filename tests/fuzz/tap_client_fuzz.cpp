// SPDX-License-Identifier: MIT
// The reading side of a tap on any records: what it hands out can be read whole.
#include "tap_feed.h"

using fuzz::Input;
using fuzz::require;

namespace {

volatile unsigned sum;

void text_read(const char *text) {
    require(text != nullptr, "a text of a record is there");
    sum = sum + static_cast<unsigned>(strlen(text));
}

void value_read(const variant_t *value, int depth = 0) {
    constexpr int kDeepest = 4;
    require(value != nullptr, "a value of a record is there");
    require(depth <= kDeepest + 1, "lists stand in each other four deep at most");
    const char *text = nullptr;
    if (variant_toChar(value, &text))
        text_read(text);
    const void *bytes = nullptr;
    uint32_t length = 0;
    if (variant_toByteArray(value, &bytes, &length))
        for (uint32_t i = 0; i < length; ++i)
            sum = sum + static_cast<const uint8_t *>(bytes)[i];
    sum = sum + static_cast<unsigned>(variant_fd(value));
    if (variant_type(value) != VARIANT_LIST)
        return;
    variant_list_t *list = variant_da_list(const_cast<variant_t *>(value));
    for (uint32_t i = 0; i < variant_list_size(list); ++i)
        value_read(variant_list_at(list, i), depth + 1);
}

void record_read(const kex_tap_record_t &record) {
    for (const kex_tap_end_t *end : {&record.from, &record.to})
        require(memchr(end->name, 0, sizeof end->name) != nullptr, "a name is terminated");
    for (const char *text : {record.path, record.function, record.text})
        text_read(text);
    for (uint32_t i = 0; i < record.argument_count; ++i) {
        text_read(record.argument_names[i]);
        value_read(record.arguments[i]);
    }
    for (uint32_t i = 0; i < record.error_count; ++i) {
        sum = sum + record.error_codes[i];
        text_read(record.error_descriptions[i]);
        text_read(record.error_infos[i]);
    }
}

void run(Input &in) {
    constexpr unsigned kMostRecords = 40;
    fuzz::TapFeed feed;
    for (unsigned i = 0; i < kMostRecords && !in.is_empty(); ++i) {
        feed.send(in);
        kex_tap_record_t record = {};
        int result = 0;
        while ((result = feed.next(record)) > 0)
            record_read(record);
        if (result < 0) {
            require(feed.next(record) < 0, "a tap that is over stays so");
            return;
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    const size_t before = fuzz::descriptors_open();
    run(in);
    fuzz::descriptors_settle(before);
    return 0;
}
