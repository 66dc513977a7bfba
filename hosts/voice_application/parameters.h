// SPDX-License-Identifier: MIT
/**
 * @file parameters.h
 * Parameters of endpoints: set and asked for by command, and their answers.
 */
#pragma once

#include "lines.h"

/* Commands. @return null, or why not. */
const char *parameter_set(const line *who, const char *name, const char *value);
const char *parameter_get(const line *who, const char *name);

void parameters_get_done(request_t *request);
