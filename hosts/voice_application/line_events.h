// SPDX-License-Identifier: MIT
/**
 * @file line_events.h
 * What a line's user does, and what befalls the line: the events that plugins report.
 *
 * What does it do? Each function is one event of the state machine of a line; what an event means depends on the state.
 * How does it work? An event without a meaning in a state changes nothing. Exchange lines have events of their own
 * (exchange.h).
 */
#pragma once

#include "lines.h"

void line_off_hook(line *who);
void line_on_hook(line *who);
void line_digit(line *who, char digit);
/** A whole number at once. */
void line_number(line *who, const char *number);
void line_flash(line *who);
/** A handset answers its base, or does not any more: then nobody there hears a call that rings. */
void line_reach(line *who, bool is_reached);
/** A plugin could not do what it was told: the call of that appearance ends, unless it may work at other media ports.
 *  @param is_temporary  it may work another time */
void line_failed(line *who, uint32_t appearance, bool is_temporary, const char *why);
/** The line was taken back, or its plugin has gone. */
void line_gone(line *who, const char *why);
