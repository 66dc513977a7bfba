// SPDX-License-Identifier: MIT
#include "block.h"

#include <array>
#include <cctype>
#include <ctime>
#include <memory>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "common.h"
#include "hex.h"
#include "json.h"
#include "libvoice_plugin.h"
#include "options.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

constexpr size_t kAround = 3; // bytes that the length does not count: type, length, checksum
constexpr uint8_t kLampOn = 0xFF, kLampOff = 0;
constexpr size_t kMostNumber = 20, kMostName = 50; // characters that the standard leaves room for

struct BlockOptions {
    std::vector<std::string> digits;
    CallerDisplay display;
    std::string call_only;  // an option that a call alone has
    std::string any_option; // one that says what to write
    bool json = false;
};

uint8_t sum_of(const Bytes &bytes) {
    unsigned sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); ++i)
        sum += bytes[i];
    return static_cast<uint8_t>(sum);
}

// Empty: the bytes are a block up to its checksum.
std::string block_problem(const Bytes &bytes) {
    if (bytes.size() < kAround)
        return fmt::format("{} bytes are no block: type, length and checksum alone are {}", bytes.size(), kAround);
    if (bytes[0] != LIBVOICE_DB_CALL_SETUP && bytes[0] != LIBVOICE_DB_MESSAGE_WAITING)
        return fmt::format("type {:#04x} is neither a call set-up, 0x80, nor a message waiting, 0x82", bytes[0]);
    if (bytes.size() != bytes[1] + kAround)
        return fmt::format("its length says {} bytes in all, there are {}", bytes[1] + kAround, bytes.size());
    for (size_t at = 2, end = bytes.size() - 1; at < end; at += 2 + bytes[at + 1])
        if (end - at < 2 || end - at - 2 < bytes[at + 1])
            return fmt::format("item {:#04x} runs past the end", bytes[at]);
    return {};
}

std::string with_checksum(Bytes bytes, uint8_t checksum) {
    bytes.back() = checksum;
    return hex_digits_upper(bytes);
}

libvoice_db_field field_of(const std::string &text) {
    return {text.empty() ? nullptr : const_cast<char *>(text.data()), static_cast<uint32_t>(text.size())};
}

const char *checksum_words(Checksum carried) {
    return carried == Checksum::sum ? "the plain sum, as between processes" : "the two's complement, as on a line";
}

int block_show(const BlockOptions &options) {
    std::string digits;
    for (const std::string &part : options.digits)
        digits += part;
    const Block block = options.digits.empty() ? block_write(options.display) : block_read(digits);
    if (!block.problem.empty()) {
        complain(fmt::format("this is no data block: {}", block.problem));
        return kFailure;
    }
    return output_write((options.json ? block_json(block) : block_text(block)) + "\n");
}

// MMDDhhmm.
bool is_time(const std::string &text) {
    if (text.size() != 8 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const auto two = [&text](size_t at) { return std::stoi(text.substr(at, 2)); };
    return two(0) >= 1 && two(0) <= 12 && two(2) >= 1 && two(2) <= 31 && two(4) <= 23 && two(6) <= 59;
}

std::string time_now() {
    std::array<char, 16> text{};
    const std::time_t seconds = std::time(nullptr);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::strftime(text.data(), text.size(), "%m%d%H%M", &parts);
    return text.data();
}

void display_text_add(CLI::App &command, const std::string &name, size_t most, std::string &taken,
                      const std::function<void()> &given, const std::string &help) {
    const auto take = [name, most, &taken, given](const std::string &text) {
        if (text.empty() || text.size() > most)
            throw UsageError(fmt::format("{} is a text of 1 to {} bytes, not {}", name, most, in_quotes(text)));
        taken = text;
        given();
    };
    text_option_add(command, name, take, help, "TEXT");
}

void number_to_255_add(CLI::App &command, const std::string &name, int first, const std::function<void(uint8_t)> &taken,
                       const std::string &help) {
    const auto take = [name, first, taken](const std::string &text) {
        int number = 0;
        if (!number_read(text, number) || number < first || number > UINT8_MAX)
            throw UsageError(fmt::format("{} is a whole number from {} to 255, not {}", name, first, in_quotes(text)));
        taken(static_cast<uint8_t>(number));
    };
    text_option_add(command, name, take, help, "N");
}

void reason_add(CLI::App &command, const std::string &name, char &reason, const std::function<void()> &given,
                const std::string &help) {
    const auto take = [name, &reason, given](const std::string &text) {
        if (text != "unavailable" && text != "withheld")
            throw UsageError(fmt::format("{} is unavailable or withheld, not {}", name, in_quotes(text)));
        reason = text == "withheld" ? 'P' : 'O';
        given();
    };
    text_option_add(command, name, take, help, "unavailable|withheld");
}

void writing_add(CLI::App &command, const std::shared_ptr<BlockOptions> &options) {
    CallerDisplay &display = options->display;
    const auto given = [options](const char *name) { return [options, name] { options->any_option = name; }; };
    const auto of_call = [options](const char *name) {
        return [options, name] { options->any_option = options->call_only = name; };
    };
    display_text_add(command, "--number", kMostNumber, display.number, given("--number"), "Number of the caller");
    reason_add(command, "--no-number", display.no_number, given("--no-number"), "Why there is none");
    display_text_add(command, "--name", kMostName, display.name, given("--name"), "Name of the caller");
    reason_add(command, "--no-name", display.no_name, given("--no-name"), "Why there is none");
    display_text_add(command, "--called", kMostNumber, display.called, of_call("--called"), "Number that was dialled");
    number_to_255_add(
        command, "--call-type", 1,
        [&display, note = of_call("--call-type")](uint8_t type) {
            display.call_type = type;
            note();
        },
        "Type of the call: 1 is a voice call");
    text_option_add(
        command, "--time",
        [&display, note = given("--time")](const std::string &text) {
            if (text != "now" && !is_time(text))
                throw UsageError(
                    fmt::format("--time is now, or month, day, hour and minute as 11210930, not {}", in_quotes(text)));
            display.time = text == "now" ? time_now() : text;
            note();
        },
        "Time of the call", "MMDDhhmm|now");
    number_to_255_add(
        command, "--messages", 0,
        [&display, note = given("--messages")](uint8_t messages) {
            display.kind = CallerDisplay::Kind::messages;
            display.messages = messages;
            note();
        },
        "Messages that wait: makes a message waiting block");
    text_option_add(
        command, "--lamp",
        [&display, note = given("--lamp")](const std::string &text) {
            if (text != "on" && text != "off")
                throw UsageError(fmt::format("--lamp is on or off, not {}", in_quotes(text)));
            display.kind = CallerDisplay::Kind::messages;
            display.lamp = text == "on";
            note();
        },
        "Lamp for messages: makes a message waiting block", "on|off");
}

void block_check(const BlockOptions &options) {
    const CallerDisplay &display = options.display;
    if (!display.number.empty() && display.no_number != 0)
        throw UsageError("--number and --no-number do not go together");
    if (!display.name.empty() && display.no_name != 0)
        throw UsageError("--name and --no-name do not go together");
    if (options.digits.empty() && options.any_option.empty())
        throw UsageError("the digits to read, or what to write, are missing");
    if (!options.digits.empty() && !options.any_option.empty())
        throw UsageError(fmt::format("a block is read or written: {} does not go with digits", options.any_option));
    if (display.kind == CallerDisplay::Kind::messages && !options.call_only.empty())
        throw UsageError(fmt::format("a message waiting block has no {}", options.call_only));
    std::string digits;
    for (const std::string &part : options.digits)
        digits += part;
    if (!options.digits.empty() && !hex_read(digits))
        throw UsageError(fmt::format("{} is no hexadecimal text of whole bytes", in_quotes(digits)));
}

} // namespace

