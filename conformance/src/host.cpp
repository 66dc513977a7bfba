// SPDX-License-Identifier: MIT
// Implements host.h.
#include "host.h"
#include "check.h"
#include "page.h"

#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace conformance {

const char *library_path;
char folder[256];
kex_t *bus;
Hook on_run, on_again, on_plain, on_item;
char events[512];

namespace {

constexpr int kNap = 10; // milliseconds
constexpr uint32_t kColumns = 4;
constexpr const char *kRows[][kColumns] = {
    {"Conformance", "run", "value", "other|second"},
    {"Conformance", "again", "value", nullptr},
    {"", "conformance_plain", "value", nullptr},
    {"Item", "run", "value", nullptr},
};

} // namespace

void host_declare(kex_t *on) {
    expect(lib.kex_declareFunctions(on, kRows[0], sizeof kRows / sizeof *kRows, kColumns) != 0,
           "kex_declareFunctions answers no to functions that this program exports");
    expect(lib.kex_declareObject(on, "Conformance", "Conformance") != nullptr &&
               lib.kex_declareObject(on, "Conformance.Twin", "Conformance") != nullptr &&
               lib.kex_declareObject(on, "plain", nullptr) != nullptr,
           "kex_declareObject answers null");
    expect(lib.kex_declareTemplate(on, "plain.Item", "Item") != nullptr &&
               lib.kex_declareTemplate(on, "plain.Item.Part", "Item") != nullptr,
           "kex_declareTemplate answers null");
}

void host_begin() {
    bus = lib.kex_create(process == kFirst ? "first" : "second");
    expect(bus != nullptr, "kex_create answers null");
    host_declare(bus);
}

void host_end() {
    lib.kex_destroy(bus);
    bus = nullptr;
}

const char *folder_path(char (&buffer)[300], const char *name) {
    snprintf(buffer, sizeof buffer, "%s/%s", folder, name);
    return buffer;
}

void turn(kex_t *on) {
    pollfd ready = {lib.kex_pollDescriptor(on), POLLIN, 0};
    poll(&ready, 1, kNap);
    expect(lib.kex_dispatch(on) >= 0, "kex_dispatch answers -1, although nobody called kex_stop()");
}

void turn() {
    turn(bus);
}

void turn_for(int milliseconds) {
    const int64_t end = now_in_milliseconds() + milliseconds;
    do
        turn();
    while (now_in_milliseconds() < end);
}

void turn_in_vain(const char *what) {
    fail("%s: not within %d s%s%s", what, kPatience / 1000, events[0] != '\0' ? ", but: " : "", events);
}

int64_t now_in_milliseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void event(const char *word) {
    const size_t length = strlen(events);
    snprintf(events + length, sizeof events - length, "%s%s", length > 0 ? " " : "", word);
}

bool event_was(const char *word) {
    const size_t length = strlen(word);
    for (const char *found = strstr(events, word); found != nullptr; found = strstr(found + 1, word)) {
        if ((found == events || found[-1] == ' ') && (found[length] == ' ' || found[length] == '\0'))
            return true;
    }
    return false;
}

} // namespace conformance

using namespace conformance;

namespace {

// As every bus function must: the call is ended once, before it returns.
int hook_run(Hook hook, function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    int status = KEX_FUNCTION_DONE;
    if (hook != nullptr)
        status = hook(call, arguments, return_value);
    else
        lib.fcall_destroy(call);
    page->ran++;
    return status;
}

} // namespace

// The binding finds them by these names, which are the contract's.
extern "C" {
#define BUS_FUNCTION(name) __attribute__((visibility("default"))) kex_function_t name
BUS_FUNCTION(__Conformance_run);
BUS_FUNCTION(__Conformance_again);
BUS_FUNCTION(__conformance_plain);
BUS_FUNCTION(__Item_run);
BUS_FUNCTION(__Conformance_undeclared);

int __Conformance_run(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    return hook_run(on_run, call, arguments, return_value);
}
int __Conformance_again(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    return hook_run(on_again, call, arguments, return_value);
}
int __conformance_plain(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    return hook_run(on_plain, call, arguments, return_value);
}
int __Item_run(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    return hook_run(on_item, call, arguments, return_value);
}
int __Conformance_undeclared(function_call_t *, argument_list_t *, variant_t *) {
    fail("a function ran that was never declared");
}
}
