// SPDX-License-Identifier: MIT
// Pieces of JSON that more than one subcommand writes.
#ifndef VOICECTL_JSON_H
#define VOICECTL_JSON_H

#include <cstdint>
#include <string>
#include <string_view>

#include "caller_display.h"
#include "record.h"

namespace voicectl {

// Puts commas between the members of one object or list.
class JsonMembers {
public:
    void add(const std::string &member);
    void add(std::string_view name, const std::string &value);
    void add_text(std::string_view name, std::string_view value);
    void add_number(std::string_view name, int64_t value);
    std::string object() const;
    std::string list() const;

private:
    std::string text_;
};

// Objects, as tool/README.md has their fields.
std::string display_json(const CallerDisplay &display);
std::string record_json(const Record &record);

} // namespace voicectl

#endif
