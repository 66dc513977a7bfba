// SPDX-License-Identifier: MIT
/**
 * @file dialling.h
 * Dial tone, digits, and what a number means.
 */
#pragma once

#include "lines.h"

/** A line that was lifted, or that put its call on hold, may dial. */
void line_give_dial_tone(line *who);
/** A digit of a line that dials. */
void line_collect_digit(line *who, char digit);
/** A whole number of a line that dials: nothing will follow it. */
void line_take_number(line *who, const char *number);
