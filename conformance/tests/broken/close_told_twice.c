/* SPDX-License-Identifier: MIT */
/* A close event runs twice. */
#include "real.h"

static struct {
    peer_t *peer;
    void *userdata;
    int (*handler)(peer_t *peer, int event, void *userdata);
} handlers[64];

static int event_pass(peer_t *peer, int event, void *userdata) {
    unsigned i = (unsigned)(uintptr_t)userdata;
    handlers[i].handler(peer, event, handlers[i].userdata);
    return handlers[i].handler(peer, event, handlers[i].userdata);
}

int peer_setEventHandler(peer_t *peer, int event, void *userdata,
                         int (*handler)(peer_t *peer, int event, void *userdata)) {
    static unsigned count;
    if (handler == NULL)
        return REAL(peer_setEventHandler)(peer, event, userdata, NULL);
    handlers[count].peer = peer;
    handlers[count].userdata = userdata;
    handlers[count].handler = handler;
    return REAL(peer_setEventHandler)(peer, event, (void *)(uintptr_t)count++, event_pass);
}
