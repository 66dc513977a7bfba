// SPDX-License-Identifier: MIT
/**
 * @file exchange.h
 * Lines to the exchange: calls that go out over them and calls that come in.
 */
#pragma once

#include "calls.h"

/** Calls a number, its prefix before it, over an exchange line that is free. */
void line_call_exchange(line *from, const char *digits);
/** Dials on an exchange line that was seized. */
void exchange_dial(line *who, const char *digits);
/** An exchange line was told to take the call that rings on it. */
void exchange_seize(line *who);

/** An exchange line rings; number and name of the caller may be empty. */
void exchange_ring(line *who, const char *number, const char *name);
/** The exchange, or its caller, has released the line. */
void exchange_release(line *who);
