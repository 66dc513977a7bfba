// SPDX-License-Identifier: MIT
/**
 * @file endpoints.h
 * Endpoints that plugins register: checked, numbered, and taken back.
 */
#pragma once

#include "libvoice_plugin.h"

/** For voice_app_register_endpoint. */
int32_t endpoint_registered(libvoice_endpoint_t *entry);
/** For voice_app_endpoint_deleted. Its number goes to a line that wants it: at once when the line has left, after 30 s
 *  when its plugin was lost. */
void endpoint_deleted(libvoice_endpoint_t *entry);
/** Gives back what is kept. */
void endpoints_end();
