/* SPDX-License-Identifier: MIT */
/**
 * @file voice_start.h
 * Starting a plugin, an application or a DSP plugin on the bundled bus; registering endpoints; leaving.
 *
 * What does it do?
 *   Each host has to take the same steps, and most mistakes in them show as silence. Here they are one call, which
 *   checks what it is given and each step, and answers NULL or a sentence: a constant text that says what is wrong. A
 *   host that got a sentence has not been started.
 *
 *       kex_t *bus = kex_create("tel");
 *       const char *wrong = voice_plugin_start(bus, "tel", &callbacks);
 *       if (wrong != NULL) {
 *           fprintf(stderr, "tel: %s\n", wrong);
 *           return 1;
 *       }
 *       return kex_run(bus);
 *
 *   The process name of kex_create() is only shown; the plugin's name is the one that endpoints and requests go by.
 *
 * How does it work?
 *   One name serves for the plugin's object, for its template of endpoints and for its registration, so that they
 *   cannot differ. Nothing is allocated. On another bus than the bundled one, write these steps for it: they are the
 *   only part of a host that knows how objects are declared. C11 or C++17.
 */
#ifndef VOICE_START_H
#define VOICE_START_H

#include <stdio.h>
#include <stdlib.h>

#include "kex_host.h"
#include "voice_records.h"

/* ------------------------------------------------------------------------------------------------------------ Names */

/** Whether a text can be a name: printable ASCII without blanks, dots and quotes, at least one character. It stands in
 * paths and in lines of output. */
static inline int voice_name_is_plain(const char *name) {
    const char *at = name;
    for (; *at != 0; at++)
        if (*at <= ' ' || *at > '~' || *at == '.' || *at == '"')
            return 0;
    return at != name;
}
/** What is wrong with a plugin's name, or NULL. The application's table would cut a longer one, and know another
 * plugin. */
static inline const char *voice_plugin_name_wrong(const char *name) {
    if (name == NULL || *name == 0)
        return "the plugin has no name";
    if (strlen(name) >= LIBVOICE_PLUGIN_NAME_BYTES)
        return "the plugin's name is too long: 19 characters at most";
    return voice_name_is_plain(name) ? NULL : "the plugin's name has a dot, a blank, a quote or no plain character";
}
/** What is wrong with an endpoint's name, or NULL. */
static inline const char *voice_endpoint_name_wrong(const char *name) {
    if (name == NULL || *name == 0)
        return "the endpoint has no name";
    if (strlen(name) >= LIBVOICE_ENDPOINT_NAME_BYTES)
        return "the endpoint's name is too long: 15 characters at most";
    return voice_name_is_plain(name) ? NULL : "the endpoint's name has a dot, a blank, a quote or no plain character";
}

/* -------------------------------------------------------------------------------------------------------- Callbacks
 * The library calls these without a test: an unset one ends the process. */

/** The first callback of a plugin that must be set and is not, as a sentence, or NULL. */
static inline const char *voice_plugin_callbacks_wrong(const libvoice_callbacks_t *callbacks) {
    if (callbacks == NULL)
        return "there is no table of callbacks";
    if (callbacks->voice_plugin_init == NULL)
        return "voice_plugin_init is not set";
    if (callbacks->voice_plugin_exit == NULL)
        return "voice_plugin_exit is not set";
    if (callbacks->voice_plugin_signal == NULL)
        return "voice_plugin_signal is not set";
    if (callbacks->voice_plugin_create == NULL)
        return "voice_plugin_create is not set";
    if (callbacks->voice_plugin_modify == NULL)
        return "voice_plugin_modify is not set";
    if (callbacks->voice_plugin_destroy == NULL)
        return "voice_plugin_destroy is not set";
    if (callbacks->voice_plugin_get == NULL)
        return "voice_plugin_get is not set";
    if (callbacks->voice_plugin_set == NULL)
        return "voice_plugin_set is not set";
    if (callbacks->voice_plugin_create_ctx == NULL)
        return "voice_plugin_create_ctx is not set";
    if (callbacks->voice_plugin_add_stream == NULL)
        return "voice_plugin_add_stream is not set";
    if (callbacks->voice_plugin_modify_stream == NULL)
        return "voice_plugin_modify_stream is not set";
    if (callbacks->voice_plugin_remove_stream == NULL)
        return "voice_plugin_remove_stream is not set";
    if (callbacks->voice_plugin_destroy_ctx == NULL)
        return "voice_plugin_destroy_ctx is not set";
    return NULL;
}
/** The first callback of an application that must be set and is not, as a sentence, or NULL. */
static inline const char *voice_application_callbacks_wrong(const libvoice_app_callbacks_t *callbacks) {
    if (callbacks == NULL)
        return "there is no table of callbacks";
    if (callbacks->voice_app_get_country == NULL)
        return "voice_app_get_country is not set";
    if (callbacks->voice_app_event == NULL)
        return "voice_app_event is not set";
    if (callbacks->voice_app_register_endpoint == NULL)
        return "voice_app_register_endpoint is not set";
    return NULL;
}

