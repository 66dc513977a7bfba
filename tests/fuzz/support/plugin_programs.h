// SPDX-License-Identifier: MIT
// The main() of each plugin, under a name of its own.
#ifndef FUZZ_PLUGIN_PROGRAMS_H
#define FUZZ_PLUGIN_PROGRAMS_H

#include <string>

int fxs_main(int count, char **words);
int dect_main(int count, char **words);
int fxo_main(int count, char **words);
int dsp_main(int count, char **words);

namespace fuzz {

// The program that an input names; that of telephones unless it is another one.
inline auto plugin_program(const std::string &name) {
    return name == "dect" ? dect_main : name == "fxo" ? fxo_main : name == "dsp" ? dsp_main : fxs_main;
}

} // namespace fuzz

#endif
