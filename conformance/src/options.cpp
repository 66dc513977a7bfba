// SPDX-License-Identifier: MIT
// Implements options.h.
#include "options.h"

#include <fnmatch.h>
#include <getopt.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr int kWrongUse = 2;
constexpr long kLongestLimit = 3600;

constexpr char kHelp[] = "usage: kex_conformance [OPTION]... LIBRARY\n"
                         "\n"
                         "Checks that LIBRARY, the path of a libkex, keeps the contract of kex.h. Prints TAP.\n"
                         "\n"
                         "  --only CHECK[,...]  only these: identifiers, groups, or patterns (\"order.*\")\n"
                         "  --alone             only those that need no second process and no socket\n"
                         "  --long              also those that take half a minute\n"
                         "  --expect FILE       checks that cannot hold, a line each: identifier and reason\n"
                         "  --timeout SECONDS   end a check after this time, 1 to 3600; 20 without it\n"
                         "  --trace             show what LIBRARY writes on standard error\n"
                         "  --list              tell the checks, with the sentence that each proves\n"
                         "  --help, --version\n"
                         "\n"
                         "TMPDIR             where the folders of the checks are made, /tmp without it\n"
                         "\n"
                         "Status: 0 every MUST holds, 1 one does not, 2 wrong use or LIBRARY cannot be loaded.\n";

enum Word { kOnly = 256, kAlone, kLong, kExpect, kTimeout, kTrace, kList, kHelpWord, kVersionWord };

constexpr option kWords[] = {
    {"only", required_argument, nullptr, kOnly},
    {"alone", no_argument, nullptr, kAlone},
    {"long", no_argument, nullptr, kLong},
    {"expect", required_argument, nullptr, kExpect},
    {"timeout", required_argument, nullptr, kTimeout},
    {"trace", no_argument, nullptr, kTrace},
    {"list", no_argument, nullptr, kList},
    {"help", no_argument, nullptr, kHelpWord},
    {"version", no_argument, nullptr, kVersionWord},
    {nullptr, 0, nullptr, 0},
};

int wrong(const char *why, const char *word) {
    fprintf(stderr, "kex_conformance: %s%s (try --help)\n", why, word);
    return kWrongUse;
}

// The words of one --only, which are cut apart where they stand.
bool chosen_add(Options &options, char *words) {
    for (char *word = strtok(words, ","); word != nullptr; word = strtok(nullptr, ",")) {
        if (options.chosen_count == kMaxChosen)
            return false;
        options.chosen[options.chosen_count++] = word;
    }
    return true;
}

bool seconds_read(const char *text, unsigned &seconds) {
    char *end = nullptr;
    const long number = strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || number < 1 || number > kLongestLimit)
        return false;
    seconds = static_cast<unsigned>(number);
    return true;
}

bool is_chosen(const char *word, const char *id) {
    const size_t length = strlen(word);
    const bool is_group = strncmp(id, word, length) == 0 && id[length] == '.';
    return is_group || fnmatch(word, id, 0) == 0;
}

// What was asked for and is nothing; null: all of it is something.
const char *unknown_word(const Options &options) {
    for (unsigned i = 0; i < options.chosen_count; i++) {
        bool known = false;
        for (unsigned g = 0; g < kGroupCount; g++) {
            for (unsigned c = 0; c < kGroups[g]->count; c++)
                known |= is_chosen(options.chosen[i], kGroups[g]->checks[c].id);
        }
        if (!known)
            return options.chosen[i];
    }
    return nullptr;
}

// A name without a folder is one of this folder: the dynamic linker would look for it among the system's libraries.
const char *library_path_of(const char *given) {
    static char path[PATH_MAX];
    if (realpath(given, path) != nullptr)
        return path;
    if (strchr(given, '/') != nullptr)
        return given;
    const int length = snprintf(path, sizeof path, "./%s", given);
    return length < static_cast<int>(sizeof path) ? path : given;
}

int word_take(int word, Options &options) {
    switch (word) {
    case kOnly:
        if (!chosen_add(options, optarg))
            return wrong("too many checks: ", optarg);
        return options.chosen_count > 0 ? kGoOn : wrong("--only names no check", "");
    case kAlone:
        options.alone = true;
        return kGoOn;
    case kLong:
        options.runs_long = true;
        return kGoOn;
    case kExpect:
        options.expected = optarg;
        return kGoOn;
    case kTimeout:
        return seconds_read(optarg, options.running.seconds) ? kGoOn : wrong("no time from 1 to 3600: ", optarg);
    case kTrace:
        options.running.shows_trace = true;
        return kGoOn;
    case kList:
        options.lists = true;
        return kGoOn;
    case kHelpWord:
        fputs(kHelp, stdout);
        return 0;
    case kVersionWord:
        puts("kex_conformance " CONFORMANCE_VERSION);
        return 0;
    default:
        return kWrongUse; // getopt_long has said why
    }
}

} // namespace

int options_read(int argc, char **argv, Options &options) {
    options = {};
    options.running.seconds = 20;
    for (int word = getopt_long(argc, argv, "", kWords, nullptr); word != -1;
         word = getopt_long(argc, argv, "", kWords, nullptr)) {
        const int status = word_take(word, options);
        if (status != kGoOn)
            return status;
    }
    if (const char *unknown = unknown_word(options))
        return wrong("no check is called ", unknown);
    if (options.lists)
        return kGoOn;
    if (optind + 1 != argc || *argv[optind] == '\0')
        return wrong("one library is wanted", "");
    options.running.path = library_path_of(argv[optind]);
    return kGoOn;
}

bool options_choose(const Options &options, const Check &check) {
    if (options.alone && (check.serve != nullptr || check.needs_sockets))
        return false;
    for (unsigned i = 0; i < options.chosen_count; i++) {
        if (is_chosen(options.chosen[i], check.id))
            return true;
    }
    return options.chosen_count == 0;
}

} // namespace conformance
