// SPDX-License-Identifier: MIT
// Records written by a machine of the other byte order.
#ifndef VOICECTL_BYTE_ORDER_H
#define VOICECTL_BYTE_ORDER_H

#include <cstddef>

#include "value.h"

namespace voicectl {

enum class ByteOrder { little, big };

// The order of this machine.
ByteOrder byte_order_here();

// Turns each whole word in [at, end) around.
void words_swap(Bytes &bytes, size_t at, size_t end);

// A record, `head_bytes` of words and a parameter buffer behind them, of the other byte order becomes one of this machine's;
// with `from_here` the reverse. Past what can be walked it stays as it is.
void order_change(size_t head_bytes, Bytes &bytes, bool from_here);

} // namespace voicectl

#endif
