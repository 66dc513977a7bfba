// SPDX-License-Identifier: MIT
// What stands in place of a plugin's line; telephone_test.cpp has the functions.
#pragma once

struct plugin_line {
    int number;
    bool registered;
};
