// SPDX-License-Identifier: MIT
/**
 * @file ringing.h
 * A call before it is answered: the ringing, the caller's number and name, and the end of patience.
 */
#pragma once

#include "calls.h"

/** The callee rings, the caller hears it. Caller display follows between the first and the second ring. */
void call_ring(call *it);
