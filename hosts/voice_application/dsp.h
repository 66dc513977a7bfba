// SPDX-License-Identifier: MIT
/**
 * @file dsp.h
 * Driving a DSP plugin. The library has no senders for its functions: the requests are made here, on the bus itself.
 */
#pragma once

/**
 * Runs a step on a DSP plugin; what it answers is said as it comes: "dsp dsp1 createDsp D1: true".
 * @param verb      null: make the next DSP with two channels, join them by media and play a signal;
 *                  "codec": change both channels to `argument`; "destroy": tear their media down
 * @return null, or why it cannot be done
 */
const char *dsp_command(const char *plugin, const char *verb, const char *argument);
