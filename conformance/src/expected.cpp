// SPDX-License-Identifier: MIT
// Implements expected.h.
#include "expected.h"
#include "check.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr unsigned kMaxExpected = 64;
constexpr char kBlanks[] = " \t\r\n";

struct Expected {
    char *id;
    char *reason;
};

Expected all[kMaxExpected];
unsigned count;

bool is_check(const char *id) {
    for (unsigned g = 0; g < kGroupCount; g++) {
        for (unsigned c = 0; c < kGroups[g]->count; c++) {
            if (strcmp(kGroups[g]->checks[c].id, id) == 0)
                return true;
        }
    }
    return false;
}

// What is wrong with the line; null: nothing, and it is kept if it says something.
const char *line_take(char *text) {
    char *id = text + strspn(text, kBlanks);
    if (*id == '\0' || *id == '#')
        return nullptr;
    char *reason = id + strcspn(id, kBlanks);
    if (*reason != '\0')
        *reason++ = '\0';
    reason += strspn(reason, kBlanks);
    for (size_t length = strlen(reason); length > 0 && strchr(kBlanks, reason[length - 1]) != nullptr; length--)
        reason[length - 1] = '\0';
    if (!is_check(id))
        return "no check is called so";
    if (*reason == '\0')
        return "no reason is given";
    if (count == kMaxExpected)
        return "too many lines";
    all[count] = {strdup(id), strdup(reason)};
    return all[count].id != nullptr && all[count++].reason != nullptr ? nullptr : "out of memory";
}

} // namespace

bool expected_read(const char *path) {
    FILE *file = fopen(path, "re");
    if (file == nullptr) {
        fprintf(stderr, "kex_conformance: %s: %s\n", path, strerror(errno));
        return false;
    }
    char text[512];
    const char *why = nullptr;
    unsigned number = 0;
    while (why == nullptr && fgets(text, sizeof text, file) != nullptr) {
        number++;
        why = line_take(text);
    }
    const int error = ferror(file) != 0 ? errno : 0; // a folder can be opened
    fclose(file);
    if (error != 0)
        fprintf(stderr, "kex_conformance: %s: %s\n", path, strerror(error));
    if (why != nullptr)
        fprintf(stderr, "kex_conformance: %s:%u: %s\n", path, number, why);
    return why == nullptr && error == 0;
}

const char *expected_reason(const char *id) {
    for (unsigned i = 0; i < count; i++) {
        if (strcmp(all[i].id, id) == 0)
            return all[i].reason;
    }
    return nullptr;
}

} // namespace conformance
