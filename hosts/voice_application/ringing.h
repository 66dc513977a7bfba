// SPDX-License-Identifier: MIT
/**
 * @file ringing.h
 * A call before it is answered: the ringing, the caller's number and name, and the end of patience.
 */
#pragma once

#include "calls.h"

/** Who calls, for the callee's display; empty: not known. A caller who becomes known while it rings is shown then. */
void call_set_caller(call *it, const char *number, const char *name);
/** The callee rings, the caller hears it. Caller display follows between the first and the second ring. */
void call_ring(call *it);
