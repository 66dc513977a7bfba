// SPDX-License-Identifier: MIT
/**
 * @file plugin.h
 * What every plugin host does by the same rules: register endpoints, leave.
 */
#pragma once

#include "message.h"

/**
 * Registers one endpoint if it is not registered, by the rules of hosts/README.md. Only for voice_plugin_init.
 * @param codecs    `count` records, best first
 * @param is_new    out: it was not registered before this call
 * @return the endpoint's number, or -1: refused, or the application died meanwhile
 */
int32_t plugin_register_endpoint(int32_t type, const char *name, const voice_codec_t *codecs, uint32_t count,
                                 bool *is_new);

/** Whether there is an application to talk to. */
bool plugin_is_connected();

/** Sends "deregister_plugin" without waiting; the application answers with "exit". Without an application, leaves at
 * once. */
void plugin_leave();
