/* SPDX-License-Identifier: MIT */
/* It crashes when it is loaded. */
#include <signal.h>

__attribute__((constructor)) static void crash(void) {
    raise(SIGSEGV);
}
