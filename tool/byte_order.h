// SPDX-License-Identifier: MIT
// Words in the byte order of this machine, and records that a machine of the other order wrote.
#ifndef VOICECTL_BYTE_ORDER_H
#define VOICECTL_BYTE_ORDER_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "value.h"

namespace voicectl {

enum class ByteOrder { little, big };

// The order of this machine.
ByteOrder byte_order_here();

constexpr size_t kWordBytes = sizeof(uint32_t);

// The word that begins there; the bytes hold all of it.
uint32_t word_at(std::span<const uint8_t> bytes, size_t at);
void word_add(Bytes &bytes, uint32_t word);

// Turns each whole word in [at, end) around.
void words_swap(Bytes &bytes, size_t at, size_t end);

// A record, `head_bytes` of words and a parameter buffer behind them, of the other byte order becomes one of this machine's;
// with `from_here` the reverse. Past what can be walked it stays as it is.
void order_change(size_t head_bytes, Bytes &bytes, bool from_here);

} // namespace voicectl

#endif
