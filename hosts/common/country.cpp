// SPDX-License-Identifier: MIT
// Ringing and emergency numbers by country.
#include "country.h"

#include <string.h>

namespace {

constexpr country_rules kCountries[] = {
    {"FR", {1500, 3500}, 2, 'B', 50, 'D', "112 15 17 18"},
    {"DE", {1000, 4000}, 2, 'B', 25, 'C', "112 110"},
    {"GB", {400, 200, 400, 2000}, 4, 'B', 25, 'C', "112 999"},
    {"US", {2000, 4000}, 2, 'B', 20, 'C', "112 911"},
    {"CH", {1000, 4000}, 2, 'B', 25, 'D', "112 117 118 144"},
    {"SE", {1000, 5000}, 2, 'B', 25, 'D', "112"},
    {"IT", {1000, 4000}, 2, 'B', 25, 'D', "112 113 115 118"},
    {"ES", {1500, 3000}, 2, 'B', 25, 'D', "112"},
    {"NL", {1000, 4000}, 2, 'B', 25, 'D', "112"},
    {"BE", {1000, 3000}, 2, 'B', 25, 'D', "112 100 101"},
    {"AU", {400, 200, 400, 2000}, 4, 'B', 25, 'D', "112 000"},
    {"JP", {1000, 2000}, 2, 'B', 16, 'D', "112 110 119"},
    {"BR", {1000, 4000}, 2, 'B', 25, 'D', "112 190 192 193"},
};
constexpr const country_rules *kKnownFirst = &kCountries[1];

constexpr bool rules_are_sound(const country_rules &rules) {
    bool sound = rules.cadence_words % 2 == 0 && rules.cadence_words > 0 && rules.ring_frequency >= 15 &&
                 rules.ring_frequency <= 70;
    for (uint32_t i = 0; i < rules.cadence_words; i++)
        sound = sound && rules.cadence[i] >= 100 && rules.cadence[i] <= 6000;
    return sound;
}

constexpr bool all_are_sound() {
    bool sound = true;
    for (const country_rules &rules : kCountries)
        sound = sound && rules_are_sound(rules);
    return sound;
}
static_assert(all_are_sound());

// Runs through the numbers of a list. @return the next one's begin, its length behind `length`; null: none is left
const char *number_next(const char *list, size_t *length) {
    list += strspn(list, " ");
    *length = strcspn(list, " ");
    return *length == 0 ? nullptr : list;
}

} // namespace

const country_rules *country_find(const char *code) {
    for (const country_rules &rules : kCountries)
        if (strcmp(rules.code, code) == 0)
            return &rules;
    return nullptr;
}

const country_rules *country_get(const char *code) {
    const country_rules *rules = country_find(code);
    return rules != nullptr ? rules : kKnownFirst;
}

uint32_t country_ring_ms(const country_rules *rules) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < rules->cadence_words; i++)
        sum += rules->cadence[i];
    return sum;
}

uint32_t country_first_ring_ms(const country_rules *rules) {
    return country_ring_ms(rules) - rules->cadence[rules->cadence_words - 1];
}

bool number_is_listed(const char *list, const char *number) {
    size_t length;
    for (const char *one = list; (one = number_next(one, &length)) != nullptr; one += length)
        if (strlen(number) == length && memcmp(one, number, length) == 0)
            return true;
    return false;
}

bool number_may_be_listed(const char *list, const char *number) {
    const size_t known = strlen(number);
    size_t length;
    for (const char *one = list; (one = number_next(one, &length)) != nullptr; one += length)
        if (known < length && memcmp(one, number, known) == 0)
            return true;
    return false;
}
