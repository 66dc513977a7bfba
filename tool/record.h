// SPDX-License-Identifier: MIT
// The records that travel as byte arrays (signals, events, parameter sets, media descriptions), taken apart.
#ifndef VOICECTL_RECORD_H
#define VOICECTL_RECORD_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace voicectl {

enum class RecordKind { signal, event, param_set, connection, stream };

// One item of a parameter buffer.
struct Item {
    uint32_t id;
    std::string name;  // full name, or "????"
    std::string value; // by its identifier's type; empty for signals and events. Not yet fit for a terminal
};

struct Record {
    RecordKind kind;
    int32_t endpoint = -1;                // -1 in a parameter set
    std::optional<uint32_t> identifier{}; // the head's own word, when it is a signal or event of the vocabulary
    uint32_t line = 0;                    // meaningful with an identifier only
    bool stops = false;                   // a signal that ends instead of starting
    std::vector<Item> items{};
    std::string fault{}; // why the rest cannot be read; empty: whole
};

// Never reads past the bytes; what is broken is said in `fault`.
Record read_record(RecordKind kind, std::span<const uint8_t> bytes);

// "off hook" for LIBVOICE_EVENT_al_of; empty for what the vocabulary does not hold.
std::string_view short_meaning(uint32_t id);

// "al" for LIBVOICE_EVENT_al_of; empty for a name of another form.
std::string_view package_of(std::string_view name);

} // namespace voicectl

#endif
