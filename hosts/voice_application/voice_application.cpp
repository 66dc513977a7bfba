// SPDX-License-Identifier: MIT
/*
 * voice_application: the call logic that voice plugins connect to.
 *
 *     voice_application --socket /tmp/voice.sock
 *     ready socket=/tmp/voice.sock country=DE
 *     plugin fxs1 registered                    (when a plugin comes)
 *     endpoint 0 fxs1.FXS1 number=101 codecs=PCMA,PCMU
 *     line 101 dial-tone                        (when somebody lifts the receiver)
 *     call 1 101->102 ringing
 *     call 1 101->102 answered codec=PCMA
 *     call 1 101->102 ended: 101 hung up
 *
 * Commands come from standard input or a socket: "status", "calls", "help". What the library calls is in
 * callbacks.cpp; what a line's user does in line_events.cpp, from where dialling.cpp, ringing.cpp, calls.cpp, hold.cpp,
 * exchange.cpp and media.cpp follow; the numbering plan is in plan.cpp.
 */
#include "callbacks.h"
#include "commands.h"
#include "console.h"
#include "host.h"
#include "options.h"
#include "plan.h"

int main(int count, char **words) {
    const char *settings = application_options_read(count, words);
    const char *wrong = settings == nullptr ? nullptr : plan_load(&the_plan, settings);
    if (wrong != nullptr)
        host_fail("%s", wrong);
    kex_t *bus = host_start("voice_application");
    const char *socket = libvoice_get_ipc_socket();
    wrong = application_start(bus);
    if (wrong != nullptr)
        host_fail("%s: %s", socket, wrong);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, command_run, host_terminate))
        return kExitFailure;
    say("ready socket=%s country=%s", socket, the_plan.country);

    int result = host_run(host_stop);
    if (!console_stop())
        result = kExitFailure;
    application_end();
    host_end();
    return result;
}
