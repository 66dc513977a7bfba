/* SPDX-License-Identifier: MIT */
/* Two lines whose media comes back to whoever sends it: for trying a call without a second telephone. */
#ifndef ECHO_H
#define ECHO_H

#include "kex_host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the bus, declares what the plugin "echo" has, and begins to connect. NULL: something could not be made. */
kex_t *echo_start(void);
/* Gives everything back. */
void echo_end(kex_t *bus);

#ifdef __cplusplus
}
#endif

#endif
