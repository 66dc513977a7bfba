/* SPDX-License-Identifier: MIT */
/* The public header compiles alone, first and only, as C and as C++. */
#include "libvoice_plugin.h"

int voice_header_alone(void);
int voice_header_alone(void) {
    libvoice_event_t event = {0, {0, 0}, 0, 0};
    return libvoice_event_params(&event) != (uint8_t *)(&event + 1) || libvoice_bus_functions()[1] == 0;
}
