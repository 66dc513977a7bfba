// SPDX-License-Identifier: MIT
// voicectl: looks at a running voice system from outside. One file per subcommand.
//
//   voicectl watch          a live ladder of signals, events and calls
//   voicectl watch --json   the same for programs
//
// Exit status: 0 done, 1 it did not happen (no voice application there, output closed), 2 wrong command line.
#include <exception>
#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "common.h"
#include "libvoice_plugin.h"
#include "options.h"
#include "watch.h"
#include "ziltrace.h"

// The library traces through its host. The tool is none: what is broken in the traffic that it looks at is shown in its
// place.
extern "C" int zilTrace(int, const char *, ...) {
    return 0;
}
extern "C" int zilTraceZ(int, const char *, const char *, ...) {
    return 0;
}

int main(int argc, char **argv) {
    try {
        CLI::App app("Looks at a running voice system from outside.", "voicectl");
        app.set_version_flag("--version", std::string("voicectl ") + libvoice_version());
        app.require_subcommand(1);
        std::function<int()> run;
        voicectl::watch_add(app, run);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            if (dynamic_cast<const CLI::Success *>(&error) != nullptr) { // help, version
                app.exit(error);
                return voicectl::kSuccess;
            }
            voicectl::complain(voicectl::usage_sentence(app, error));
            return voicectl::kUsage;
        }
        return run();
    } catch (const std::exception &error) { // out of memory
        voicectl::complain(error.what());
        return voicectl::kFailure;
    }
}
