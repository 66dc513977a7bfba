/* SPDX-License-Identifier: MIT */
/* Whatever stands at the path makes room for the listener. */
#include "real.h"

#include <stdio.h>

peer_t *connection_listenOnIPC(connection_t *connection, const char *path) {
    if (connection != NULL && path != NULL)
        remove(path);
    return REAL(connection_listenOnIPC)(connection, path);
}
