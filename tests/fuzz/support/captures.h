// SPDX-License-Identifier: MIT
// Captures for what reads them: pcapng files of either byte order, written a second time and not by the tool's code.
#ifndef FUZZ_CAPTURES_H
#define FUZZ_CAPTURES_H

#include "input.h"

#include <string>
#include <vector>

namespace fuzz {

struct Capture {
    std::string bytes;
    bool has_any_bytes = false; // which say something else in the other order
};

// A pcapng file of messages of the bus, of sound and of other blocks, some of them broken. The same input makes the same file
// in the other order: only what stands in a packet does not change with it.
Capture capture(Input &in, bool is_big);

// The file as it comes: in pieces whose sizes the input says, then the rest.
std::vector<std::string> pieces(Input &in, const std::string &file);

// A file without a name that holds the bytes, to be read from its begin; the caller closes it.
int file_of(const std::string &bytes);
// The path that it can be opened by.
std::string path_of(int descriptor);

} // namespace fuzz

#endif
