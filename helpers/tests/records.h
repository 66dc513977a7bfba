// SPDX-License-Identifier: MIT
// Records as the tests write them down: words in host byte order, and texts in them.
#pragma once

#include <cstring>
#include <initializer_list>
#include <string>

#include "voice_fake/bus.h"

namespace records {

inline std::string words(std::initializer_list<uint32_t> values) {
    std::string bytes;
    for (const uint32_t value : values)
        bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
    return bytes;
}

// One item: identifier, length, value and its padding.
inline std::string item(uint32_t id, const std::string &value) {
    std::string bytes = words({id, static_cast<uint32_t>(value.size())}) + value;
    bytes.append((4 - value.size() % 4) % 4, '\0');
    return bytes;
}

inline std::string integer(uint32_t id, uint32_t value) {
    return item(id, words({value}));
}

inline std::string text(uint32_t id, const std::string &value) {
    return item(id, value + '\0');
}

// A parameter buffer on a word boundary, as the bus hands it out.
class Buffer {
public:
    explicit Buffer(const std::string &bytes) : words_(bytes.size() / 4 + 1), length_(bytes.size()) {
        memcpy(words_.data(), bytes.data(), bytes.size());
    }
    void *data() { return words_.data(); }
    template <typename Record>
    Record *as() {
        return static_cast<Record *>(data());
    }
    const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(words_.data()); }
    uint32_t length() const { return static_cast<uint32_t>(length_); }

private:
    std::vector<uint32_t> words_;
    size_t length_;
};

} // namespace records
