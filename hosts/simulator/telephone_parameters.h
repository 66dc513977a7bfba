// SPDX-License-Identifier: MIT
/**
 * @file telephone_parameters.h
 * Parameters of a simulated telephone, by their identifiers: its name, its loudness, its jitter buffer.
 *
 *  LIBVOICE_PARAM_tdmc_gain    dB by which what is heard is made louder, -60 to 20; -1 is "automatic", which is not here
 *  LIBVOICE_PARAM_tdmc_rxgain  the same of what is said
 *  LIBVOICE_PARAM_ajb_jitmin   ms that packets wait for at least, 10 to 200
 *  LIBVOICE_PARAM_ajb_jitnom   ms that the first packets of a stream wait for, 10 to 200
 *  LIBVOICE_PARAM_ajb_enabjb   1: the wait adapts; 0: it stays nominal
 *  LIBVOICE_PARAM_ajb_ar       ms by which the wait may change within a second, 5 to 100
 *  LIBVOICE_PARAM_ajb_jitcur   ms that the newest packet waits; it can be asked for, not set
 *  LIBVOICE_PARAM_ajb_type     1: adaptive, 0: fixed; it can be asked for, not set
 */
#pragma once

#include "line_driver.h"

/** For line_driver_t; the line is a telephone. */
bool telephone_get(void *line, uint32_t parameter, line_value_t *value);
bool telephone_set(void *line, uint32_t parameter, const line_value_t *value);