/* What a plugin that cannot do something sets: each answers -1 and gives back what was handed to it. The application
 * does not hear the answer to a media command, but the event. */

/** For voice_plugin_signal: there is nothing that can be played or done. */
static inline int32_t voice_reject_signal(libvoice_signal_t *message) {
    (void)message;
    return -1;
}
/** For voice_plugin_create and voice_plugin_modify: no media. Closes the descriptors and reports the cause. */
static inline int32_t voice_reject_media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    (void)cnx_info;
    voice_descriptors_close(descriptors, 0, LIBVOICE_DESCRIPTORS);
    voice_event_report_cause(endpoint, line, VOICE_CAUSE_UNSUPPORTED, "no media here");
    return -1;
}
/** For voice_plugin_destroy: there is no media. */
static inline int32_t voice_reject_destroy(int32_t endpoint, uint32_t line) {
    (void)endpoint;
    (void)line;
    return -1;
}
/** For voice_plugin_get: no parameters. */
static inline int32_t voice_reject_get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    (void)request;
    (void)result;
    (void)reserved;
    return -1;
}
/** For voice_plugin_set: no parameters. */
static inline int32_t voice_reject_set(libvoice_param_set_t *params) {
    (void)params;
    return -1;
}
/** For voice_plugin_create_ctx and voice_plugin_destroy_ctx: no conferences. */
static inline int32_t voice_reject_context(uint32_t context) {
    (void)context;
    return -1;
}
/** For voice_plugin_add_stream: no conferences. Closes the three descriptors of a stream, frees the stream information
 *  and reports the cause. Other places of the array are not touched: another library need not set them. */
static inline int32_t voice_reject_add_stream(uint32_t context, void *stream_info, int32_t **descriptors,
                                              int32_t endpoint, uint32_t line) {
    (void)context;
    free(stream_info);
    voice_descriptors_close(descriptors, 0, VOICE_STREAM_DESCRIPTORS);
    voice_event_report_cause(endpoint, line, VOICE_CAUSE_UNSUPPORTED, "no conferences here");
    return -1;
}
/** For voice_plugin_modify_stream: no conferences. Frees the stream information. */
static inline int32_t voice_reject_modify_stream(uint32_t context, void *stream_info) {
    (void)context;
    free(stream_info);
    return -1;
}
/** For voice_plugin_remove_stream: no conferences. */
static inline int32_t voice_reject_remove_stream(uint32_t context, uint32_t stream) {
    (void)context;
    (void)stream;
    return -1;
}
/** A whole table of them, for a plugin that sets only what it can do: voice_plugin_init, and voice_plugin_exit, are not
 * set. */
