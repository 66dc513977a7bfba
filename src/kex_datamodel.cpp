// SPDX-License-Identifier: MIT
// A plugin's endpoint objects: one instance per endpoint in its own data model, on which the voice application calls.
#include "call.h"
#include "libvoice_plugin.h"
#include "text.h"
#include "trace.h"

extern "C" {

int libvoice_kex_datamodel_add_endpoint(const char *name) {
    TRACE_ENTER();
    const voice::ObjectPath root_path(_PLUGIN_NAME);
    object_t *root = kex_getObject(libvoice_get_kex_handler(), root_path.text(), voice::kLookUp);
    // A missing root shows below: nothing can be created under it.
    if (object_getObject(root, voice::or_empty(name), voice::kLookUp, nullptr)) {
        TRACE_ERROR("Endpoint with name '%s' already exists in datamodel.", voice::or_empty(name));
        TRACE_LEAVE();
        return 0;
    }
    if (!object_createInstance(root, 0, voice::or_empty(name))) {
        TRACE_ERROR("Failed to create instance of 'Endpoint'.");
        TRACE_LEAVE();
        return 0;
    }
    if (!object_commit(root)) {
        TRACE_ERROR("Failed to commit object.");
        TRACE_LEAVE();
        return 0;
    }
    TRACE_LEAVE();
    return 1;
}

int libvoice_kex_datamodel_delete_endpoint(const char *name) {
    TRACE_ENTER();
    const voice::ObjectPath root_path(_PLUGIN_NAME);
    const voice::ObjectPath instance_path(_PLUGIN_NAME, name);
    object_t *root = kex_getObject(libvoice_get_kex_handler(), root_path.text(), voice::kLookUp);
    if (!root) {
        TRACE_ERROR("No Root object [%s] found : ignoring delete request", root_path.text());
        TRACE_LEAVE();
        return 0;
    }
    object_t *instance = kex_getObject(libvoice_get_kex_handler(), instance_path.text(), voice::kLookUp);
    if (!instance) {
        TRACE_ERROR("No instance [%s] found : ignoring delete request", instance_path.text());
        TRACE_LEAVE();
        return 0;
    }
    if (!object_delete(instance)) {
        // Kept: the trace message says Handset for every kind of endpoint.
        TRACE_ERROR("Failed to destroy Handset with name : %s", voice::or_empty(name));
        TRACE_LEAVE();
        return 0;
    }
    if (!object_commit(root)) {
        TRACE_ERROR("Failed to commit object path : %s", root_path.text());
        TRACE_LEAVE();
        return 0;
    }
    TRACE_LEAVE();
    return 1;
}
}
