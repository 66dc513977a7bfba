// SPDX-License-Identifier: MIT
/**
 * @file callbacks.h
 * What the library calls in voice_application.
 */
#pragma once

#include "libvoice_plugin.h"

/** Starts the application on a bus: it listens, and has its handlers. @return null, or a sentence that says what is
 *  wrong */
const char *application_start(kex_t *bus);
/** After the loop: gives back what is kept. */
void application_end();
