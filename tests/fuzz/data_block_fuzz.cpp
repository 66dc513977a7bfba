// SPDX-License-Identifier: MIT
// Caller-display data blocks: both decoders on any text, a decoded block encoded and decoded again, and what the
// encoder makes of any fields against the bytes that the block's drawing asks for.
#include "input.h"
#include "libvoice_plugin.h"
#include "libvoice_utils.h"
#include "require.h"

#include <algorithm>
#include <memory>
#include <vector>

using fuzz::Input;
using fuzz::require;

namespace {

enum Slot { date, number, no_number, name, no_name, slot2, call_type, messages, kSlots };

constexpr bool is_byte_slot(int slot, uint32_t type) {
    return slot == no_number || slot == no_name || slot == call_type || slot == messages ||
           (slot == slot2 && type == LIBVOICE_DB_MESSAGE_WAITING);
}

constexpr bool is_of_type(int slot, uint32_t type) {
    return slot == call_type ? type == LIBVOICE_DB_CALL_SETUP : slot != messages || type == LIBVOICE_DB_MESSAGE_WAITING;
}

libvoice_db_field &field_of(libvoice_db_common_fields &common, libvoice_db_message_fields &message, int slot) {
    libvoice_db_field *const fields[kSlots] = {&common.date_time,  &common.calling_number, &common.no_calling_number,
                                               &message.name,      &message.no_name,       &message.slot2,
                                               &message.call_type, &message.messages};
    return *fields[slot];
}

// A decoder's targets: each in a block of exactly the bytes that it may write.
struct Targets {
    // A capacity of 0xFFFFFFFF stands for a target that is not wanted.
    Targets(const uint32_t *capacities, uint32_t type, char fill) {
        for (int slot = 0; slot < kSlots; ++slot) {
            if (capacities[slot] == UINT32_MAX)
                continue;
            const uint32_t size = is_byte_slot(slot, type) ? 1 : capacities[slot] + 1;
            room[slot].reset(new char[size]);
            std::fill_n(room[slot].get(), size, fill);
            sizes[slot] = size;
            field_of(common, message, slot) = {room[slot].get(), capacities[slot]};
        }
    }
    std::string text(int slot) const { return std::string(room[slot].get(), sizes[slot]); }

    std::unique_ptr<char[]> room[kSlots];
    uint32_t sizes[kSlots] = {};
    libvoice_db_common_fields common = {};
    libvoice_db_message_fields message = {};
};

using Decoder = uint32_t(const char *, uint32_t, libvoice_db_message_fields *, libvoice_db_common_fields *);

Decoder *decoder_of(uint32_t type) {
    return type == LIBVOICE_DB_CALL_SETUP ? libvoice_db_call_setup_decode : libvoice_db_message_waiting_decode;
}

// A text in a block that ends with its terminator.
struct ExactText {
    explicit ExactText(const std::string &from) : bytes(new char[from.size() + 1]) {
        memcpy(bytes.get(), from.c_str(), from.size() + 1);
    }
    const char *get() const { return bytes.get(); }
    std::unique_ptr<char[]> bytes;
};

// What a decoder found of each slot; nothing where it wrote nothing. Two fills tell what was written.
struct Decoded {
    bool present[kSlots] = {};
    std::string value[kSlots];

    Decoded(const std::string &from, uint32_t type, const uint32_t *capacities) {
        const ExactText text(from);
        Targets one(capacities, type, '\xA5'), other(capacities, type, '\x5A');
        const auto length = static_cast<uint32_t>(from.size());
        result = decoder_of(type)(text.get(), length, &one.message, &one.common);
        require(decoder_of(type)(text.get(), length, &other.message, &other.common) == result,
                "the same block gives the same result");
        for (int slot = 0; slot < kSlots; ++slot) {
            if (one.sizes[slot] == 0)
                continue;
            present[slot] = one.room[slot][0] != '\xA5' || other.room[slot][0] != '\x5A';
            if (present[slot])
                value[slot] = is_byte_slot(slot, type) ? one.text(slot) : one.text(slot).c_str();
            if (present[slot] && !is_byte_slot(slot, type))
                require(memchr(one.room[slot].get(), 0, one.sizes[slot]) != nullptr, "a text is terminated");
        }
    }
    bool is_empty() const {
        return std::none_of(present, present + kSlots, [](bool one) { return one; });
    }

