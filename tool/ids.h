// SPDX-License-Identifier: MIT
// The subcommand "ids": the vocabulary, searched by number, name, package or meaning.
#ifndef VOICECTL_IDS_H
#define VOICECTL_IDS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libvoice_meanings.h"

namespace CLI {
class App;
}

namespace voicectl {

// What an identifier is: "signal", "event parameter", "property" and so on.
std::string id_kind(uint32_t id);

// What its value is: "integer", "text", "words", "bytes", "boolean"; "-" for a signal or an event, which has none.
std::string id_value(const libvoice_meaning &row);

// The rows that every word fits, by number: it is the row's number or package, or part of its name or meaning in
// letters of either case.
std::vector<const libvoice_meaning *> ids_find(const std::vector<std::string> &words);

// A row for people, without a line break, its name as wide as `width`; for programs, one JSON object.
std::string id_line(const libvoice_meaning &row, size_t width);
std::string id_json(const libvoice_meaning &row);

// Adds the subcommand, as watch_add() does.
void ids_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif
