// SPDX-License-Identifier: MIT
/**
 * @file statistics.h
 * What plugins report of media that has ended: kept for a table.
 */
#pragma once

#include "lines.h"

/** Takes the event with a call's figures. */
void take_statistics(const line *line, const voice_event_t *head, const uint8_t *params);
/** Answers a command with the table. */
void print_statistics();
