/* SPDX-License-Identifier: MIT */
/* The door station on the bundled bus. SIGTERM ends it. */
#include "door.h"
#include "kex_host.h"

#include <signal.h>

static kex_t *bus;

static void stop(int signal_number) {
    (void)signal_number;
    kex_stop(bus);
}

/* Without a handler the request leaves as a one-way call, when the bus goes. */
static void take_leave(void) {
    request_t *request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "deregister_plugin",
                                                        LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    variant_t name = {0};
    variant_setChar(&name, libvoice_get_pluginname());
    request_addParameter(request, "plugin_name", &name);
    variant_cleanup(&name);
    kex_sendRequest(bus, libvoice_get_kex_peer_handler(), request);
    request_destroy(request);
}

int main(void) {
    bus = kex_create("door");
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return 1;
    kex_declareObject(bus, "door", NULL);
    kex_declareTemplate(bus, "door.EndPoint", "EndPoint");
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname("door");
    libvoice_init(door_callbacks());
    signal(SIGTERM, stop);
    const int status = kex_run(bus);
    take_leave();
    kex_destroy(bus);
    return status;
}