static inline libvoice_callbacks_t voice_plugin_rejections(void) {
    libvoice_callbacks_t callbacks;
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.voice_plugin_signal = voice_reject_signal;
    callbacks.voice_plugin_create = voice_reject_media;
    callbacks.voice_plugin_modify = voice_reject_media;
    callbacks.voice_plugin_destroy = voice_reject_destroy;
    callbacks.voice_plugin_get = voice_reject_get;
    callbacks.voice_plugin_set = voice_reject_set;
    callbacks.voice_plugin_create_ctx = voice_reject_context;
    callbacks.voice_plugin_add_stream = voice_reject_add_stream;
    callbacks.voice_plugin_modify_stream = voice_reject_modify_stream;
    callbacks.voice_plugin_remove_stream = voice_reject_remove_stream;
    callbacks.voice_plugin_destroy_ctx = voice_reject_context;
    return callbacks;
}

/* ----------------------------------------------------------------------------------------------------------- Starting
 */

/** Declares the bus functions. For the three starts. @return NULL or a sentence. */
static inline const char *voice_declare_functions(kex_t *bus) {
    if (bus == NULL)
        return "there is no bus: kex_create() comes first, and answers NULL when the process has no descriptors left";
    if (!kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return "the bus does not find the bus functions in this program (its trace names them): link libvoice_plugin "
               "as a shared library, or the program with -rdynamic";
    return NULL;
}
/** Writes a path made of a plugin's name and a rest; what does not fit is cut. Without snprintf(): that touches more of
 * the C library than all else that an idle plugin uses of it. */
static inline void voice_path_write(char path[LIBVOICE_ENDPOINT_PATH_BYTES], const char *name, const char *rest) {
    const char *const parts[] = {name, rest};
    size_t used = 0;
    for (size_t i = 0; i < sizeof parts / sizeof parts[0]; i++)
        for (const char *from = parts[i]; *from != 0 && used < LIBVOICE_ENDPOINT_PATH_BYTES - 1; from++)
            path[used++] = *from;
    path[used] = 0;
}
/** Declares an object, or a template of objects, at a path made of the plugin's name and a rest. @return whether the
 * bus took it. */
static inline int voice_declare(kex_t *bus, const char *name, const char *rest, const char *class_name,
                                int is_template) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    voice_path_write(path, name, rest);
    return (is_template ? kex_declareTemplate(bus, path, class_name) : kex_declareObject(bus, path, class_name)) !=
           NULL;
}
/** What voice_plugin_start() does before anything runs. @return NULL or a sentence. */
static inline const char *voice_plugin_prepare(kex_t *bus, const char *name, const libvoice_callbacks_t *callbacks) {
    const char *wrong = voice_plugin_name_wrong(name);
    if (wrong == NULL)
        wrong = voice_plugin_callbacks_wrong(callbacks);
    if (wrong == NULL)
        wrong = voice_declare_functions(bus);
    if (wrong != NULL)
        return wrong;
    if (!voice_declare(bus, name, "", NULL, 0) || !voice_declare(bus, name, ".EndPoint", "EndPoint", 1))
        return "the bus does not take the plugin's objects: its name is that of an object with a class";
    return NULL;
}
/** The plugin's own voice_plugin_init, which voice_plugin_run() puts voice_plugin_init_came() before. Weak, as the next
 *  one: all files of a program share them. */
__attribute__((weak)) int32_t (*voice_plugin_own_init)(const char *country);
/** The connection on which "init" has come last, only to be compared. */
__attribute__((weak)) peer_t *voice_plugin_initialised_by;

/** Stands before the plugin's own voice_plugin_init. */
static inline int32_t voice_plugin_init_came(const char *country) {
    voice_plugin_initialised_by = libvoice_get_kex_peer_handler();
    return voice_plugin_own_init(country);
}
/** Whether "init" has come on the connection that there is now: the application has registered the plugin under its
 *  name. For a plugin started by this header. */
static inline int voice_plugin_is_initialised(void) {
    peer_t *application = libvoice_get_kex_peer_handler();
    return application != NULL && application == voice_plugin_initialised_by;
}
/** Hands bus, name and callbacks to the library: from the next turn of the loop it connects and registers. */
static inline void voice_plugin_run(kex_t *bus, const char *name, const libvoice_callbacks_t *callbacks) {
    libvoice_callbacks_t handed_over = *callbacks;
    voice_plugin_own_init = callbacks->voice_plugin_init;
    handed_over.voice_plugin_init = voice_plugin_init_came;
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname(name);
    if (*libvoice_get_ep_suffix() == 0)
        libvoice_set_ep_suffix(name);
    libvoice_init(handed_over);
}

