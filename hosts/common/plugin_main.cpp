// SPDX-License-Identifier: MIT
// The life of a plugin process.
#include "plugin_main.h"

#include "console.h"
#include "host.h"
#include "kex_host.h"
#include "line_plugin.h"
#include "plugin.h"
#include "plugin_commands.h"
#include "plugin_options.h"
#include "voice_start.h"

#include <stdio.h>

namespace {

const plugin_program_t *plugin;
plugin_options options;
int lines_added;

constexpr uint32_t kLook = 1000;     // ms between two looks
constexpr uint32_t kLooksToWait = 2; // until what is missing is said

#define NO_APPLICATION                                                                                   \
    "no application at %s: start voice_application there, or say where it is by --socket PATH (else by " \
    "ZIL_VOIP_IPC_SOCKET_URI)"

int32_t (*init)(const char *country); // the plugin's own callback
bool is_leaving;
bool was_connected;    // ever
bool looked_connected; // at the last look
uint32_t looks;        // since that changed
kex_timer_t *look_timer;
kex_timer_t *input_timer;
int exit_status;

// A process runs one plugin; a test runs several, one after the other.
void state_reset() {
    lines_added = 0;
    is_leaving = was_connected = looked_connected = false;
    looks = 0;
    look_timer = input_timer = nullptr;
    exit_status = 0;
}

int32_t init_came(const char *country) {
    if (!is_leaving)
        return init(country);
    plugin_leave();
    return 0;
}

// The library waits for "init", or for an application, as long as it takes, and without a word on standard output.
void look(kex_timer_t *timer) {
    if (voice_plugin_is_initialised())
        return;
    const bool connected = plugin_is_connected();
    looks = connected == looked_connected ? looks + 1 : 1;
    looked_connected = connected;
    was_connected = was_connected || connected;
    if (looks == kLooksToWait && connected)
        say("no \"init\" came from the application: is another plugin named %s running? --name NAME gives this one a "
            "name of "
            "its own",
            options.name);
    if (looks == kLooksToWait && !was_connected)
        say(NO_APPLICATION, libvoice_get_ipc_socket_uri());
    kex_timer_start(timer, kLook);
}

void look_begin() {
    looks = 0;
    if (look_timer == nullptr)
        look_timer = kex_timer_create();
    kex_timer_setHandler(look_timer, look);
    kex_timer_start(look_timer, kLook);
}

// A young connection may be registered, with "init" on its way: that is waited for, as long as host_run() lets us.
void leave() {
    is_leaving = true;
    if (voice_plugin_is_initialised() || !plugin_is_connected() || looks >= kLooksToWait)
        plugin_leave();
}

void plugin_start(kex_t *bus) {
    libvoice_callbacks_t callbacks = plugin->callbacks != nullptr ? plugin->callbacks() : line_plugin_callbacks();
    init = callbacks.voice_plugin_init;
    callbacks.voice_plugin_init = init_came;
    libvoice_set_ep_suffix(options.stem);
    const char *wrong = plugin->dsp != nullptr ? voice_dsp_plugin_start(bus, options.name, &callbacks, plugin->dsp)
                                               : voice_plugin_start(bus, options.name, &callbacks);
    if (wrong != nullptr)
        host_fail("%s: %s", options.name, wrong);
}

void leave_without_input(kex_timer_t *) {
    if (!was_connected && !plugin_is_connected()) {
        fprintf(stderr, "error: " NO_APPLICATION "\n", libvoice_get_ipc_socket_uri());
        exit_status = kExitFailure;
    }
    host_terminate();
}

// The input may end before the first attempt to connect, which has the first turn of all timers.
void input_ended() {
    input_timer = kex_timer_create();
    kex_timer_setHandler(input_timer, leave_without_input);
    kex_timer_start(input_timer, 0);
}

void application_lost(kex_t *, peer_t *, void *) {
    was_connected = true;
    look_begin();
    if (plugin->lost != nullptr)
        plugin->lost();
    else
        line_plugin_application_lost();
    if (is_leaving)
        host_stop();
}

} // namespace

const char *plugin_name() {
    return options.name;
}

line_t *plugin_add_line(const line_driver_t *driver, void *userdata, int32_t type, const char *codecs) {
    char endpoint[64];
    plugin_endpoint_name(&options, ++lines_added, endpoint, sizeof endpoint);
    line_t *line = line_add(driver, userdata, type, endpoint, codecs);
    if (line == nullptr)
        host_fail("line %s with the codecs %s cannot be added", endpoint, codecs);
    return line;
}

int plugin_main(const plugin_program_t *program, int count, char **words) {
    state_reset();
    plugin = program;
    options = plugin_options_read(program, count, words);
    plugin_commands_begin(program, &options);
    kex_t *bus = host_start(program->program);
    program->begin(options.lines);
    plugin_start(bus);
    kex_onPeerClosed(bus, application_lost, nullptr);
    kex_onCall(bus, line_plugin_call_begins, nullptr);
    kex_onFailed(bus, line_plugin_call_failed, nullptr);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, plugin_command_run, input_ended))
        return kExitFailure;
    look_begin();

    int result = host_run(leave);
    line_plugin_close_media();
    if (!console_stop())
        exit_status = kExitFailure;
    if (plugin->end != nullptr)
        plugin->end();
    line_plugin_end();
    kex_timer_destroy(look_timer);
    kex_timer_destroy(input_timer);
    host_end();
    return result != 0 ? result : exit_status;
}
