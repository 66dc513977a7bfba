// SPDX-License-Identifier: MIT
// What "doctor" has found out about an installation, apart from what it makes of that.
#ifndef VOICECTL_DOCTOR_FACTS_H
#define VOICECTL_DOCTOR_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voicectl {

// The socket's address and what stands there.
struct PlaceFacts {
    std::string uri{};
    std::string path{};                         // empty: the address is none
    std::optional<std::string> uri_variable{};  // ZIL_VOIP_IPC_SOCKET_URI, for who connects; not when --socket is given
    std::optional<std::string> path_variable{}; // ZIL_VOIP_IPC_SOCKET, for who listens; likewise
    bool exists = false;
    bool is_socket = false;
    std::string rights{};        // "mode 0660, owner root, group voice"
    std::string folder_rights{}; // of the folder that it is in
    int error = 0;               // of connecting, an errno; 0: connected
};

// A library that a process has loaded.
struct LibraryFacts {
    std::string name{};    // "libkex.so"
    std::string version{}; // "1.0.0"
    bool replaced = false; // the file is another one by now, or gone
};

struct ProcessFacts {
    int32_t id = 0;
    std::string name{};
    char state = 0;                        // as /proc has it: 'T' is stopped; 0: not visible
    std::optional<uint64_t> descriptors{}; // that it may have open
    std::vector<LibraryFacts> libraries{};
    std::optional<std::vector<std::string>> environment{}; // it was started with, "NAME=value" each
    std::vector<int> inherited{};                          // types of the sockets that it got at its start
};

// What stands behind "NAME=" in an environment.
std::optional<std::string_view> entry_value(const std::vector<std::string> &environment, std::string_view name);

// A call that somebody waits for.
struct WaitFacts {
    std::string who{};
    std::string whom{};
    std::string function{}; // empty: it was called before the watching began
    uint32_t connection = 0;
    bool by_listener = false;
    bool blocked = false; // it says itself that it waits, and may do nothing else meanwhile
    double seconds = 0;   // at least
    int32_t whom_process = 0;
};

// What the bus says of itself.
struct BusFacts {
    bool answered = false;
    bool ended = false;    // the connection, while it was watched
    std::string refusal{}; // why the tap was not admitted
    ProcessFacts listener{};
    std::vector<ProcessFacts> peers{};
    std::vector<WaitFacts> waits{};
    double watched = 0; // seconds
};

struct PluginFacts {
    std::string name{};
    int32_t process = 0;
    bool running = true; // that process
};

// What the application says of its tables, by its control socket.
struct TableFacts {
    std::string problem{}; // why it says nothing
    std::vector<PluginFacts> plugins{};
    std::vector<std::string> endpoints{}; // "fxs1.FXS1"
};

// This machine, apart from any process.
struct MachineFacts {
    uint32_t send_buffer = 0; // bytes that a socket of the bus has room for
    bool has_wireshark = false;
    std::string dissector{};         // the first one that Wireshark finds; empty: none
    std::optional<uint32_t> stamp{}; // of its vocabulary
    std::string personal_folder{};   // where one of one's own belongs
};

struct Facts {
    PlaceFacts place{};
    BusFacts bus{};
    std::optional<TableFacts> tables{}; // no control socket was named
    MachineFacts machine{};
};

} // namespace voicectl

#endif
