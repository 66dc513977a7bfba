// SPDX-License-Identifier: MIT
/**
 * @file events.h
 * Events that plugins send: read, and handed to the call logic.
 */
#pragma once

#include "libvoice_plugin.h"

int32_t event_arrived(libvoice_event_t *message);
