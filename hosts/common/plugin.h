// SPDX-License-Identifier: MIT
/**
 * @file plugin.h
 * What every plugin host does by the same rules: be connected, leave.
 */
#pragma once

/** Whether there is an application to talk to. */
bool plugin_is_connected();

/** Sends "deregister_plugin" without waiting; the application answers with "exit". Without an application, leaves at
 * once. */
void plugin_leave();
