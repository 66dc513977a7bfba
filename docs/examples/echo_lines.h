/* SPDX-License-Identifier: MIT */
/* Two lines that answer by themselves and say back what they hear. */
#ifndef ECHO_LINES_H
#define ECHO_LINES_H

#include "libvoice_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ECHO_LINES 2

/* What the library calls. Leaving is the program's own business: that callback is unset. */
libvoice_callbacks_t echo_lines_callbacks(void);
/* The application is gone: the lines are idle again, their media is closed. */
void echo_lines_lost(void);

#ifdef __cplusplus
}
#endif

#endif
