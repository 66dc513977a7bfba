/* SPDX-License-Identifier: MIT */
/* A door station: one line, which calls and is never called. */
#ifndef DOOR_H
#define DOOR_H

#include "libvoice_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What the library calls, for libvoice_init(). Leaving is the program's own business: its callback is unset. */
libvoice_callbacks_t door_callbacks(void);

#ifdef __cplusplus
}
#endif

#endif
