// SPDX-License-Identifier: MIT
// Generated values for arguments of bus functions and for replies.
#ifndef FUZZ_VALUES_H
#define FUZZ_VALUES_H

#include "input.h"
#include "voice_fake/bus.h"

#include <string>

namespace fuzz {

// What an argument holds when its caller behaves.
enum class Kind { text, u16, u32, i32, signal, event, set, cnx_info, stream_info, codecs, descriptors };

// A value as an argument should hold it, with contents of any kind.
fake::Value value_of(Input &in, Kind kind);
// A value of any type.
fake::Value any_value(Input &in, int depth = 0);

// One of the names that the targets use for plugins, endpoints and channels, a long one, an empty one, or any text.
std::string name(Input &in);
// A parameter buffer: whole items, or any bytes.
std::string params(Input &in);
// A reply: values, errors, or none.
fake::Reply reply(Input &in);

// Open files to send; they belong to the process, so that no run is charged with them.
int file(uint32_t index);

} // namespace fuzz

#endif
