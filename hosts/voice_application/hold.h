// SPDX-License-Identifier: MIT
/**
 * @file hold.h
 * Two calls of one line: one on hold, and both in a conference.
 */
#pragma once

#include "calls.h"

/** The call that the line holds in its other appearance, or null. */
call *line_held_call(const line *who);
/** Puts the line's active call on hold; its other appearance may dial. */
void line_hold(line *who);
/** Goes back to the call that the line holds. */
void line_resume(line *who);
/** Joins the line's two calls in its plugin. */
void line_join(line *who);
