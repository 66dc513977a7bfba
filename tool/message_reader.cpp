// SPDX-License-Identifier: MIT
#include "message_reader.h"

#include <utility>

#include <fmt/format.h>

#include "kex.h"

namespace voicectl {

namespace {

constexpr unsigned kMostNesting = 16; // of lists; the bus allows fewer

} // namespace

void MessageReader::fail(const std::string &fault) {
    if (fault_.empty())
        fault_ = fault;
    bytes_ = {};
}

std::string_view MessageReader::take(size_t size) {
    if (size > bytes_.size()) {
        fail(fmt::format("{} bytes are announced, {} are left", size, bytes_.size()));
        return {};
    }
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
}

uint32_t MessageReader::number(size_t size) {
    const std::string_view bytes = take(size);
    uint32_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const size_t place = order_ == ByteOrder::big ? bytes.size() - 1 - i : i;
        value |= uint32_t{static_cast<uint8_t>(bytes[i])} << 8 * place;
    }
    return value;
}

uint8_t MessageReader::byte() {
    return static_cast<uint8_t>(number(1));
}

uint16_t MessageReader::half() {
    return static_cast<uint16_t>(number(2));
}

uint32_t MessageReader::word() {
    return number(4);
}

std::string_view MessageReader::text() {
    return take(word());
}

Value MessageReader::list(unsigned depth) {
    Value value{.type = Value::Type::list};
    if (depth >= kMostNesting) {
        fail("lists are nested too deeply");
        return value;
    }
    for (uint32_t left = word(); left > 0 && is_good(); --left)
        value.list.push_back(nested_value(depth + 1));
    return value;
}

Value MessageReader::nested_value(unsigned depth) {
    const uint8_t code = byte();
    if (!is_good())
        return {};
    switch (code) {
    case VARIANT_TEXT:
        return {.type = Value::Type::text, .text = std::string(text())};
    case VARIANT_INT16:
        return {.type = Value::Type::number, .number = static_cast<int16_t>(half())};
    case VARIANT_UINT16:
        return {.type = Value::Type::number, .number = half()};
    case VARIANT_INT32:
        return {.type = Value::Type::number, .number = static_cast<int32_t>(word())};
    case VARIANT_UINT32:
        return {.type = Value::Type::number, .number = word()};
    case VARIANT_BOOL:
        return {.type = Value::Type::boolean, .number = byte() != 0};
    case VARIANT_FD:
        word(); // its place among the message's
        return {.type = Value::Type::descriptor, .number = static_cast<int32_t>(word())};
    case VARIANT_BYTES: {
        const std::string_view bytes = text();
        return {.type = Value::Type::bytes, .bytes = {bytes.begin(), bytes.end()}};
    }
    case VARIANT_LIST:
        return list(depth);
    case VARIANT_NONE:
        return {};
    default:
        fail(fmt::format("a value of type {}", code));
        return {};
    }
}

} // namespace voicectl