Block block_read(std::string_view digits) {
    Block block;
    const std::optional<Bytes> bytes = hex_read(digits);
    block.problem = bytes ? block_problem(*bytes) : "no hexadecimal text of whole bytes";
    if (!block.problem.empty())
        return block;
    const uint8_t sum = sum_of(*bytes);
    const auto complement = static_cast<uint8_t>(-sum);
    if (bytes->back() != sum && bytes->back() != complement) {
        block.carried = Checksum::wrong;
        block.problem = fmt::format("checksum {:02X} is neither the sum {:02X} nor its two's complement {:02X}",
                                    bytes->back(), sum, complement);
        return block;
    }
    block.carried = bytes->back() == sum ? Checksum::sum : Checksum::complement;
    block.hex = with_checksum(*bytes, sum);
    block.line_hex = with_checksum(*bytes, complement);
    block.display = *caller_display_read(block.hex);
    return block;
}

Block block_write(const CallerDisplay &display) {
    auto no_number = static_cast<uint8_t>(display.no_number), no_name = static_cast<uint8_t>(display.no_name);
    uint8_t call_type = display.call_type, messages = display.messages;
    uint8_t lamp = display.lamp.value_or(display.messages > 0) ? kLampOn : kLampOff;
    libvoice_db_common_fields common{};
    common.date_time = field_of(display.time);
    common.calling_number = field_of(display.number);
    if (no_number != 0)
        common.no_calling_number = {&no_number, 1};
    libvoice_db_message_fields fields{};
    fields.name = field_of(display.name);
    if (no_name != 0)
        fields.no_name = {&no_name, 1};
    std::array<char, LIBVOICE_DB_TEXT_BYTES> text{};
    uint32_t length = 0;
    if (display.kind == CallerDisplay::Kind::call) {
        fields.slot2 = field_of(display.called);
        if (call_type != 0)
            fields.call_type = {&call_type, 1};
        libvoice_db_call_setup_encode(&fields, &common, text.data(), &length);
    } else {
        fields.slot2 = {&lamp, 1};
        fields.messages = {&messages, 1};
        libvoice_db_message_waiting_encode(&fields, &common, text.data(), &length);
    }
    return block_read(text.data());
}

std::string block_text(const Block &block) {
    const bool call = block.display.kind == CallerDisplay::Kind::call;
    return fmt::format("{} of {} bytes, with {}\n"
                       "shows    {}\n"
                       "on bus   {}\n"
                       "on line  {}",
                       call ? "call set-up" : "message waiting", block.hex.size() / 2, checksum_words(block.carried),
                       display_words(block.display), block.hex, block.line_hex);
}

std::string block_json(const Block &block) {
    JsonMembers members;
    members.add("shows", display_json(block.display));
    members.add_text("text", display_words(block.display));
    members.add_text("carried", block.carried == Checksum::sum ? "sum" : "complement");
    members.add_text("bus", block.hex);
    members.add_text("line", block.line_hex);
    return members.object();
}

void block_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<BlockOptions>();
    CLI::App &command = *app.add_subcommand("block", "Read or write a data block of caller display");
    command.footer("Examples: voicectl block 800502033130311C\n"
                   "          voicectl block --number 101 --name 'Front door' --time now\n");
    words_add(command, "HEX", options->digits, "The block, with either checksum");
    writing_add(command, options);
    command.add_flag("-j,--json", options->json, "One JSON object");
    command.callback([options, &run] {
        block_check(*options);
        run = [options] { return block_show(*options); };
    });
}

} // namespace voicectl
