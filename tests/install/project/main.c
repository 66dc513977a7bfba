/* SPDX-License-Identifier: MIT */
/* The door station on the bundled bus. SIGTERM ends it. */
#define _POSIX_C_SOURCE 200809L /* sigprocmask() */
#include "door.h"
#include "kex_host.h"

#include <signal.h>
#include <sys/signalfd.h>

static kex_t *bus;

/* SIGTERM came. The answer to this request is "exit": only then is the application done with us. */
static void take_leave(int descriptor, void *userdata) {
    (void)userdata;
    request_t *request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "deregister_plugin",
                                                        LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    variant_t name = {0};
    variant_setChar(&name, libvoice_get_pluginname());
    request_addParameter(request, "plugin_name", &name);
    variant_cleanup(&name);
    if (!kex_sendRequest(bus, libvoice_get_kex_peer_handler(), request))
        kex_stop(bus);
    request_destroy(request);
    kex_unwatch(bus, descriptor);
}

static int32_t leave(uint32_t reason) {
    (void)reason;
    kex_stop(bus);
    return 0;
}

int main(void) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    bus = kex_create("door");
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return 1;
    kex_declareObject(bus, "door", NULL);
    kex_declareTemplate(bus, "door.EndPoint", "EndPoint");
    kex_watch(bus, signalfd(-1, &signals, SFD_CLOEXEC), NULL, take_leave);
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname("door");
    libvoice_callbacks_t callbacks = door_callbacks();
    callbacks.voice_plugin_exit = leave;
    libvoice_init(callbacks);
    const int status = kex_run(bus);
    kex_destroy(bus);
    return status;
}
