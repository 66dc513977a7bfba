// SPDX-License-Identifier: MIT
/**
 * @file plan.h
 * Country, numbering plan and media settings: defaults, and the small file that replaces them.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kNumberBytes = 24;      // 23 digits
constexpr uint32_t kDisplayNameBytes = 51; // what a caller display can carry
constexpr uint32_t kPlanNumbers = 32;

/** One row of the file that begins with "number". */
struct plan_number {
    char number[kNumberBytes];
    char endpoint[40]; // "FXS1", or "fxs1.FXS1" to name the plugin too
    char name[kDisplayNameBytes];
    uint32_t row; // of the file
};

struct plan {
    char country[3] = "DE";
    plan_number numbers[kPlanNumbers] = {};
    uint32_t number_count = 0;
    char exchange_prefix[8] = "0";           // dialled first, it asks for an exchange line
    char exchange_endpoint[40] = "";         // empty: the first one that registered
    char incoming_number[kNumberBytes] = ""; // who an exchange line rings; empty: the lowest number
    char emergency[96] = "";                 // numbers, a blank between two; empty: those of the country
    uint32_t codecs[8] = {};                 // that calls may use; none: any
    uint32_t codec_count = 0;
    char address[16] = "127.0.0.1";                 // of media sockets
    uint16_t first_port = 30000, last_port = 30199; // of media sockets: two neighbours per party
};

extern plan the_plan;

/** Numbers that reach the exchange without its prefix, a blank between two. */
const char *plan_emergency(const plan *from);

/** Reads a file over the defaults. @return null, or what is wrong with it, as "FILE:LINE: ...". */
const char *plan_load(plan *into, const char *path);
/** The row of the file for an endpoint, or null. */
const plan_number *plan_find(const plan *from, const char *plugin, const char *endpoint);
/**
 * The number of an endpoint that the file does not name, by its name: 100 for each plugin, counted by the figure at the
 * end of its name, plus the figure at the end of the endpoint's. fxs1.FXS2 is 102, fxs2.FXS1 is 201; handsets follow
 * from 501 on: dect1.DECT1 is 501. Exchange lines have no number: they are reached by the prefix.
 * @return whether there is one
 */
bool plan_default_number(int32_t type, const char *plugin, const char *endpoint, char *number);