/**
 * Starts a plugin: checks everything, declares the bus functions, the plugin's object and its template of endpoints,
 * and hands bus, name and callbacks to the library, which connects to the application when the loop runs.
 * @param bus        from kex_create()
 * @param name       of the plugin: 1 to 19 plain characters, without dots, blanks and quotes
 * @param callbacks  copied; all but voice_plugin_event must be set
 * @return NULL: started, run the loop; or a sentence
 *
 * The default names of endpoints begin with libvoice_get_ep_suffix(), or with the plugin's name when that was not set.
 */
static inline const char *voice_plugin_start(kex_t *bus, const char *name, const libvoice_callbacks_t *callbacks) {
    const char *wrong = voice_plugin_prepare(bus, name, callbacks);
    if (wrong == NULL)
        voice_plugin_run(bus, name, callbacks);
    return wrong;
}
/**
 * Starts a DSP plugin: as voice_plugin_start(), with the objects `<name>.DSPPlugin`, and below it the templates of DSPs
 * and of their channels.
 * @param callbacks  as for any plugin: one without endpoints sets voice_plugin_rejections(), init and exit
 * @param dsp        copied; none of them must be set: the library answers no for one that is not
 */
static inline const char *voice_dsp_plugin_start(kex_t *bus, const char *name, const libvoice_callbacks_t *callbacks,
                                                 const libvoice_dsp_callbacks_t *dsp) {
    if (dsp == NULL)
        return "there is no table of DSP callbacks";
    const char *wrong = voice_plugin_prepare(bus, name, callbacks);
    if (wrong != NULL)
        return wrong;
    if (!voice_declare(bus, name, ".DSPPlugin", "DSPPlugin", 0) ||
        !voice_declare(bus, name, ".DSPPlugin.DSP", "DSP", 1) ||
        !voice_declare(bus, name, ".DSPPlugin.DSP.DSP_CHANNEL", "DSP_CHANNEL", 1))
        return "the bus does not take the DSP plugin's objects";
    libvoice_dsp_init(*dsp);
    voice_plugin_run(bus, name, callbacks);
    return NULL;
}

/** What an application does when a connection has closed: a plugin that crashed takes no leave, and its endpoints go
 * here. voice_application_start() installs it; a host with a handler of its own calls it there. */
static inline void voice_application_peer_closed(kex_t *bus, peer_t *peer, void *userdata) {
    (void)bus;
    (void)userdata;
    if (libvoice_plugin_get_index_by_peer(peer) != -1)
        libvoice_plugin_deregister_by_peer(peer);
}
/**
 * Starts an application: checks everything, declares the bus functions and the application's object, hands bus and
 * callbacks to the library, and listens where $ZIL_VOIP_IPC_SOCKET says.
 * @param callbacks  copied; the first three must be set
 * @return NULL: plugins can connect as soon as the loop runs; or a sentence
 *
 * Installs voice_application_peer_closed() with kex_onPeerClosed(): install your own one afterwards.
 */
static inline const char *voice_application_start(kex_t *bus, const libvoice_app_callbacks_t *callbacks) {
    const char *wrong = voice_application_callbacks_wrong(callbacks);
    if (wrong == NULL)
        wrong = voice_declare_functions(bus);
    if (wrong != NULL)
        return wrong;
    if (kex_declareObject(bus, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS) == NULL)
        return "the bus does not take the application's object: its path is taken";
    libvoice_set_kex_handler(bus);
    libvoice_app_init(*callbacks);
    libvoice_plugin_init_table();
    kex_onPeerClosed(bus, voice_application_peer_closed, NULL);
    if (libvoice_app_connect(kex_connection(bus), libvoice_get_ipc_socket()) == NULL)
        return "cannot listen at the path that ZIL_VOIP_IPC_SOCKET names (without it /var/run/voip_ipc_sock): is "
               "another application running, or the folder missing?";
    return NULL;
}

