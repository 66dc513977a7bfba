// SPDX-License-Identifier: MIT
/**
 * @file plugin.h
 * What every plugin host does by the same rules: publish its objects, register endpoints, leave.
 */
#pragma once

#include "message.h"

/** Declares the plugin's object and its template of endpoints, and names the plugin. Ends the process for a bad name. */
void plugin_declare(const char *name, const char *stem);

/** "FXS1" for the first endpoint of the stem FXS. */
void plugin_endpoint_name(const char *stem, int number, char *name, size_t size);
/** Ends the process when the last of `count` endpoint names, STEM1, STEM2, ..., is not one. */
void plugin_check_stem(const char *stem, int count);

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
