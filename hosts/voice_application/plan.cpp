// SPDX-License-Identifier: MIT
// The configuration file of voice_application.
#include "plan.h"

#include "codecs.h"
#include "console.h"
#include "country.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

plan the_plan;

namespace {

// Copies a word that must fit and not be empty.
bool word_copy(char *field, size_t size, const char *word) {
    if (word == nullptr || *word == 0 || strlen(word) >= size)
        return false;
    memcpy(field, word, strlen(word) + 1);
    return true;
}

// A hash ends a number that is dialled, unless it is its first key.
bool digits_copy(char *field, size_t size, const char *word) {
    return word_copy(field, size, word) && word[strspn(word, "0123456789*#")] == 0 && strchr(word + 1, '#') == nullptr;
}

const char *number_read(plan *into, char **rest) {
    if (into->number_count == kPlanNumbers)
        return "too many numbers";
    plan_number *row = &into->numbers[into->number_count];
    if (!digits_copy(row->number, sizeof row->number, word_next(rest)))
        return "number: expected digits";
    for (uint32_t i = 0; i < into->number_count; i++)
        if (strcmp(into->numbers[i].number, row->number) == 0)
            return "number: given twice";
    if (!word_copy(row->endpoint, sizeof row->endpoint, word_next(rest)))
        return "number: expected an endpoint name";
    for (uint32_t i = 0; i < into->number_count; i++)
        if (strcmp(into->numbers[i].endpoint, row->endpoint) == 0)
            return "number: its endpoint has one already";
    const char *name = word_next(rest);
    if (name != nullptr && !word_copy(row->name, sizeof row->name, name))
        return "number: a name has 1 to 50 characters";
    into->number_count++;
    return nullptr;
}

const char *emergency_read(plan *into, char **rest) {
    char number[kNumberBytes];
    size_t used = strlen(into->emergency);
    const char *word = word_next(rest);
    if (!digits_copy(number, sizeof number, word))
        return "emergency: expected digits";
    for (; word != nullptr; word = word_next(rest)) {
        if (!digits_copy(number, sizeof number, word))
            return "emergency: expected digits";
        if (used + strlen(number) + 2 > sizeof into->emergency)
            return "emergency: too many numbers";
        used += static_cast<size_t>(
            snprintf(into->emergency + used, sizeof into->emergency - used, "%s%s", used == 0 ? "" : " ", number));
    }
    return nullptr;
}

const char *ports_read(plan *into, const char *word) {
    char *end;
    long first = word == nullptr ? 0 : strtol(word, &end, 10);
    long last = first == 0 || *end != '-' ? 0 : strtol(end + 1, &end, 10);
    const long first_even = first + first % 2;
    if (last == 0 || *end != 0 || first < 1024 || last > 65535 || last - first_even < 3)
        return "ports: expected a range of four ports or more from an even one on, like 30000-30199";
    into->first_port = static_cast<uint16_t>(first);
    into->last_port = static_cast<uint16_t>(last);
    return nullptr;
}

const char *codecs_read(plan *into, char *list) {
    into->codec_count = 0;
    char *position = nullptr;
    for (char *word = list == nullptr ? nullptr : strtok_r(list, ",", &position); word != nullptr;
         word = strtok_r(nullptr, ",", &position)) {
        const voice_codec_t *codec = codec_by_name(word);
        if (codec == nullptr || into->codec_count == sizeof into->codecs / sizeof into->codecs[0])
            return "codecs: expected names like PCMA,PCMU,G722";
        into->codecs[into->codec_count++] = codec->codec;
    }
    return into->codec_count == 0 ? "codecs: expected names like PCMA,PCMU,G722" : nullptr;
}

// Whether a word begins with a quote that nothing ends: the rest of the line would silently become part of it.
bool quote_is_open(const char *row) {
    for (const char *at = row + strspn(row, " \t"); *at != 0; at += strspn(at, " \t")) {
        if (*at != '"') {
            at += strcspn(at, " \t");
            continue;
        }
        const char *end = strchr(at + 1, '"');
        if (end == nullptr)
            return true;
        at = end + 1;
    }
    return false;
}

const char *setting_read(plan *into, const char *word, char **rest) {
    if (strcmp(word, "country") == 0) {
        const char *country = word_next(rest);
        if (country == nullptr || strlen(country) != 2 || !isupper(static_cast<unsigned char>(country[0])) ||
            !isupper(static_cast<unsigned char>(country[1])))
            return "country: expected two capital letters";
        memcpy(into->country, country, sizeof into->country);
        return nullptr;
    }
    if (strcmp(word, "number") == 0)
        return number_read(into, rest);
    if (strcmp(word, "exchange") == 0) {
        if (!digits_copy(into->exchange_prefix, sizeof into->exchange_prefix, word_next(rest)))
            return "exchange: expected a prefix of up to 7 digits";
        const char *endpoint = word_next(rest);
        if (endpoint != nullptr && !word_copy(into->exchange_endpoint, sizeof into->exchange_endpoint, endpoint))
            return "exchange: endpoint name too long";
        return nullptr;
    }
    if (strcmp(word, "incoming") == 0)
        return digits_copy(into->incoming_number, sizeof into->incoming_number, word_next(rest))
                   ? nullptr
                   : "incoming: expected a number";
    if (strcmp(word, "emergency") == 0)
        return emergency_read(into, rest);
    if (strcmp(word, "ports") == 0)
        return ports_read(into, word_next(rest));
    if (strcmp(word, "codecs") == 0)
        return codecs_read(into, word_next(rest));
    if (strcmp(word, "address") == 0) {
        in_addr address;
        const char *text = word_next(rest);
        if (text == nullptr || inet_pton(AF_INET, text, &address) != 1)
            return "address: expected an IPv4 address";
        snprintf(into->address, sizeof into->address, "%s", text);
        return nullptr;
    }
    return "unknown word; known are country, number, exchange, incoming, emergency, codecs, address, ports";
}

const char *row_read(plan *into, char *row) {
    char *rest = row;
    const bool open = quote_is_open(row);
    const char *word = word_next(&rest);
    if (word == nullptr || *word == '#')
        return nullptr;
    if (open)
        return "a quote is not closed";
    const char *wrong = setting_read(into, word, &rest);
    if (wrong != nullptr)
        return wrong;
    const char *more = word_next(&rest);
    return more == nullptr ? nullptr : command_error("'%s' is too much: a name with blanks stands in quotes", more);
}

// Whether some endpoint can have the number without being named in the file: see plan_default_number().
bool number_is_default(const char *number) {
    return strlen(number) == 3 && number[0] >= '1' && number[0] <= '8' &&
           isdigit(static_cast<unsigned char>(number[1])) && isdigit(static_cast<unsigned char>(number[2])) &&
           strcmp(number + 1, "00") != 0;
}

bool row_is_of(const char *row, const char *word) {
    const char *first = row + strspn(row, " \t");
    return strncmp(first, word, strlen(word)) == 0;
}

// The number that an exchange line rings may stand above the line that gives it to somebody.
bool incoming_is_known(const plan *from) {
    if (from->incoming_number[0] == 0)
        return true;
    if (number_is_default(from->incoming_number) &&
        !number_is_listed(plan_emergency(from), from->incoming_number)) // that is nobody's
        return true;
    for (uint32_t i = 0; i < from->number_count; i++)
        if (strcmp(from->numbers[i].number, from->incoming_number) == 0)
            return true;
    return false;
}

// A line that has an emergency number could not be called.
const plan_number *number_find_emergency(const plan *from) {
    for (uint32_t i = 0; i < from->number_count; i++)
        if (number_is_listed(plan_emergency(from), from->numbers[i].number))
            return &from->numbers[i];
    return nullptr;
}

// The figure at the end of a name; 1 when there is none.
long figure_of(const char *name) {
    const char *end = name + strlen(name);
    const char *figure = end;
    while (figure > name && isdigit(static_cast<unsigned char>(figure[-1])))
        figure--;
    return figure == end ? 1 : strtol(figure, nullptr, 10);
}

} // namespace

