// SPDX-License-Identifier: MIT
/**
 * @file exchange.h
 * Lines to the exchange: calls that go out over them and calls that come in.
 */
#pragma once

#include "calls.h"

/** Calls a number, its prefix before it, over an exchange line that is free. */
void call_exchange(line *from, const char *digits);
/** Dials on an exchange line that was seized. */
void exchange_dial(line *line, const char *digits);
/** An exchange line was told to take the call that rings on it. */
void exchange_seize(line *line);

/** An exchange line rings; number and name of the caller may be empty. */
void exchange_rings(line *line, const char *number, const char *name);
/** The exchange, or its caller, has released the line. */
void exchange_released(line *line);
