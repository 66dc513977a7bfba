// SPDX-License-Identifier: MIT
// The command line of the voice application.
#include "options.h"

#include "host.h"

namespace {

constexpr char kHelp[] =
    "usage: voice_application [options]\n"
    "The call logic that voice plugins connect to.\n"
    "\n"
    "  --config FILE      country, numbers, codecs, ports (see voice_application.conf)\n" HOST_OPTIONS_HELP "\n"
    "Commands, one per line: see \"help\".\n";

} // namespace

const char *application_options_read(int count, char **words) {
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
    return config;
}