const char *plan_load(plan *into, const char *path) {
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return command_error("%s: %s", path, strerror(errno));
    char row[256];
    const char *wrong = nullptr;
    int number = 0;
    int incoming_row = 0;
    while (wrong == nullptr && fgets(row, sizeof row, file) != nullptr) {
        number++;
        size_t length = strcspn(row, "\r\n");
        if (row[length] == 0 && feof(file) == 0) {
            wrong = "a line is longer than 254 characters, or this is no text";
            break;
        }
        row[length] = 0;
        incoming_row = row_is_of(row, "incoming") ? number : incoming_row;
        const uint32_t numbers = into->number_count;
        wrong = row_read(into, row);
        if (into->number_count > numbers)
            into->numbers[numbers].row = static_cast<uint32_t>(number);
    }
    int error = ferror(file) != 0 ? errno : 0; // a directory, for example
    fclose(file);
    if (wrong == nullptr && error != 0)
        return command_error("%s: %s", path, strerror(error));
    if (wrong == nullptr && !incoming_is_known(into)) {
        number = incoming_row;
        wrong = "incoming: no line has this number";
    }
    if (const plan_number *taken = number_find_emergency(into); wrong == nullptr && taken != nullptr) {
        number = static_cast<int>(taken->row);
        wrong = "number: this is an emergency number";
    }
    char why[200]; // it may stand in the buffer that is written next
    snprintf(why, sizeof why, "%s", wrong == nullptr ? "" : wrong);
    return wrong == nullptr ? nullptr : command_error("%s:%d: %s", path, number, why);
}

const char *plan_emergency(const plan *from) {
    return from->emergency[0] != 0 ? from->emergency : country_get(from->country)->emergency;
}

const plan_number *plan_find(const plan *from, const char *plugin, const char *endpoint) {
    char full[64];
    snprintf(full, sizeof full, "%s.%s", plugin, endpoint);
    for (uint32_t i = 0; i < from->number_count; i++)
        if (strcmp(from->numbers[i].endpoint, full) == 0 || strcmp(from->numbers[i].endpoint, endpoint) == 0)
            return &from->numbers[i];
    return nullptr;
}

bool plan_default_number(int32_t type, const char *plugin, const char *endpoint, char *number) {
    constexpr long kPluginsPerType = 4;
    long plugin_figure = figure_of(plugin);
    long endpoint_figure = figure_of(endpoint);
    if (type == VOICE_ENDPOINT_FXO || plugin_figure < 1 || plugin_figure > kPluginsPerType || endpoint_figure < 1 ||
        endpoint_figure > 99)
        return false;
    long hundreds = plugin_figure + (type == VOICE_ENDPOINT_DECT ? kPluginsPerType : 0);
    snprintf(number, kNumberBytes, "%ld", hundreds * 100 + endpoint_figure);
    return true;
}
