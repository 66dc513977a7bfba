// SPDX-License-Identifier: MIT
// The records that travel as byte arrays (signals, events, parameter sets, media descriptions), taken apart.
#ifndef VOICECTL_RECORD_H
#define VOICECTL_RECORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "value.h"
#include "voice_records.h"

namespace voicectl {

enum class RecordKind { signal, event, param_set, connection, stream };

// One item of a parameter buffer.
struct Item {
    uint32_t id;
    std::string name; // full name, or "????"
    Bytes bytes{};    // the value as it came
    Value value{}; // read by its type; none: a signal, an event, or no bytes. Bytes that do not fit the type stay bytes
};

struct Record {
    RecordKind kind;
    int32_t endpoint = -1;                // -1 in a parameter set
    std::optional<uint32_t> identifier{}; // the head's own word, when it is a signal or event of the vocabulary
    uint32_t line = 0;                    // meaningful with an identifier only
    bool stops = false;                   // a signal that ends instead of starting
    std::optional<uint32_t> stream{};     // number of the stream in its context, in a stream description
    std::vector<Item> items{};
    std::string fault{}; // why the rest cannot be read; empty: whole
};

// Bytes in front of its parameter buffer.
size_t record_head_bytes(RecordKind kind);

// Never reads past the bytes; what is broken is said in `fault`.
Record record_read(RecordKind kind, std::span<const uint8_t> bytes);

// The codecs that an endpoint offers, best first. Empty: the bytes are no list of codec records.
std::vector<voice_codec_t> codec_list_read(std::span<const uint8_t> bytes);

// "off hook" for LIBVOICE_EVENT_al_of; empty for what the vocabulary does not hold.
std::string_view short_meaning(uint32_t id);

// "al" for LIBVOICE_EVENT_al_of; empty for a name of another form.
std::string_view package_of(std::string_view name);

} // namespace voicectl

#endif
