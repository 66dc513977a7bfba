// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <sstream>

#include <CLI/CLI.hpp>

#include "block.h"
#include "capture.h"
#include "doctor.h"
#include "ids.h"
#include "ladder.h"
#include "libvoice_plugin.h"
#include "options.h"
#include "params.h"
#include "stats.h"
#include "top.h"
#include "tree.h"
#include "watch.h"

namespace voicectl {

Command command_line_read(const std::vector<std::string> &words) {
    Command command;
    CLI::App app("Looks at a running voice system from outside.", "voicectl");
    app.set_version_flag("--version", std::string("voicectl ") + libvoice_version());
    app.require_subcommand(1);
    watch_add(app, command.run);
    capture_add(app, command.run);
    ladder_add(app, command.run);
    doctor_add(app, command.run);
    tree_add(app, command.run);
    top_add(app, command.run);
    stats_add(app, command.run);
    ids_add(app, command.run);
    params_add(app, command.run);
    block_add(app, command.run);
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend())); // CLI11 takes them from the end
    } catch (const CLI::Success &asked) {
        std::ostringstream text;
        app.exit(asked, text, text);
        command.text = text.str();
    } catch (const CLI::ParseError &error) {
        command.problem = usage_sentence(app, error);
    }
    return command;
}

} // namespace voicectl
