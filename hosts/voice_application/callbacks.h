// SPDX-License-Identifier: MIT
/**
 * @file callbacks.h
 * What the library calls in voice_application.
 */
#pragma once

#include "libvoice_plugin.h"

/** For libvoice_app_init(). */
libvoice_app_callbacks_t application_callbacks();
