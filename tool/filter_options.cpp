// SPDX-License-Identifier: MIT
#include "filter_options.h"

#include "options.h"

namespace voicectl {

void filter_options_add(CLI::App &command, Filter &filter, const std::string &function) {
    names_option_add(command, "-e,--endpoint", filter.endpoints, "Only this endpoint: FXS1, or fxs_a.FXS1");
    names_option_add(command, "-p,--plugin", filter.plugins, "Only this plugin");
    names_option_add(command, function, filter.functions, "Only calls of this function, and their replies");
    names_option_add(command, "-k,--package", filter.packages, "Only messages of this package: al, cg, zil ...",
                     package_problem);
    choice_option_add<Filter::Direction>(
        command, "-d,--direction", filter.direction,
        {{"in", Filter::Direction::in}, {"out", Filter::Direction::out}, {"both", Filter::Direction::both}},
        "in: what plugins ask; out: what the application asks");
}

} // namespace voicectl