    uint32_t result = 0;
};

constexpr uint32_t kWhole[kSlots] = {8, 20, 1, 50, 1, 20, 1, 1};

std::string encode(uint32_t type, libvoice_db_message_fields *message, libvoice_db_common_fields *common) {
    std::unique_ptr<char[]> out(new char[LIBVOICE_DB_TEXT_BYTES]);
    std::fill_n(out.get(), LIBVOICE_DB_TEXT_BYTES, 'Z');
    uint32_t length = 0;
    const auto encoder =
        type == LIBVOICE_DB_CALL_SETUP ? libvoice_db_call_setup_encode : libvoice_db_message_waiting_encode;
    require(encoder(message, common, out.get(), &length) == LIBVOICE_OK, "an encoder answers 0");
    const std::string text = out.get();
    require(length == text.size() + 1, "the length counts the terminator");
    require(voice::libvoice_db_verify_checksum(text.c_str()) == 1, "an encoder's checksum is right");
    return text;
}

std::string encode_decoded(uint32_t type, const Decoded &from) {
    std::string values[kSlots];
    libvoice_db_common_fields common = {};
    libvoice_db_message_fields message = {};
    for (int slot = 0; slot < kSlots; ++slot) {
        if (!from.present[slot])
            continue;
        values[slot] = from.value[slot];
        if (slot == date)
            values[slot].resize(8);
        field_of(common, message, slot) = {values[slot].data(), static_cast<uint32_t>(values[slot].size())};
    }
    return encode(type, &message, &common);
}

void decode(const std::string &text, const uint32_t *capacities) {
    for (const uint32_t type : {LIBVOICE_DB_CALL_SETUP, LIBVOICE_DB_MESSAGE_WAITING}) {
        const Decoded some(text, type, capacities);
        require(some.result <= 1, "a decoder answers 0 or 1");
        const Decoded first(text, type, kWhole);
        require(first.result == some.result, "what is wanted does not change the result");
        const bool good = voice::libvoice_db_verify_checksum(ExactText(text).get()) == 1;
        require(good || (first.result == 0 && first.is_empty()), "a wrong checksum writes nothing");
        require(first.result == 0 || first.is_empty(), "another type writes nothing");
        if (!good || first.result != 0)
            continue;
        const Decoded second(encode_decoded(type, first), type, kWhole);
        for (int slot = 0; slot < kSlots; ++slot) {
            require(second.present[slot] == first.present[slot], "an item that was read is written and read again");
            require(second.value[slot] == first.value[slot], "a value is read as it was encoded");
        }
    }
}

// ------------------------------------------------------------------------------------------------------- The encoder

struct Field {
    bool present = false;
    std::string bytes;   // one at least
    uint32_t length = 0; // as given to the encoder
};

// A record's items as the block's drawing has them.
struct Drawing {
    std::string items;

    void item(uint8_t type, const std::string &value) {
        items += static_cast<char>(type);
        items += static_cast<char>(value.size());
        items += value;
    }
    void text(uint8_t type, const Field &field, uint32_t most) {
        if (field.present)
            item(type, field.bytes.substr(0, std::min(field.length, most)));
    }
    void one(uint8_t type, const Field &field, bool written = true) {
        if (field.present && written)
            item(type, field.bytes.substr(0, 1));
    }
};

std::string drawn(uint32_t type, const Field *fields) {
    Drawing drawing;
    if (fields[date].present) {
        std::string eight = fields[date].bytes.substr(0, std::min(fields[date].length, 8u));
        eight.resize(8, 'Z');
        drawing.item(0x01, eight);
    }
    if (fields[number].present) {
        std::string cut = fields[number].bytes.substr(0, std::min(fields[number].length, 20u));
        const size_t end = cut.find('\0');
        if (end != std::string::npos)
            std::fill(cut.begin() + static_cast<ptrdiff_t>(end), cut.end(), '\0');
        drawing.item(0x02, cut);
    }
    drawing.one(0x04, fields[no_number]);
    drawing.text(0x07, fields[name], 50);
    if (type == LIBVOICE_DB_CALL_SETUP) {
        drawing.one(0x08, fields[no_name], fields[no_name].length < 21);
        if (fields[slot2].length < 21)
            drawing.text(0x03, fields[slot2], 20);
        drawing.one(0x11, fields[call_type]);
    } else {
        drawing.one(0x08, fields[no_name]);
        drawing.one(0x0B, fields[slot2]);
        drawing.one(0x13, fields[messages], fields[messages].length != 0);
    }
    std::string block{static_cast<char>(type), static_cast<char>(drawing.items.size())};
    block += drawing.items;
    uint8_t sum = 0;
    for (const char byte : block)
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
    return block + static_cast<char>(sum);
}

std::string hex(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char two[3];
        snprintf(two, sizeof two, "%02X", static_cast<unsigned>(static_cast<uint8_t>(byte)));
        text += two;
    }
    return text;
}

void encode_fields(Input &in) {
    const uint32_t type = in.flag() ? LIBVOICE_DB_CALL_SETUP : LIBVOICE_DB_MESSAGE_WAITING;
    const uint8_t wanted = in.byte();
    Field fields[kSlots];
    std::unique_ptr<char[]> blocks[kSlots];
    libvoice_db_common_fields common = {};
    libvoice_db_message_fields message = {};
    for (int slot = 0; slot < kSlots; ++slot) {
        if ((wanted >> slot & 1) == 0)
            continue;
        std::string bytes = in.text();
        const auto length = static_cast<uint32_t>(bytes.size());
        bytes.resize(std::max<size_t>(bytes.size(), 1));
        blocks[slot].reset(new char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), blocks[slot].get());
        fields[slot] = {true, bytes, length};
        field_of(common, message, slot) = {blocks[slot].get(), length};
    }
    const std::string text = encode(type, &message, &common);
    require(text == hex(drawn(type, fields)), "an encoder writes what the drawing asks for");
    const Decoded decoded(text, type, kWhole);
    require(decoded.result == 0, "a decoder takes what its encoder wrote");
    for (int slot = 0; slot < kSlots; ++slot)
        require(!decoded.present[slot] || (fields[slot].present && is_of_type(slot, type)),
                "a decoder finds only what was written");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    const uint32_t mode = in.below(3);
    if (mode == 0) {
        encode_fields(in);
        return 0;
    }
    uint32_t capacities[kSlots];
    for (uint32_t &capacity : capacities) {
        const uint8_t byte = in.byte();
        capacity = byte == 255 ? UINT32_MAX : byte;
    }
    if (mode == 1) {
        decode(in.rest(), capacities);
        return 0;
    }
    // A block whose length and checksum are right, around any items.
    std::string block{static_cast<char>(in.flag() ? LIBVOICE_DB_CALL_SETUP : LIBVOICE_DB_MESSAGE_WAITING), '\0'};
    block += in.bytes(255);
    block[1] = static_cast<char>(block.size() - 2);
    uint8_t sum = 0;
    for (const char byte : block)
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
    decode(hex(block + static_cast<char>(sum)), capacities);
    return 0;
}
