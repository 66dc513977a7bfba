// SPDX-License-Identifier: MIT
// Implements report.h.
#include "report.h"

#include <stdio.h>
#include <string.h>

namespace conformance {

namespace {

struct Counts {
    unsigned number, held, broken, advised, expected, left_out;
};

Counts counts;
char broken[4096]; // the names, for the summary

// In double quotes, as YAML takes it. Whatever steers a terminal is shown as its number.
void quoted_print(const char *name, const char *text) {
    printf("  %s: \"", name);
    for (const char *c = text; *c != '\0'; c++) {
        const unsigned char byte = static_cast<unsigned char>(*c);
        if (byte == '"' || byte == '\\')
            printf("\\%c", byte);
        else if (byte < ' ' || byte >= 0x7f)
            printf("\\x%02x", byte);
        else
            putchar(byte);
    }
    puts("\"");
}

const char *level_text(const Check &check) {
    return check.level == Level::must ? "MUST" : "SHOULD";
}

void broken_note(const Check &check) {
    const size_t length = strlen(broken);
    snprintf(broken + length, sizeof broken - length, " %s", check.id);
}

void details_print(const Check &check, const char *why, const Result &result) {
    puts("  ---");
    printf("  level: %s\n", level_text(check));
    quoted_print("sentence", check.sentence);
    if (*why != '\0')
        quoted_print("why", why);
    if (result.seen[kFirst][0] != '\0')
        quoted_print("saw", result.seen[kFirst]);
    if (result.seen[kSecond][0] != '\0')
        quoted_print("saw as listener", result.seen[kSecond]);
    puts("  ...");
}

} // namespace

void report_begin(unsigned checks) {
    printf("TAP version 13\n1..%u\n", checks);
}

void report_check(const Check &check, const Result &result, const char *reason) {
    counts.number++;
    if (reason != nullptr && result.holds) {
        printf("not ok %u - %s\n", counts.number, check.id);
        counts.broken++;
        broken_note(check);
        details_print(check, "it holds, although it is expected to fail", result);
        return;
    }
    if (result.holds) {
        printf("ok %u - %s\n", counts.number, check.id);
        counts.held++;
    } else if (reason != nullptr) {
        printf("not ok %u - %s # TODO expected: %s\n", counts.number, check.id, reason);
        counts.expected++;
    } else if (check.level == Level::should) {
        printf("not ok %u - %s # TODO only a SHOULD\n", counts.number, check.id);
        counts.advised++;
        broken_note(check);
    } else {
        printf("not ok %u - %s\n", counts.number, check.id);
        counts.broken++;
        broken_note(check);
    }
    details_print(check, result.why, result);
}

void report_left_out(const Check &check) {
    counts.number++;
    counts.left_out++;
    printf("ok %u - %s # SKIP only with --long\n", counts.number, check.id);
}

void report_bail_out(const char *why) {
    printf("Bail out! %s\n", why);
}

bool report_end() {
    printf("# %u checks: %u hold, %u do not", counts.number, counts.held, counts.broken);
    if (counts.advised > 0)
        printf(", %u SHOULD but do not", counts.advised);
    if (counts.expected > 0)
        printf(", %u fail as expected", counts.expected);
    if (counts.left_out > 0)
        printf(", %u left out", counts.left_out);
    putchar('\n');
    if (broken[0] != '\0')
        printf("#%s\n", broken);
    return counts.broken == 0;
}

void report_list(bool (*is_chosen)(const Check &check)) {
    for (unsigned g = 0; g < kGroupCount; g++) {
        for (unsigned c = 0; c < kGroups[g]->count; c++) {
            const Check &check = kGroups[g]->checks[c];
            if (is_chosen(check))
                printf("%-36s %-6s %s\n", check.id, level_text(check), check.sentence);
        }
    }
}

} // namespace conformance