/* ------------------------------------------------------------------------------------ A plugin's endpoints; leaving */

/** Withdraws the object of an endpoint that is left over: deleting what is not there would trace an error. */
static inline void voice_endpoint_unpublish(const char *name) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    voice_path_write(path, libvoice_get_pluginname(), ".EndPoint");
    if (object_getObject(kex_getObject(libvoice_get_kex_handler(), path, 1), name, 1, NULL) != NULL)
        libvoice_kex_datamodel_delete_endpoint(name);
}
/**
 * Registers an endpoint with the application unless it is registered, and waits for the answer. Only from
 * voice_plugin_init, which runs again after each loss of the application, and may run twice.
 * @param type      voice_endpoint_type
 * @param name      1 to 15 plain characters, without dots, blanks and quotes
 * @param codecs    `count` records, best first; the first LIBVOICE_ENDPOINT_CODECS travel
 * @param endpoint  out: its number, by which signals name it and events report it; -1 with a sentence
 * @param is_new    out: it was not registered before this call; may be NULL
 * @return NULL; or a sentence: then neither an entry nor an object of it is left, and voice_plugin_init goes on with
 * the next one and answers 0 all the same
 */
static inline const char *voice_endpoint_register(int32_t type, const char *name, const voice_codec_t *codecs,
                                                  uint32_t count, int32_t *endpoint, int *is_new) {
    const void *list[LIBVOICE_ENDPOINT_CODECS + 1] = {NULL};
    const char *wrong = voice_endpoint_name_wrong(name);
    *endpoint = -1;
    if (is_new != NULL)
        *is_new = 0;
    if (wrong != NULL)
        return wrong;
    if (libvoice_get_endpoint_index_by_name(name) != -1) {
        *endpoint = libvoice_get_endpoint_by_name(name);
        return NULL;
    }
    if (libvoice_get_kex_peer_handler() == NULL)
        return "there is no connection to the application: register endpoints from voice_plugin_init";
    voice_endpoint_unpublish(name); /* the library forgets its table with the application, not the objects */
    for (uint32_t i = 0; i < count && i < LIBVOICE_ENDPOINT_CODECS; i++)
        list[i] = &codecs[i];
    int32_t number = -1;
    if (libvoice_register_endpoint(type, name, NULL, list, &number) != LIBVOICE_OK || number < 0) {
        /* A rejection arrives as a number below 0, which the library counts as success. */
        libvoice_endpoint_t *entry = libvoice_get_endpoint_entry_by_name(name);
        if (entry != NULL)
            libvoice_delete_endpoint_entry(entry);
        voice_endpoint_unpublish(name);
        return "the application does not take the endpoint, or is gone";
    }
    *endpoint = number;
    if (is_new != NULL)
        *is_new = 1;
    return NULL;
}

/**
 * Takes leave of the application: sends "deregister_plugin" without waiting. Its answer is voice_plugin_exit with
 * LIBVOICE_EXIT_DEREGISTERED; there stop the loop. Do not wait for it longer than a second.
 * @return no: there is nothing to take leave of, stop the loop at once: no application, or no "init" from it, and then
 * another plugin may be known under the name, whose lines would go. (A plugin that was not started by this header is
 * not held back: it looks itself whether "init" came.)
 */
static inline int voice_plugin_leave(void) {
    peer_t *application = libvoice_get_kex_peer_handler();
    if (application == NULL || (voice_plugin_own_init != NULL && !voice_plugin_is_initialised()))
        return 0;
    request_t *request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "deregister_plugin",
                                                        LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    variant_t name;
    variant_initialize(&name, VARIANT_TEXT);
    variant_setChar(&name, libvoice_get_pluginname());
    const int sent = request_addParameter(request, "plugin_name", &name) &&
                     kex_sendRequest(libvoice_get_kex_handler(), application, request);
    variant_cleanup(&name);
    request_destroy(request); /* without a handler it leaves as a one-way call */
    return sent;
}

#endif
