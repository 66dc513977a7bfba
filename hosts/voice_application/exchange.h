// SPDX-License-Identifier: MIT
/**
 * @file exchange.h
 * Lines to the exchange: calls that go out over them and calls that come in.
 */
#pragma once

#include "calls.h"

/** Calls over an exchange line that is free. @param digits  as dialled @param number  what the exchange gets of them */
void line_call_exchange(line *from, const char *digits, const char *number);
/** Dials on an exchange line that was seized. */
void exchange_dial(line *who, const char *digits);
/** An exchange line was told to take the call that rings on it. */
void exchange_seize(line *who);

/** An exchange line rings, as is told of each ring: a call that nobody could take before is offered anew. Number and
 *  name of the caller may be empty: exchanges send them between the first and the second ring. */
void exchange_ring(line *who, const char *number, const char *name);
/** The exchange, or its caller, has released the line. */
void exchange_release(line *who);
