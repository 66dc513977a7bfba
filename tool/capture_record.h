// SPDX-License-Identifier: MIT
// What a capture keeps of a message: who sent it to whom, by name, and its bytes as they travelled. tool/README.md draws it.
#ifndef VOICECTL_CAPTURE_RECORD_H
#define VOICECTL_CAPTURE_RECORD_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "kex_tap.h"

namespace voicectl {

// The record, its numbers big-endian; `message` empty: an event of the bus. `lost`: copies that are missing before it.
std::string capture_record(const kex_tap_record_t &record, std::string_view message, uint32_t lost);

// Gives each process that takes part an address of the loopback network, and remembers whom the file knows by name.
class CaptureAddresses {
public:
    uint32_t address_of(const kex_tap_end_t &end);
    // Once for each process: the block that names its address. Empty: it stands in the file already.
    std::string name_block(const kex_tap_end_t &end);

private:
    struct Place {
        uint32_t address;
        std::string name; // that the file has
    };
    std::map<int32_t, Place> places_; // by process
};

// The record of a message with the tags in front that Wireshark knows it by.
std::string capture_payload(const kex_tap_record_t &record, std::string_view message, uint32_t lost,
                            CaptureAddresses &addresses);

} // namespace voicectl

#endif
