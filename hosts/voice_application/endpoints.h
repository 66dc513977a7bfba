// SPDX-License-Identifier: MIT
/**
 * @file endpoints.h
 * Endpoints that plugins register: checked, numbered, and taken back.
 */
#pragma once

#include "libvoice_plugin.h"

int32_t app_register_endpoint(libvoice_endpoint_t *entry);
void app_endpoint_deleted(libvoice_endpoint_t *entry);
