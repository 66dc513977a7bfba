/* SPDX-License-Identifier: MIT */
/* A wait does not see that its peer has closed. */
#include "real.h"

#include <unistd.h>

int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout) {
    const int answer = REAL(kex_waitForReply)(bus, r, timeout);
    while (bus != NULL && answer == 0 && timeout == NULL)
        pause();
    return answer;
}
