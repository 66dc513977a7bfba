/* SPDX-License-Identifier: MIT */
/* It does not come back when it is loaded. */
#include <unistd.h>

__attribute__((constructor)) static void hang(void) {
    for (;;)
        pause();
}
