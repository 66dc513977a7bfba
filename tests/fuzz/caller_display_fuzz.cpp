// SPDX-License-Identifier: MIT
// What hosts and voicectl read of a caller-display block: any text, the three readers against each other, and what a
// host writes read again.
#include "../../hosts/common/caller_display.h"
#include "../../tool/caller_display.h"

#include "fsk.h"
#include "input.h"
#include "libvoice_plugin.h"
#include "printable.h"
#include "require.h"

#include <algorithm>
#include <memory>

using fuzz::Input;
using fuzz::require;

namespace {

// As hosts print it.
std::string printable(std::string text) {
    text_make_printable(text.data());
    return text;
}

void display_check(const caller_display &display) {
    for (const char *text : {display.number, display.name, display.called, display.time})
        require(printable(text) == text, "a text that is shown is printable");
}

void line_check(const char *text) {
    std::unique_ptr<uint8_t[]> block(new uint8_t[kBlockBytes]);
    const uint32_t length = fsk_line_block(text, block.get());
    require(length <= kBlockBytes, "a block has 258 bytes at most");
    if (length == 0)
        return;
    uint8_t sum = 0;
    for (uint32_t i = 0; i < length; ++i)
        sum = static_cast<uint8_t>(sum + block[i]);
    require(sum == 0, "the bytes on the line sum up to 0");
    require(length == block[1] + 3u, "the bytes on the line are one block");
}

// A text of exactly its bytes.
void read(const std::string &from) {
    std::unique_ptr<char[]> exact(new char[from.size() + 1]);
    memcpy(exact.get(), from.c_str(), from.size() + 1);
    const char *text = exact.get();
    const size_t length = strlen(text);

    caller_display display;
    const bool is_call = caller_display_decode(text, &display);
    display_check(display);
    message_display messages = {};
    const bool is_messages = message_display_decode(text, &messages);
    line_check(text);
    const auto seen = voicectl::caller_display_read({text, length});
    if (!seen)
        return;
    require(display_is_messages(text) == (seen->kind == voicectl::CallerDisplay::Kind::messages),
            "both readers see the same kind");
    std::unique_ptr<uint8_t[]> block(new uint8_t[kBlockBytes]);
    require(fsk_line_block(text, block.get()) != 0, "what a reader takes can go onto the line");
    if (seen->kind == voicectl::CallerDisplay::Kind::messages) {
        require(is_messages == seen->lamp.has_value(), "messages have an indicator");
        require(!is_messages || (messages.messages == seen->messages && messages.lamp == *seen->lamp),
                "both readers see the same messages");
        return;
    }
    const bool is_empty = seen->number.empty() && seen->name.empty() && seen->time.empty() && seen->no_number == 0;
    require(is_call != is_empty, "a host takes a call that says something");
    require(display.number == printable(seen->number) && display.name == printable(seen->name) &&
                display.called == printable(seen->called) && display.time == printable(seen->time),
            "both readers see the same texts");
}

std::string text_without_end(Input &in, size_t most) {
    std::string text = in.text().substr(0, most);
    std::replace(text.begin(), text.end(), '\0', '0');
    return text;
}

void write_and_read(Input &in) {
    const std::string number = text_without_end(in, 40), name = text_without_end(in, 80),
                      called = text_without_end(in, 40);
    const bool has_called = in.flag();
    char text[LIBVOICE_DB_TEXT_BYTES];
    const uint32_t length =
        caller_display_encode(number.c_str(), name.c_str(), has_called ? called.c_str() : nullptr, text);
    require(length == strlen(text) + 1 && length <= sizeof text, "the terminator travels too");
    caller_display display;
    require(caller_display_decode(text, &display), "what was written can be read");
    require(display.number == printable(number.substr(0, 20)), "a number is cut to 20 characters");
    require(display.name == printable(name.substr(0, 50)), "a name is cut to 50 characters");
    const bool fits = has_called && called.size() <= 20;
    require(display.called == (fits ? printable(called) : ""), "a called number that is too long is left out");
    require((display.no_number != 0) == number.empty(), "without a number it is withheld");

    const uint8_t count = in.byte();
    message_display messages = {};
    message_display_encode(count, text);
    require(message_display_decode(text, &messages), "messages that were written can be read");
    require(messages.messages == count && messages.lamp == (count > 0), "messages are read as they were written");
    read(text);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    switch (in.below(3)) {
    case 0:
        write_and_read(in);
        break;
    case 1:
        read(in.rest());
        break;
    default: {
        // A block whose length and checksum are right, around any items.
        std::string block{static_cast<char>(in.flag() ? LIBVOICE_DB_CALL_SETUP : LIBVOICE_DB_MESSAGE_WAITING), '\0'};
        block += in.bytes(255);
        block[1] = static_cast<char>(block.size() - 2);
        uint8_t sum = 0;
        std::string text;
        for (size_t i = 0; i <= block.size(); ++i) {
            const uint8_t byte = i < block.size() ? static_cast<uint8_t>(block[i]) : sum;
            char two[3];
            snprintf(two, sizeof two, "%02X", byte);
            text += two;
            sum = static_cast<uint8_t>(sum + byte);
        }
        read(text);
    }
    }
    return 0;
}
