// SPDX-License-Identifier: MIT
#include "byte_order.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "identifier.h"
#include "libvoice_meanings.h"

namespace voicectl {

namespace {

constexpr size_t kOrderWord = sizeof(uint32_t);
constexpr size_t kOrderItemHead = 2 * kOrderWord; // identifier, length

uint32_t order_word(const Bytes &bytes, size_t at) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

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

void words_swap(Bytes &bytes, size_t at, size_t end) {
    for (; at + kOrderWord <= end; at += kOrderWord)
        std::reverse(bytes.begin() + static_cast<ptrdiff_t>(at),
                     bytes.begin() + static_cast<ptrdiff_t>(at + kOrderWord));
}

void order_change(size_t head_bytes, Bytes &bytes, bool from_here) {
    size_t at = std::min(head_bytes, bytes.size());
    words_swap(bytes, 0, at);
    while (bytes.size() - at >= kOrderItemHead) {
        const uint32_t before[] = {order_word(bytes, at), order_word(bytes, at + kOrderWord)};
        words_swap(bytes, at, at + kOrderItemHead);
        const uint32_t id = from_here ? before[0] : order_word(bytes, at);
        const uint64_t length = from_here ? before[1] : order_word(bytes, at + kOrderWord);
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
