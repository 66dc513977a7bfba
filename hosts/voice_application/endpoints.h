// SPDX-License-Identifier: MIT
/**
 * @file endpoints.h
 * Endpoints that plugins register: checked, numbered, and taken back.
 */
#pragma once

#include "libvoice_plugin.h"

int32_t endpoint_registered(libvoice_endpoint_t *entry);
void endpoint_deleted(libvoice_endpoint_t *entry);
