// SPDX-License-Identifier: MIT
// This machine: the room of sockets, and Wireshark.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <sys/socket.h>
#include <unistd.h>

#include "doctor_look.h"

namespace voicectl {

namespace {

namespace fs = std::filesystem;

constexpr const char *kDissector = "kexbus.lua";

// As much as the system gives to every socket: the bus asks for no more.
uint32_t send_buffer_look() {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    const int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    getsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &bytes, &size);
    if (descriptor >= 0)
        close(descriptor);
    return static_cast<uint32_t>(bytes);
}

// The personal folder of Lua plugins, then the system's, of any architecture: Wireshark looks into them in this order.
std::vector<fs::path> plugin_folders(const fs::path &personal) {
    std::vector<fs::path> folders = {personal};
    std::error_code error;
    for (const char *root : {"/usr/local/lib", "/usr/lib"}) {
        folders.emplace_back(fs::path(root) / "wireshark" / "plugins");
        for (const fs::directory_entry &entry : fs::directory_iterator(root, error))
            folders.push_back(entry.path() / "wireshark" / "plugins");
    }
    return folders;
}

bool on_the_path(const char *program) {
    const char *path = std::getenv("PATH");
    std::string rest = path == nullptr ? "/usr/bin" : path;
    for (size_t at = 0; at <= rest.size();) {
        const size_t end = std::min(rest.find(':', at), rest.size());
        if (access((fs::path(rest.substr(at, end - at)) / program).c_str(), X_OK) == 0)
            return true;
        at = end + 1;
    }
    return false;
}

} // namespace

std::optional<uint32_t> dissector_stamp(const std::string &text) {
    constexpr std::string_view kMark = "-- Vocabulary 0x";
    constexpr size_t kDigits = 8;
    const size_t at = text.find(kMark);
    if (at == std::string::npos)
        return std::nullopt;
    return static_cast<uint32_t>(std::strtoul(text.substr(at + kMark.size(), kDigits).c_str(), nullptr, 16));
}

MachineFacts machine_look() {
    MachineFacts machine;
    machine.send_buffer = send_buffer_look();
    machine.has_wireshark = on_the_path("tshark") || on_the_path("wireshark");
    const char *home = std::getenv("HOME");
    const fs::path personal = fs::path(home == nullptr ? "/" : home) / ".local/lib/wireshark/plugins";
    machine.personal_folder = personal.string();
    for (const fs::path &folder : plugin_folders(personal)) {
        const std::string file = (folder / kDissector).string();
        const std::string text = file_read(file);
        if (text.empty())
            continue;
        machine.dissector = file;
        machine.stamp = dissector_stamp(text);
        break;
    }
    return machine;
}

} // namespace voicectl
