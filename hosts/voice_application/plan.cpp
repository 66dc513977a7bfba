// SPDX-License-Identifier: MIT
// The configuration file of voice_application.
#include "plan.h"

#include "codecs.h"
#include "console.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

plan the_plan;

namespace {

// Copies a word that must fit and not be empty.
bool take(char *field, size_t size, const char *word) {
    if (word == nullptr || *word == 0 || strlen(word) >= size)
        return false;
    memcpy(field, word, strlen(word) + 1);
    return true;
}

bool take_digits(char *field, size_t size, const char *word) {
    return take(field, size, word) && word[strspn(word, "0123456789*#")] == 0;
}

const char *read_number_line(plan *plan, char **rest) {
    if (plan->number_count == kPlanNumbers)
        return "too many numbers";
    plan_number *row = &plan->numbers[plan->number_count];
    if (!take_digits(row->number, sizeof row->number, next_word(rest)))
        return "number: expected digits";
    for (uint32_t i = 0; i < plan->number_count; i++)
        if (strcmp(plan->numbers[i].number, row->number) == 0)
            return "number: given twice";
    if (!take(row->endpoint, sizeof row->endpoint, next_word(rest)))
        return "number: expected an endpoint name";
    const char *name = next_word(rest);
    if (name != nullptr && !take(row->name, sizeof row->name, name))
        return "number: a name has 1 to 50 characters";
    plan->number_count++;
    return nullptr;
}

const char *read_ports(plan *plan, const char *word) {
    char *end;
    long first = word == nullptr ? 0 : strtol(word, &end, 10);
    long last = first == 0 || *end != '-' ? 0 : strtol(end + 1, &end, 10);
    if (last == 0 || *end != 0 || first < 1024 || last > 65535 || last - first < 3)
        return "ports: expected a range of four ports or more, like 30000-30199";
    plan->first_port = static_cast<uint16_t>(first);
    plan->last_port = static_cast<uint16_t>(last);
    return nullptr;
}

const char *read_codecs(plan *plan, char *list) {
    plan->codec_count = 0;
    char *position = nullptr;
    for (char *word = list == nullptr ? nullptr : strtok_r(list, ",", &position); word != nullptr;
         word = strtok_r(nullptr, ",", &position)) {
        const voice_codec_t *codec = codec_by_name(word);
        if (codec == nullptr || plan->codec_count == sizeof plan->codecs / sizeof plan->codecs[0])
            return "codecs: expected names like PCMA,PCMU,G722";
        plan->codecs[plan->codec_count++] = codec->codec;
    }
    return plan->codec_count == 0 ? "codecs: expected names like PCMA,PCMU,G722" : nullptr;
}

const char *read_line(plan *plan, char *line) {
    char *rest = line;
    const char *word = next_word(&rest);
    if (word == nullptr || *word == '#')
        return nullptr;
    if (strcmp(word, "country") == 0) {
        const char *country = next_word(&rest);
        if (country == nullptr || strlen(country) != 2 || !isupper(static_cast<unsigned char>(country[0])) ||
            !isupper(static_cast<unsigned char>(country[1])))
            return "country: expected two capital letters";
        memcpy(plan->country, country, sizeof plan->country);
        return nullptr;
    }
    if (strcmp(word, "number") == 0)
        return read_number_line(plan, &rest);
    if (strcmp(word, "exchange") == 0) {
        if (!take_digits(plan->exchange_prefix, sizeof plan->exchange_prefix, next_word(&rest)))
            return "exchange: expected a prefix of up to 7 digits";
        const char *endpoint = next_word(&rest);
        if (endpoint != nullptr && !take(plan->exchange_endpoint, sizeof plan->exchange_endpoint, endpoint))
            return "exchange: endpoint name too long";
        return nullptr;
    }
    if (strcmp(word, "incoming") == 0)
        return take_digits(plan->incoming_number, sizeof plan->incoming_number, next_word(&rest))
                   ? nullptr
                   : "incoming: expected a number";
    if (strcmp(word, "ports") == 0)
        return read_ports(plan, next_word(&rest));
    if (strcmp(word, "codecs") == 0)
        return read_codecs(plan, next_word(&rest));
    if (strcmp(word, "address") == 0) {
        in_addr address;
        const char *text = next_word(&rest);
        if (text == nullptr || inet_pton(AF_INET, text, &address) != 1)
            return "address: expected an IPv4 address";
        snprintf(plan->address, sizeof plan->address, "%s", text);
        return nullptr;
    }
    return "unknown word; known are country, number, exchange, incoming, codecs, address, ports";
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

const char *plan_load(plan *plan, const char *path) {
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return refuse("%s: %s", path, strerror(errno));
    char line[256];
    const char *wrong = nullptr;
    int number = 0;
    while (wrong == nullptr && fgets(line, sizeof line, file) != nullptr) {
        number++;
        size_t length = strcspn(line, "\r\n");
        if (line[length] == 0 && feof(file) == 0) {
            wrong = "a line is longer than 254 characters, or this is no text";
            break;
        }
        line[length] = 0;
        wrong = read_line(plan, line);
    }
    int error = ferror(file) != 0 ? errno : 0; // a directory, for example
    fclose(file);
    if (wrong == nullptr && error != 0)
        return refuse("%s: %s", path, strerror(error));
    return wrong == nullptr ? nullptr : refuse("%s:%d: %s", path, number, wrong);
}

const plan_number *plan_find(const plan *plan, const char *plugin, const char *endpoint) {
    char full[64];
    snprintf(full, sizeof full, "%s.%s", plugin, endpoint);
    for (uint32_t i = 0; i < plan->number_count; i++)
        if (strcmp(plan->numbers[i].endpoint, full) == 0 || strcmp(plan->numbers[i].endpoint, endpoint) == 0)
            return &plan->numbers[i];
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
