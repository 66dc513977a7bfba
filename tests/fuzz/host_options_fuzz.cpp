// SPDX-License-Identifier: MIT
// The command lines of the hosts: any words are taken and can be used, or end the process in order. The first line
// names the host, each other line is a word:
//
//     fxs
//     --lines
//     3
#include "host.h"
#include "options.h"
#include "plugin_options.h"

#include "plugin_programs.h"
#include "process_end.h"
#include "require.h"
#include "voice_start.h"

#include <sstream>
#include <vector>

using fuzz::require;

namespace {

// What the other parts of a host may rely on.
void taken_check() {
    for (const char *path : {host_control_path(), host_socket_path()})
        require(path == nullptr || (*path != '\0' && strlen(path) < 108), "a path fits into a socket's address");
}

} // namespace

// In place of plugin_main.cpp.
int plugin_main(const plugin_program_t *program, int count, char **words) {
    const plugin_options options = plugin_options_read(program, count, words);
    require(voice_plugin_name_wrong(options.name) == nullptr, "a plugin's name is one that the application takes");
    require(options.lines >= 0 && options.lines <= LIBVOICE_ENDPOINTS, "there are so many lines as there are numbers");
    for (int number = 1; number <= options.lines; ++number) {
        char name[64];
        plugin_endpoint_name(&options, number, name, sizeof name);
        require(voice_endpoint_name_wrong(name) == nullptr, "each endpoint's name is one that the application takes");
    }
    return 0;
}
const char *plugin_name() {
    return "";
}
line_t *plugin_add_line(const line_driver_t *, void *, int32_t, const char *) {
    return nullptr;
}
kex_t *host_bus() {
    return nullptr;
}
void host_stop() {}
void host_terminate() {}

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    std::istringstream text(std::string(reinterpret_cast<const char *>(bytes), size));
    std::string host;
    std::getline(text, host);
    // Options that were taken point into the words of their run: with these two, of this one.
    std::vector<std::string> words = {host + "_plugin", "--control=/control", "--socket=/socket"};
    std::vector<char *> pointers;
    for (std::string word; std::getline(text, word);)
        words.push_back(word.substr(0, word.find('\0')));
    for (std::string &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const int count = static_cast<int>(words.size());
    optind = 0; // begin anew
    opterr = 0;
    try {
        if (host == "application")
            application_options_read(count, pointers.data());
        else
            fuzz::plugin_program(host)(count, pointers.data());
        taken_check();
    } catch (const fuzz::ProcessEnd &end) {
        require(end.status == 0 || end.status == kExitUsage, "help and version end well, the rest is a wrong use");
    }
    return 0;
}
