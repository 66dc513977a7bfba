// SPDX-License-Identifier: MIT
/**
 * @file telephone_signals.h
 * What an application signals to a simulated telephone: the operations of line_driver_t that make it sound and ring.
 */
#pragma once

#include "line_driver.h"

/** For line_driver_t; the line is a telephone. */
void telephone_registered(void *line, const char *country);
const char *telephone_play(void *line, const line_tone_t *order);
void telephone_stop(void *line, uint32_t signal);
const char *telephone_ring(void *line, const line_ring_t *ring);
const char *telephone_other_signal(void *line, uint32_t signal, const void *params, uint32_t length);
