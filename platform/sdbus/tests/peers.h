// SPDX-License-Identifier: MIT
// Processes around the binding: one that serves, and peers that speak plain sd-bus and say what no host would.
#ifndef SDBUS_TESTS_PEERS_H
#define SDBUS_TESTS_PEERS_H

#include "kex_host.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <systemd/sd-bus.h>

namespace peers {

constexpr int kPatience = 20000; // milliseconds that anything may take

// A process of its own until it is ended.
class Child {
public:
    // It says how far it is through `word`, a pipe's end.
    Child(uid_t user, const std::function<void(int word)> &run);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // The next byte that it says; -1: none, it ended.
    int hear() const;
    pid_t pid() const { return pid_; }
    size_t resident() const; // bytes
    size_t descriptors() const;

private:
    pid_t pid_;
    int words_;
};

uid_t own_user();

// A process with a bus that listens at a path and serves class Probe.
class Server {
public:
    explicit Server(const std::string &path, uid_t user = own_user());
    ~Server();

    std::string path;
    bool listens; // else it has ended
    const Child &process() const { return *child_; }
    std::string trace() const;
    bool says(const std::string &text) const; // waits for it in the trace
    bool answers() const;                     // a new peer
    bool serves() const;                      // the same, once those that have left are closed

private:
    int trace_;
    std::unique_ptr<Child> child_;
};

struct MessageEnd {
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageEnd>;

enum class Role { client, server };

// A peer on plain sd-bus.
class RawPeer {
public:
    explicit RawPeer(const std::string &path, bool says_hello = true);
    RawPeer(int socket, Role role); // of a socket that it takes
    ~RawPeer();
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    // A call up to its arguments, which `arguments` appends as D-Bus has them: (ay(yv)) each.
    Message call(const char *object, const char *function,
                 const std::function<void(sd_bus_message *)> &arguments = {}) const;
    Message hello(const std::string &name) const;
    bool send(const Message &message, bool wants_reply = false) const; // once the peer's socket has room
    void send_bytes(const std::string &bytes) const;
    // The reply's error items as text, or its value: "u32 7", "none", a text. None: the peer has closed.
    std::optional<std::string> ask(const Message &message) const;
    std::optional<std::string> echo(const std::string &text) const;
    bool is_closed() const;                               // by the peer; waits for it
    bool reads(const std::function<bool()> &until) const; // what comes, until then; false: it takes too long
    sd_bus *bus() const { return bus_; }
    int fd() const;

private:
    void begin(int socket, Role role);

    sd_bus *bus_ = nullptr;
};

// Arguments of a call.
void append_bytes(sd_bus_message *message, const std::string &text);
// A value of any type code and D-Bus type, fitting or not: ay, x.
void append_value(sd_bus_message *message, uint8_t code, const char *type, const void *value);
void append_text(sd_bus_message *message, const char *name, const std::string &text);
void append_descriptor(sd_bus_message *message, const char *name, int fd);
void append_list(sd_bus_message *message, const char *name, int depth); // lists in lists, around a number

int connect_to(const std::string &path);        // a socket
int listen_at(const std::string &path);         // likewise
bool until(const std::function<bool()> &holds); // looks again and again; false: it takes too long

} // namespace peers

#endif
