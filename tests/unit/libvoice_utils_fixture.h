// SPDX-License-Identifier: MIT
// What the tests of data blocks share: fields, blocks and trace messages, and a decoder's targets with known bytes around them.
#ifndef LIBVOICE_UTILS_FIXTURE_H
#define LIBVOICE_UTILS_FIXTURE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "voice_test.h"

namespace voice_test {

constexpr uint8_t kUntouched = 0x55;

inline libvoice_db_field field(std::string &bytes) {
    return {bytes.data(), static_cast<uint32_t>(bytes.size())};
}
inline libvoice_db_field field(std::string &bytes, uint32_t length) {
    return {bytes.data(), length};
}

inline std::string repeated(unsigned count, const std::string &text) {
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

// A target with a known byte around it.
template <size_t bytes>
struct Target {
    char before = kUntouched;
    char data[bytes];
    char after = kUntouched;

    Target() { memset(data, kUntouched, bytes); }
    bool untouched_from(size_t start) const {
        for (size_t i = start; i < bytes; ++i)
            if (data[i] != kUntouched)
                return false;
        return before == kUntouched && after == kUntouched;
    }
    bool untouched() const { return untouched_from(0); }
};

constexpr const char *kCallSetup = "libvoice_db_call_setup_decode";
constexpr const char *kMessageWaiting = "libvoice_db_message_waiting_decode";

// A trace message as the log shows it.
inline std::string info(const std::string &function, const std::string &message) {
    return "i[SIGNL] " + function + "@libvoice_utils: " + message;
}
inline std::string warning(const std::string &function, const std::string &message) {
    return "![SIGNL] " + function + "@libvoice_utils: " + message;
}
inline std::string error(const std::string &function, const std::string &message) {
    return "x[SIGNL] " + function + "@libvoice_utils: " + message;
}
inline std::string wrong_checksum(const std::string &found, const std::string &rest) {
    return error("libvoice_db_verify_checksum",
                 "Invalid Data Block checksum : checksum = " + found + ", checksum in msg = " + rest);
}

class DataBlockDecode : public VoiceTest {
protected:
    Target<12> time_;
    Target<32> number_;
    Target<1> no_number_;
    Target<64> name_;
    Target<1> no_name_;
    Target<32> called_;
    Target<1> visual_;
    Target<1> type_;
    Target<1> messages_;

    // Both decoders share the field `slot2`: text for one, a byte for the other.
    libvoice_db_common_fields common_ = {{time_.data, 8}, {number_.data, 20}, {no_number_.data, 0}};
    libvoice_db_message_fields setup_ = {
        {name_.data, 50}, {no_name_.data, 0}, {called_.data, 20}, {}, {type_.data, 0}, {}, {}, {messages_.data, 1}};
    libvoice_db_message_fields waiting_ = {
        {name_.data, 50}, {no_name_.data, 0}, {visual_.data, 0}, {}, {type_.data, 0}, {}, {}, {messages_.data, 1}};

    // Decodes a text that lies in memory of exactly its size. The passed length is a lie, as it may be.
    uint32_t call_setup(const std::string &text, uint32_t length = 0) {
        return decoded(libvoice_db_call_setup_decode, text, length, &setup_);
    }
    uint32_t message_waiting(const std::string &text, uint32_t length = 0) {
        return decoded(libvoice_db_message_waiting_decode, text, length, &waiting_);
    }
    template <typename Decoder>
    uint32_t decoded(Decoder decoder, const std::string &text, uint32_t length, libvoice_db_message_fields *message) {
        char *copy = static_cast<char *>(malloc(text.size() + 1));
        memcpy(copy, text.c_str(), text.size() + 1);
        const uint32_t result = decoder(copy, length, message, &common_);
        free(copy);
        return result;
    }

    bool nothing_written() const {
        return time_.untouched() && number_.untouched() && no_number_.untouched() && name_.untouched() &&
               no_name_.untouched() && called_.untouched() && visual_.untouched() && type_.untouched() &&
               messages_.untouched();
    }
};

// The text of a block with the checksum that its bytes give.
inline std::string block(std::initializer_list<unsigned> bytes) {
    std::string text;
    unsigned sum = 0;
    for (const unsigned byte : bytes) {
        text += fake::text("%02X", byte);
        sum += byte;
    }
    return text + fake::text("%02X", sum & 0xFF);
}

// Numbers by chance, the same in every run.
class Chance {
public:
    explicit Chance(uint32_t seed) : state_(seed) {}
    uint32_t below(size_t limit) {
        state_ = state_ * 1664525u + 1013904223u;
        return (state_ >> 8) % static_cast<uint32_t>(limit);
    }

private:
    uint32_t state_;
};

} // namespace voice_test

#endif
