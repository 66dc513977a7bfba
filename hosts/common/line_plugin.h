/* SPDX-License-Identifier: MIT */
/**
 * @file line_plugin.h
 * The rules of the contract for a plugin whose endpoints are lines, fulfilled once, above any driver (line_driver.h).
 *
 * What does it do?
 *   It registers the lines each time an application says "init", hands its commands to their drivers, keeps the tables
 *   of media, contexts and streams, closes what nobody took, and brings everything back to rest when the application
 *   goes away. It says on standard output what becomes of each line.
 *
 * How does it work?
 *   line_plugin_callbacks() is a whole table for libvoice_init(). Lines are added before that and stay.
 *   plugin_main.h does both for a program with the usual options and commands.
 */
#ifndef LINE_PLUGIN_H
#define LINE_PLUGIN_H

#include "kex_host.h"
#include "libvoice_plugin.h"
#include "line_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Adds a line. Lines are numbered from 1 in this order.
 * @param driver    what it can do; stays the caller's and must live on
 * @param userdata  the driver's pointer for this line: the first argument of every operation
 * @param type      voice_endpoint_type
 * @param name      of its endpoint, 1 to 15 plain characters; copied
 * @param codecs    names, best first: "PCMA,PCMU"
 * @return NULL: more lines than the table of endpoints holds, a bad name, an unknown codec, or open without close
 */
line_t *line_add(const line_driver_t *driver, void *userdata, int32_t type, const char *name, const char *codecs);

/** The callbacks of the contract, all fourteen. */
libvoice_callbacks_t line_plugin_callbacks(void);
/** For kex_onCall(): a call begins. All may run. */
int line_plugin_call_begins(kex_t *bus, void *userdata);
/** For kex_onFailed(): a call has failed. Media that the library could not open sockets for is reported to the
 *  application, which hears nothing else of it. */
void line_plugin_call_failed(const kex_failed_call_t *call, void *userdata);
/** The connection has closed: lines are brought to rest and not registered any more. The library connects again. */
void line_plugin_application_lost(void);

/** The process leaves: media that is open is closed, and nothing is reported any more. */
void line_plugin_close_media(void);
/** After the loop: forgets all lines. Their drivers are not called. */
void line_plugin_end(void);

/**
 * Takes one line away from the application, which is waited for; the line then stays out until the process is started
 * again. Not from inside an operation: see below.
 * @return NULL, or why not
 */
const char *line_deregister(line_t *line);
/** The same from the next turn of the loop on, for an operation: deregistering takes away the very object whose
 *  function runs then. What goes wrong is said on standard output. */
void line_deregister_later(line_t *line);

#ifdef __cplusplus
}
#endif

#endif
