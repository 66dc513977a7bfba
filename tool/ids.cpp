// SPDX-License-Identifier: MIT
#include "ids.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "common.h"
#include "identifier.h"
#include "json.h"
#include "numbers.h"
#include "options.h"
#include "record.h"
#include "text.h"

namespace voicectl {

namespace {

using voice::IdClass;
using voice::ValueType;

struct IdsOptions {
    std::vector<std::string> words;
    bool json = false;
};

bool same_letter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

bool has_part(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same_letter) != text.end();
}

bool word_fits(const libvoice_meaning &row, const std::string &word) {
    uint32_t number = 0;
    if (number_read_in_base(word, number) && number == row.number)
        return true;
    return package_of(row.name) == word || has_part(row.name, word) || has_part(row.meaning, word);
}

int ids_show(const IdsOptions &options) {
    const std::vector<const libvoice_meaning *> rows = ids_find(options.words);
    if (rows.empty()) {
        complain("the vocabulary has no identifier of that number, name, package or meaning");
        return kFailure;
    }
    size_t width = 0;
    for (const libvoice_meaning *row : rows)
        width = std::max(width, std::string_view(voice::name_without_prefix(row->name)).size());
    std::string text;
    for (const libvoice_meaning *row : rows)
        text += (options.json ? id_json(*row) : id_line(*row, width)) + "\n";
    return output_write(text);
}

} // namespace

std::string id_kind(uint32_t id) {
    const bool is_parameter = voice::id_value_type(id) != ValueType::none;
    switch (voice::id_class(id)) {
    case IdClass::property:
        return "property";
    case IdClass::signal:
        return is_parameter ? "signal parameter" : "signal";
    case IdClass::event:
        return is_parameter ? "event parameter" : "event";
    }
    return "?";
}

std::string id_value(const libvoice_meaning &row) {
    switch (voice::id_value_type(row.number)) {
    case ValueType::none:
        return "-";
    case ValueType::integer:
        return "integer";
    case ValueType::string:
        return "text";
    case ValueType::hex:
        return row.hex == 'w' ? "words" : "bytes";
    case ValueType::boolean:
        return "boolean";
    }
    return "?";
}

std::vector<const libvoice_meaning *> ids_find(const std::vector<std::string> &words) {
    std::vector<const libvoice_meaning *> rows;
    for (const libvoice_meaning &row : libvoice_meanings)
        if (std::all_of(words.begin(), words.end(), [&row](const std::string &word) { return word_fits(row, word); }))
            rows.push_back(&row);
    return rows;
}

std::string id_line(const libvoice_meaning &row, size_t width) {
    return fmt::format("{:#010x}  {:<16}  {:<7}  {:<{}}  {}", row.number, id_kind(row.number), id_value(row),
                       voice::name_without_prefix(row.name), width, row.meaning);
}

std::string id_json(const libvoice_meaning &row) {
    JsonMembers members;
    members.add_number("id", row.number);
    members.add_text("name", row.name);
    members.add_text("kind", id_kind(row.number));
    members.add_text("value", id_value(row));
    members.add_text("package", package_of(row.name));
    members.add_text("meaning", row.meaning);
    return members.object();
}

void ids_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<IdsOptions>();
    CLI::App &command = *app.add_subcommand("ids", "Search the vocabulary of signals, events and parameters");
    command.footer("Example: voicectl ids off hook\n"
                   "Each word is a number, a package, or a part of a name or of a meaning; all of them must fit.\n");
    words_add(command, "WORD", options->words, "What to look for; without a word the whole vocabulary is shown");
    command.add_flag("-j,--json", options->json, "One JSON object per line");
    command.callback([options, &run] { run = [options] { return ids_show(*options); }; });
}

} // namespace voicectl
