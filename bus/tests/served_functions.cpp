// SPDX-License-Identifier: MIT
// Implements served_functions.h.
#include "served_functions.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace served {

std::vector<std::string> log;
std::function<int(function_call_t *, argument_list_t *, variant_t *)> probe;

void declare(kex_t *bus) {
    const char *const rows[][4] = {
        {"Probe", "echo", "text", nullptr},
        {"Probe", "note", "number|no", nullptr},
        {"Probe", "run", nullptr, nullptr},
        {"", "plain", nullptr, nullptr},
    };
    EXPECT_TRUE(kex_declareFunctions(bus, &rows[0][0], 4, 4));
    EXPECT_NE(kex_declareObject(bus, "Probe", "Probe"), nullptr);
    EXPECT_NE(kex_declareObject(bus, "Plain", nullptr), nullptr);
}

void reset() {
    log.clear();
    probe = nullptr;
}

} // namespace served

extern "C" {

int __Probe_echo(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
int __Probe_note(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
int __Probe_run(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
int __plain(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

// Answers its text.
int __Probe_echo(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    served::log.push_back("echo");
    char *text = nullptr;
    if (!argument_getChar(arguments, "text", 0, &text)) {
        reply_addError(request_reply(fcall_request(call)), 196640, "Missing mandatory argument", "text");
        fcall_destroy(call);
        return KEX_FUNCTION_FAILED;
    }
    fcall_destroy(call);
    if (text != nullptr)
        variant_setChar(return_value, text);
    free(text);
    return KEX_FUNCTION_DONE;
}

// Writes its number down and answers nothing.
int __Probe_note(function_call_t *call, argument_list_t *arguments, variant_t *) {
    uint32_t number = 0;
    bool there = argument_getUInt32(arguments, "number", 0, &number);
    served::log.push_back(there ? "note " + std::to_string(number) : "note nothing");
    fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

int __Probe_run(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    return served::probe(call, arguments, return_value);
}

int __plain(function_call_t *call, argument_list_t *, variant_t *return_value) {
    served::log.push_back(std::string("plain ") + object_name(fcall_object(call), 0));
    fcall_destroy(call);
    variant_setBool(return_value, 1);
    return KEX_FUNCTION_DONE;
}

} // extern "C"
