// SPDX-License-Identifier: MIT
// Registration and leaving of a plugin host.
#include "plugin.h"

#include "host.h"

#include <stdio.h>

namespace {

// The object that the application calls an endpoint by. One can be left over when the application went away: the
// library then forgets its table, not the data model.
bool is_published(const char *name) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    snprintf(path, sizeof path, "%s.EndPoint", libvoice_get_pluginname());
    return object_getObject(kex_getObject(host_bus(), path, 1), name, 1, nullptr) != nullptr;
}

void unpublish(const char *name) {
    if (is_published(name)) // deleting what is not there writes an error message
        libvoice_kex_datamodel_delete_endpoint(name);
}

} // namespace

int32_t plugin_register_endpoint(int32_t type, const char *name, const voice_codec_t *codecs, uint32_t count,
                                 bool *is_new) {
    *is_new = false;
    if (libvoice_get_endpoint_index_by_name(name) != -1)
        return libvoice_get_endpoint_by_name(name); // "init" may come twice; the application knows this one already
    unpublish(name);

    const void *list[LIBVOICE_ENDPOINT_CODECS + 1] = {};
    for (uint32_t i = 0; i < count && i < LIBVOICE_ENDPOINT_CODECS; i++)
        list[i] = &codecs[i];
    int32_t endpoint = -1;
    if (libvoice_register_endpoint(type, name, nullptr, list, &endpoint) != LIBVOICE_OK || endpoint < 0) {
        // A refusal arrives as a number below 0 and has left an entry and an object behind: take them out again.
        libvoice_endpoint_t *entry = libvoice_get_endpoint_entry_by_name(name);
        if (entry != nullptr)
            libvoice_delete_endpoint_entry(entry);
        unpublish(name);
        return -1;
    }
    *is_new = true;
    return endpoint;
}

bool plugin_is_connected() {
    return libvoice_get_kex_peer_handler() != nullptr;
}

void plugin_leave() {
    request_t *request = nullptr;
    if (plugin_is_connected())
        request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "deregister_plugin",
                                                 LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    variant_t name;
    variant_initialize(&name, VARIANT_TEXT);
    variant_setChar(&name, libvoice_get_pluginname());
    bool sent = request_addParameter(request, "plugin_name", &name) &&
                kex_sendRequest(host_bus(), libvoice_get_kex_peer_handler(), request);
    variant_cleanup(&name);
    request_destroy(request); // without a handler it leaves as a one-way call
    if (!sent)
        host_stop();
}
