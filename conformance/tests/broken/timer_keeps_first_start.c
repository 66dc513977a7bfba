/* SPDX-License-Identifier: MIT */
/* A timer that runs is not armed again. */
#include "real.h"

#include <time.h>

static struct {
    kex_timer_t *timer;
    uint64_t until; /* milliseconds */
} started[1024];

static uint64_t now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (uint64_t)time.tv_sec * 1000 + (uint64_t)time.tv_nsec / 1000000;
}

void kex_timer_destroy(kex_timer_t *timer) {
    for (unsigned i = 0; timer != NULL && i < 1024; i++)
        if (started[i].timer == timer)
            started[i].until = 0;
    REAL(kex_timer_destroy)(timer);
}

int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds) {
    unsigned i = 0;
    while (timer != NULL && started[i].timer != NULL && started[i].timer != timer)
        i++;
    if (timer != NULL && started[i].timer == timer && now() < started[i].until)
        return 1;
    started[i].timer = timer;
    started[i].until = now() + milliseconds;
    return REAL(kex_timer_start)(timer, milliseconds);
}
