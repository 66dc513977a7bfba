// SPDX-License-Identifier: MIT
// Parameter buffers and the records around them as text, and back: what is written from the text is the same, byte by
// byte.
//
//     signal = al_ri
//     endpoint = 3
//     al_ri_cad = [1000, 4000]  # cadence 1000/4000 ms
//     al_ri_freq = 25  # 25 Hz
//
// A line is a word of the record's head or an item, in the buffer's order. A value is a number, true or false, a text in
// quotes, a list of words, or bytes, {00ff}, which may stand for any value; an item without one is a name alone. What
// stands behind # means nothing.
#ifndef VOICECTL_PARAMS_TEXT_H
#define VOICECTL_PARAMS_TEXT_H

#include <string>
#include <string_view>

#include "byte_order.h"
#include "params_head.h"
#include "value.h"

namespace voicectl {

constexpr size_t kMostParamsBytes = 96 * 1024; // of a byte array on the bus

struct ParamsRead {
    std::string text{};    // what can be read, a line each
    std::string json{};    // the same as one object, see record_json()
    std::string problem{}; // why the rest cannot be read; empty: all was
};
ParamsRead params_read(ParamsForm form, ByteOrder order, Bytes bytes);

struct ParamsWritten {
    Bytes bytes{};
    std::string problem{}; // which line is wrong and why; the bytes then mean nothing
};
ParamsWritten params_write(ParamsForm form, ByteOrder order, std::string_view text);

} // namespace voicectl

#endif
