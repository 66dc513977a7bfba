// SPDX-License-Identifier: MIT
// The options that choose messages.
#ifndef VOICECTL_FILTER_OPTIONS_H
#define VOICECTL_FILTER_OPTIONS_H

#include <string>

#include <CLI/CLI.hpp>

#include "filter.h"

namespace voicectl {

// `function` is the name of the option for functions, as "-f,--function".
void filter_options_add(CLI::App &command, Filter &filter, const std::string &function);

} // namespace voicectl

#endif
