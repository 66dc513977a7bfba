// SPDX-License-Identifier: MIT
// What the small voice applications of the integration tests have in common.
#ifndef PROGRAMS_APPLICATION_CREATE_H
#define PROGRAMS_APPLICATION_CREATE_H

#include <cstdio>

#include "kex_host.h"
#include "libvoice_plugin.h"

// Every line is in Germany.
inline int32_t application_country(char *country, uint32_t size) {
    snprintf(country, size, "DE");
    return 0;
}

// A bus with the functions and the object of an application, which listens; null when it cannot. Standard output goes out
// line by line from then on. The caller runs the bus and destroys it.
inline kex_t *application_create(const char *name, libvoice_app_callbacks_t callbacks,
                                 void (*peer_closed)(kex_t *bus, peer_t *peer, void *userdata)) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    kex_t *bus = kex_create(name);
    if (bus == nullptr ||
        !kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS) ||
        kex_declareObject(bus, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS) == nullptr)
        return nullptr;
    libvoice_set_kex_handler(bus);
    libvoice_app_init(callbacks);
    libvoice_plugin_init_table();
    kex_onPeerClosed(bus, peer_closed, nullptr);
    return libvoice_app_connect(kex_connection(bus), libvoice_get_ipc_socket()) == nullptr ? nullptr : bus;
}

#endif
