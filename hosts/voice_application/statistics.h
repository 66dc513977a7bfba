// SPDX-License-Identifier: MIT
/**
 * @file statistics.h
 * What plugins report of media that has ended: kept for a table.
 */
#pragma once

#include "lines.h"

/** Takes the event with a call's figures. */
void statistics_take(const line *who, uint32_t appearance, voice_params_t params);
/** Answers a command with the table. @return null: it always can. */
const char *statistics_print();
