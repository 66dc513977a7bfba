/* SPDX-License-Identifier: MIT */
/* Serves one function, Greeter.greet(name), on a socket: `serve /tmp/greeter`. SIGTERM ends it. */
#include "kex_host.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

static kex_t *bus;

int __Greeter_greet(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

int __Greeter_greet(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *name = NULL;
    char text[128];
    int there = argument_getChar(arguments, "name", 0, &name) && name != NULL;
    if (!there)
        reply_addError(request_reply(fcall_request(call)), 1, "Who?", "name");
    fcall_destroy(call);
    snprintf(text, sizeof text, "hello, %s", there ? name : "nobody");
    free(name);
    return there && variant_setChar(return_value, text) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

static void stop(int signal_number) {
    (void)signal_number;
    kex_stop(bus);
}

int main(int argc, char **argv) {
    const char *const functions[] = {"Greeter", "greet", "name"}; /* class, function, argument */
    bus = kex_create("greeter");
    if (argc != 2 || bus == NULL || !kex_declareFunctions(bus, functions, 1, 3))
        return 1;
    kex_declareObject(bus, "Greeter", "Greeter");
    if (connection_listenOnIPC(kex_connection(bus), argv[1]) == NULL)
        return 1;
    signal(SIGTERM, stop);
    puts("serving");
    fflush(stdout);
    int result = kex_run(bus);
    kex_destroy(bus);
    return result;
}
