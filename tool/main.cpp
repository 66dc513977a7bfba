// SPDX-License-Identifier: MIT
// voicectl: looks at a running voice system from outside. One file per subcommand.
//
//   voicectl watch          a live ladder of signals, events and calls
//   voicectl watch --json   the same for programs
//
// Exit status: 0 done, 1 it did not happen (no voice application there, output closed), 2 wrong command line.
#include <exception>
#include <new>

#include "command_line.h"
#include "common.h"
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
    if (!voicectl::standard_streams_fill())
        return voicectl::kFailure; // nobody could be told
    try {
        const voicectl::Command command = voicectl::command_line_read({argv + 1, argv + argc});
        if (!command.problem.empty()) {
            voicectl::complain(command.problem);
            return voicectl::kUsage;
        }
        if (command.run)
            return command.run();
        return voicectl::output_write(command.text);
    } catch (const std::bad_alloc &) {
        voicectl::complain("no memory is left");
        return voicectl::kFailure;
    } catch (const std::exception &error) {
        voicectl::complain(error.what());
        return voicectl::kFailure;
    }
}
