/* SPDX-License-Identifier: MIT */
/* A program that does nothing: what each process has anyway. Says so when it is there. */
#include <unistd.h>

int main(void) {
    if (write(1, "idle\n", 5) != 5)
        return 1;
    for (;;)
        pause();
}
