// SPDX-License-Identifier: MIT
/**
 * @file hold.h
 * Two calls of one line: one on hold, and both in a conference.
 */
#pragma once

#include "calls.h"

/** The call that the line holds in its other appearance, or null. */
call *held_call(const line *line);
/** Puts the line's active call on hold; its other appearance may dial. */
void hold(line *line);
/** Goes back to the call that the line holds. */
void resume(line *line);
/** Joins the line's two calls in its plugin. */
void join(line *line);
