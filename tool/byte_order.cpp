// SPDX-License-Identifier: MIT
#include "byte_order.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "identifier.h"
#include "libvoice_meanings.h"

namespace voicectl {

namespace {

constexpr size_t kOrderItemHead = 2 * kWordBytes; // identifier, length

// Whether an item's value is made of words, whose bytes stand in the order of the machine that wrote them.
bool has_words(uint32_t id) {
    const libvoice_meaning *row = libvoice_meaning_of(id);
    const voice::ValueType type = voice::id_value_type(id);
    return type == voice::ValueType::integer || type == voice::ValueType::boolean ||
           (type == voice::ValueType::hex && row != nullptr && row->hex == 'w');
}

} // namespace

ByteOrder byte_order_here() {
    return std::endian::native == std::endian::little ? ByteOrder::little : ByteOrder::big;
}

uint32_t word_at(std::span<const uint8_t> bytes, size_t at) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

void word_add(Bytes &bytes, uint32_t word) {
    bytes.resize(bytes.size() + kWordBytes);
    std::memcpy(bytes.data() + bytes.size() - kWordBytes, &word, kWordBytes);
}

void words_swap(Bytes &bytes, size_t at, size_t end) {
    for (; at + kWordBytes <= end; at += kWordBytes)
        std::reverse(bytes.begin() + static_cast<ptrdiff_t>(at),
                     bytes.begin() + static_cast<ptrdiff_t>(at + kWordBytes));
}

void order_change(size_t head_bytes, Bytes &bytes, bool from_here) {
    size_t at = std::min(head_bytes, bytes.size());
    words_swap(bytes, 0, at);
    while (bytes.size() - at >= kOrderItemHead) {
        const uint32_t before[] = {word_at(bytes, at), word_at(bytes, at + kWordBytes)};
        words_swap(bytes, at, at + kOrderItemHead);
        const uint32_t id = from_here ? before[0] : word_at(bytes, at);
        const uint64_t length = from_here ? before[1] : word_at(bytes, at + kWordBytes);
        at += kOrderItemHead;
        const uint64_t padded = (length + 3) & ~uint64_t{3};
        if (padded > bytes.size() - at)
            return;
        if (has_words(id))
            words_swap(bytes, at, at + length);
        at += padded;
    }
}

} // namespace voicectl
