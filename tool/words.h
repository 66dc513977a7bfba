// SPDX-License-Identifier: MIT
// Values in the words of the field: names for numbers, units, caller display. All texts are fit for a terminal.
#ifndef VOICECTL_WORDS_H
#define VOICECTL_WORDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "caller_display.h"
#include "record.h"
#include "value.h"

namespace voicectl {

// A value by its type alone: 25, true, "DE", fd 7.
std::string value_words(const Value &value);

// An item's value by what it stands for: "1000/4000 ms", "PCMA", "101 \"FXS1\" at 11-21 11:38". Empty for one without.
std::string item_words(const Item &item);

// What stands in front of an item's value: "cadence", or the vocabulary's meaning. Empty where the value says it
// itself.
std::string item_label(const Item &item);

// What an item of caller display holds. Empty: another item, or no whole data block.
std::optional<CallerDisplay> item_display(const Item &item);

// 101 "FXS1" at 11-21 11:38.
std::string display_words(const CallerDisplay &display);

// "PCMA PCMU" for a list of codec records; empty when it is none.
std::string codec_list_words(const Bytes &bytes);

// "both ways" for a direction of media, else the number.
std::string mode_words(int64_t mode);

// "FXS" for a type of endpoint that the hosts of this system agreed on, else the number.
std::string endpoint_type_words(int64_t type);

} // namespace voicectl

#endif
