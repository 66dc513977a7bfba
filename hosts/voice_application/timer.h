// SPDX-License-Identifier: MIT
/**
 * @file timer.h
 * Timers of the bus, made when they are first started.
 */
#pragma once

#include "kex.h"

inline void timer_stop(kex_timer_t **timer) {
    kex_timer_destroy(*timer);
    *timer = nullptr;
}

inline void timer_start(kex_timer_t **timer, void (*handler)(kex_timer_t *), uint32_t milliseconds) {
    if (*timer == nullptr)
        *timer = kex_timer_create();
    kex_timer_setHandler(*timer, handler);
    kex_timer_start(*timer, milliseconds);
}
