// SPDX-License-Identifier: MIT
// The look-ups of identifiers: each of the vocabulary once in a shuffled order, and as many that are not in it.
#include <string>

#include "../support/measure.h"
#include "../vocabulary/libvoice_meanings.h"
#include "paths.h"
#include "peers.h"

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

// A name and number of each kind: known, and unknown but alike (one character, one field of the number).
struct Questions {
    std::string names[LIBVOICE_IDS];
    std::string wrong_names[LIBVOICE_IDS];
    uint32_t numbers[LIBVOICE_IDS];
    uint32_t wrong_numbers[LIBVOICE_IDS];
} questions;

void make_questions() {
    uint32_t state = 1;
    uint32_t order[LIBVOICE_IDS];
    for (uint32_t i = 0; i < LIBVOICE_IDS; ++i)
        order[i] = i;
    for (uint32_t i = LIBVOICE_IDS - 1; i > 0; --i) {
        state = state * 1664525u + 1013904223u;
        std::swap(order[i], order[(state >> 8) % (i + 1)]);
    }
    for (uint32_t i = 0; i < LIBVOICE_IDS; ++i) {
        const libvoice_meaning &row = libvoice_meanings[order[i]];
        questions.names[i] = row.name;
        questions.wrong_names[i] = row.name;
        std::string &wrong = questions.wrong_names[i];
        switch (i % 4) { // a letter at the end, one in the middle, one more, one less
        case 0:
            wrong.back() = 'Q';
            break;
        case 1:
            wrong[wrong.size() / 2 + 3] = '9';
            break;
        case 2:
            wrong += 's';
            break;
        default:
            wrong.pop_back();
        }
        questions.numbers[i] = row.number;
        // Another value type, another sub-item, a package that there is not.
        questions.wrong_numbers[i] = i % 3 == 0   ? row.number ^ 0x05000000u
                                     : i % 3 == 1 ? row.number + 0x80u
                                                  : row.number ^ 0x00840000u;
    }
}

template <auto look_up>
uint64_t names_known() {
    uint64_t sum = 0;
    for (const std::string &name : questions.names)
        sum += look_up(name.c_str());
    return sum;
}

template <auto look_up>
uint64_t names_unknown() {
    uint64_t unknown = 0;
    for (const std::string &name : questions.wrong_names)
        unknown += look_up(name.c_str()) == kNone;
    return unknown;
}

template <auto look_up>
uint64_t numbers_known() {
    uint64_t sum = 0;
    for (const uint32_t number : questions.numbers)
        sum += static_cast<unsigned char>(look_up(number)[15]);
    return sum;
}

const char *library_name(uint32_t number) {
    const char *name = libvoice_param_str(number);
    return name[0] == '?' ? nullptr : name;
}

template <auto look_up>
uint64_t numbers_unknown() {
    uint64_t unknown = 0;
    for (const uint32_t number : questions.wrong_numbers)
        unknown += look_up(number) == nullptr;
    return unknown;
}

template <auto look_up>
void add_names(std::vector<Variant> &variants, const char *by) {
    variants.push_back({"name to identifier", by, names_known<look_up>, LIBVOICE_IDS});
    variants.push_back({"name to identifier, unknown", by, names_unknown<look_up>, LIBVOICE_IDS});
}

template <auto look_up, auto look_up_unknown>
void add_numbers(std::vector<Variant> &variants, const char *by) {
    variants.push_back({"identifier to name", by, numbers_known<look_up>, LIBVOICE_IDS});
    variants.push_back({"identifier to name, unknown", by, numbers_unknown<look_up_unknown>, LIBVOICE_IDS});
}

} // namespace

void add_name_paths(std::vector<Variant> &variants) {
    make_questions();
    names_prepare();
    add_names<libvoice_str_to_param>(variants, kLibrary);
#ifdef BENCH_ALL_PEERS
    add_names<name_by_gperf>(variants, "gperf");
#endif
    add_names<name_by_hash_map>(variants, "unordered_map");
    add_names<name_by_binary_search>(variants, "binary search");
    add_numbers<libvoice_param_str, library_name>(variants, kLibrary);
    add_numbers<number_by_hash_map, number_by_hash_map>(variants, "unordered_map");
    add_numbers<number_by_switch, number_by_switch>(variants, "switch");
    add_numbers<number_by_binary_search, number_by_binary_search>(variants, "binary search");
}
