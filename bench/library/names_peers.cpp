// SPDX-License-Identifier: MIT
// The look-ups of identifiers by a hash map, by binary search, and by a switch over all numbers.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "../vocabulary/libvoice_meanings.h"
#include "peers.h"

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

std::unordered_map<std::string_view, uint32_t> numbers;
std::unordered_map<uint32_t, const char *> names;
std::vector<const libvoice_meaning *> sorted_by_name;

} // namespace

void names_prepare() {
    for (const libvoice_meaning &row : libvoice_meanings) {
        numbers.emplace(row.name, row.number);
        names.emplace(row.number, row.name);
        sorted_by_name.push_back(&row);
    }
    std::sort(sorted_by_name.begin(), sorted_by_name.end(),
              [](const auto *a, const auto *b) { return strcmp(a->name, b->name) < 0; });
}

uint32_t name_by_hash_map(const char *name) {
    const auto found = numbers.find(name);
    return found == numbers.end() ? kNone : found->second;
}

uint32_t name_by_binary_search(const char *name) {
    const auto found =
        std::lower_bound(sorted_by_name.begin(), sorted_by_name.end(), name,
                         [](const auto *row, const char *wanted) { return strcmp(row->name, wanted) < 0; });
    return found != sorted_by_name.end() && strcmp((*found)->name, name) == 0 ? (*found)->number : kNone;
}

const char *number_by_hash_map(uint32_t number) {
    const auto found = names.find(number);
    return found == names.end() ? nullptr : found->second;
}

const char *number_by_binary_search(uint32_t number) {
    const libvoice_meaning *row = libvoice_meaning_of(number);
    return row ? row->name : nullptr;
}

const char *number_by_switch(uint32_t number) {
    switch (number) {
#include "names_switch.inc" // case 0x...: return "...";
    }
    return nullptr;
}
