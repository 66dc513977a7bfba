// SPDX-License-Identifier: MIT
/**
 * @file watchdog.h
 * Tells the service manager that started the process how it is, in the way of sd_notify(3): "READY=1" when the loop
 * begins, "WATCHDOG=1" from the loop as long as it turns, "STOPPING=1" at the end. Without $NOTIFY_SOCKET nothing is
 * told.
 */
#pragma once

/** The loop begins: ready; then twice in each $WATCHDOG_USEC microseconds, when that is meant for this process. */
void watchdog_start();
/** The loop has ended. */
void watchdog_stop();
