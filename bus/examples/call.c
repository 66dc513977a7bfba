/* SPDX-License-Identifier: MIT */
/* Calls Greeter.greet(name) and prints the answer: `call /tmp/greeter world`. */
#include "kex_host.h"

#include <stdio.h>

int main(int argc, char **argv) {
    char uri[256];
    const char *answer = NULL;
    variant_t name = {0};
    struct timeval limit = {5, 0};
    kex_t *bus = kex_create("caller");
    if (argc != 3 || bus == NULL)
        return 1;
    snprintf(uri, sizeof uri, "kex://ipc:[%s]", argv[1]);
    peer_t *peer = kex_client_connect(bus, uri);

    request_t *request = request_create_executeFunction("Greeter", "greet", 0);
    variant_setChar(&name, argv[2]);
    request_addParameter(request, "name", &name);
    variant_cleanup(&name);

    if (kex_sendRequest(bus, peer, request) && kex_waitForReply(bus, request, &limit)) {
        reply_item_t *item = reply_firstItem(request_reply(request));
        if (variant_toChar(reply_item_returnValue(item), &answer))
            puts(answer);
        else
            fprintf(stderr, "error: %s\n", reply_item_errorDescription(item));
    }
    int status = answer != NULL ? 0 : 1;
    request_destroy(request);
    kex_destroy(bus);
    return status;
}
