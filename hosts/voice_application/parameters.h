// SPDX-License-Identifier: MIT
/**
 * @file parameters.h
 * Parameters of endpoints: set and asked for by command, and their answers.
 */
#pragma once

#include "lines.h"

/* Commands. @return null, or why not. */
const char *set_parameter(const line *line, const char *name, const char *value);
const char *get_parameter(const line *line, const char *name);

void app_get_done(request_t *request);
