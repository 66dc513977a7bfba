// SPDX-License-Identifier: MIT
// A plugin of whose tables every one has something.
#pragma once

#include "command_words.h"
#include "console.h"
#include "plugin_options.h"

#include <string.h>

inline const char *size_taken;

inline const char *size_take(const char *value) {
    size_taken = value;
    return strcmp(value, "small") == 0 ? nullptr : "small";
}
inline const char *knock(int number, char *rest) {
    const char *how = word_next(&rest);
    return command_error("%d is knocked at %s", number, how == nullptr ? "once" : how);
}

inline constexpr plugin_option_t kDoorOptions[] = {{"size", "S", "how large (small)", size_take}, {}};
inline constexpr plugin_command_t kDoorCommands[] = {{"knock", "[HOW]", knock}, {"open", "", nullptr}, {}};

inline plugin_program_t door_program() {
    plugin_program_t program = {};
    program.program = "door_plugin";
    program.about = "Doors as a voice plugin.";
    program.name = "door1";
    program.stem = "DOOR";
    program.line_word = "door";
    program.lines = 2;
    program.most_lines = 9;
    program.options = kDoorOptions;
    program.commands = kDoorCommands;
    return program;
}
