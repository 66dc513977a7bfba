// SPDX-License-Identifier: MIT
// What /proc shows of a process.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <unistd.h>

#include "doctor_look.h"
#include "numbers.h"

namespace voicectl {

namespace {

// "123 (a name) T 1 ...": names may hold blanks and brackets.
char state_read(const std::string &text) {
    const size_t end = text.rfind(") ");
    return end != std::string::npos && end + 2 < text.size() ? text[end + 2] : '\0';
}

std::optional<uint64_t> descriptors_read(const std::string &limits) {
    std::istringstream lines(limits);
    for (std::string line; std::getline(lines, line);) {
        constexpr std::string_view kTitle = "Max open files";
        if (!line.starts_with(kTitle))
            continue;
        uint64_t count = 0;
        std::istringstream(line.substr(kTitle.size())) >> count;
        return count; // 0, of "unlimited", is no limit of a process that runs
    }
    return std::nullopt;
}

// "... /usr/lib/libkex.so.1.0.0 (deleted)", several times for each.
std::vector<LibraryFacts> libraries_read(const std::string &maps) {
    std::vector<LibraryFacts> found;
    std::istringstream lines(maps);
    for (std::string line; std::getline(lines, line);) {
        constexpr std::string_view kDeleted = " (deleted)";
        const bool replaced = line.ends_with(kDeleted);
        if (replaced)
            line.resize(line.size() - kDeleted.size());
        const std::string file = line.substr(line.rfind('/') + 1);
        for (const std::string_view name : {"libkex.so", "libvoice_plugin.so"})
            if (file.starts_with(fmt::format("{}.", name)) &&
                std::none_of(found.begin(), found.end(), [name](const LibraryFacts &one) { return one.name == name; }))
                found.push_back({std::string(name), file.substr(name.size() + 1), replaced});
    }
    return found;
}

std::vector<std::string> environment_read(const std::string &text) {
    std::vector<std::string> found;
    std::istringstream entries(text);
    for (std::string entry; std::getline(entries, entry, '\0');)
        found.push_back(entry);
    return found;
}

// The type of the socket behind an inode, by the table of local sockets; 0: it is none of them.
int socket_type(const std::string &table, const std::string &inode) {
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        std::string number, references, protocol, flags, type, state, found;
        if (columns >> number >> references >> protocol >> flags >> type >> state >> found && found == inode)
            return static_cast<int>(std::strtol(type.c_str(), nullptr, 16));
    }
    return 0;
}

std::vector<int> inherited_read(const std::string &folder, const std::vector<std::string> &environment) {
    constexpr int kFirst = 3, kMost = 64;
    const std::optional<std::string_view> count = entry_value(environment, "LISTEN_FDS=");
    std::vector<int> types;
    int sockets = 0;
    if (!count || !number_read(*count, sockets))
        return types;
    const std::string table = file_read(folder + "/net/unix");
    for (int i = kFirst; i < kFirst + std::min(sockets, kMost); i++) {
        char target[64] = "";
        const ssize_t size = readlink(fmt::format("{}/fd/{}", folder, i).c_str(), target, sizeof target - 1);
        const std::string text(target, size > 0 ? static_cast<size_t>(size) : 0);
        constexpr std::string_view kStem = "socket:[";
        types.push_back(text.starts_with(kStem)
                            ? socket_type(table, text.substr(kStem.size(), text.size() - kStem.size() - 1))
                            : 0);
    }
    return types;
}

} // namespace

std::string file_read(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::optional<std::string_view> entry_value(const std::vector<std::string> &environment, std::string_view name) {
    for (const std::string_view entry : environment)
        if (entry.starts_with(name))
            return entry.substr(name.size());
    return std::nullopt;
}

ProcessFacts process_look(int32_t id, const std::string &name, const std::string &proc) {
    ProcessFacts process{.id = id, .name = name};
    const std::string folder = fmt::format("{}/{}", proc, id);
    process.state = state_read(file_read(folder + "/stat"));
    process.descriptors = descriptors_read(file_read(folder + "/limits"));
    process.libraries = libraries_read(file_read(folder + "/maps"));
    if (std::ifstream(folder + "/environ").is_open()) {
        process.environment = environment_read(file_read(folder + "/environ"));
        process.inherited = inherited_read(folder, *process.environment);
    }
    return process;
}

} // namespace voicectl
