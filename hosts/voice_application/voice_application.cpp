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
#include "plan.h"

namespace {

constexpr char kHelp[] =
    "usage: voice_application [options]\n"
    "The call logic that voice plugins connect to.\n"
    "\n"
    "  --config FILE      country, numbers, codecs, ports (see voice_application.conf)\n" HOST_OPTIONS_HELP "\n"
    "Commands, one per line: see \"help\".\n";

void options_read(int count, char **words) {
    enum { CONFIG = 1 };
    static const option options[] = {{"config", required_argument, nullptr, CONFIG}, HOST_OPTIONS};
    const char *config = nullptr;
    for (int code, row = 0; (code = getopt_long(count, words, "", options, &row)) != -1;) {
        host_validate_option(code, options[row].name, optarg);
        if (code == CONFIG)
            config = optarg;
        else
            host_option(code, optarg, kHelp);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    const char *wrong = config == nullptr ? nullptr : plan_load(&the_plan, config);
    if (wrong != nullptr)
        host_fail("%s", wrong);
}

} // namespace

int main(int count, char **words) {
    options_read(count, words);
    kex_t *bus = host_start("voice_application");
    const char *socket = libvoice_get_ipc_socket();
    const char *wrong = application_start(bus);
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
