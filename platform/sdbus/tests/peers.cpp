// SPDX-License-Identifier: MIT
// Implements peers.h.
#include "peers.h"
#include "served_functions.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace peers {

namespace {

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof address.sun_path);
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

std::string read_bytes(sd_bus_message *message) {
    const void *data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(message, 'y', &data, &size);
    return std::string(static_cast<const char *>(data), size);
}

std::string read_reply(sd_bus_message *reply) {
    std::string errors;
    sd_bus_message_enter_container(reply, 'a', "(uayay)");
    while (sd_bus_message_enter_container(reply, 'r', "uayay") > 0) {
        uint32_t code = 0;
        sd_bus_message_read_basic(reply, 'u', &code);
        errors += std::to_string(code) + " " + read_bytes(reply);
        errors += ": " + read_bytes(reply) + "\n";
        sd_bus_message_exit_container(reply);
    }
    sd_bus_message_exit_container(reply);
    if (!errors.empty())
        return errors;
    uint8_t code = 0;
    const char *type = nullptr;
    sd_bus_message_enter_container(reply, 'r', "yv");
    sd_bus_message_read_basic(reply, 'y', &code);
    sd_bus_message_peek_type(reply, nullptr, &type);
    const std::string contents = type != nullptr ? type : "";
    sd_bus_message_enter_container(reply, 'v', contents.c_str());
    if (contents == "ay")
        return read_bytes(reply);
    int64_t number = 0;
    sd_bus_message_read_basic(reply, 'x', &number);
    return code == VARIANT_NONE ? "none" : std::to_string(number);
}

} // namespace

uid_t own_user() {
    return geteuid();
}

bool until(const std::function<bool()> &holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        poll(nullptr, 0, 2);
    }
    return true;
}

// -------------------------------------------------------------------------------------------------------- Processes

Child::Child(uid_t user, const std::function<void(int)> &run) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
        close(ends[0]);
        if (user == own_user() || (setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0)) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // which another user does not keep
            run(ends[1]);
        }
        _exit(0);
    }
    close(ends[1]);
    words_ = ends[0];
}

Child::~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(words_);
}

int Child::hear() const {
    pollfd ready = {words_, POLLIN, 0};
    unsigned char word = 0;
    return poll(&ready, 1, kPatience) > 0 && read(words_, &word, 1) == 1 ? word : -1;
}

size_t Child::resident() const {
    size_t all = 0, resident = 0;
    std::ifstream("/proc/" + std::to_string(pid_) + "/statm") >> all >> resident;
    return resident * static_cast<size_t>(getpagesize());
}

size_t Child::descriptors() const {
    size_t count = 0;
    if (DIR *folder = opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str())) {
        while (readdir(folder) != nullptr)
            count++;
        closedir(folder);
    }
    return count;
}

Server::Server(const std::string &its_path, uid_t user) : path(its_path), trace_(memfd_create("trace", MFD_CLOEXEC)) {
    child_ = std::make_unique<Child>(user, [this](int word) {
        dup2(trace_, STDERR_FILENO);
        setenv("ZIL_TRACE_LEVEL", "300", 1); // however much a process causes is traced then
        kex_t *bus = kex_create("server");
        served::declare(bus);
        if (connection_listenOnIPC(kex_connection(bus), path.c_str()) == nullptr || write(word, "l", 1) != 1)
            return;
        kex_run(bus);
    });
    listens = child_->hear() == 'l';
}

Server::~Server() {
    child_.reset();
    close(trace_);
}

std::string Server::trace() const {
    std::string all(static_cast<size_t>(lseek(trace_, 0, SEEK_END)), '\0');
    const ssize_t length = pread(trace_, all.data(), all.size(), 0);
    all.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return all;
}

bool Server::says(const std::string &text) const {
    return until([&] { return trace().find(text) != std::string::npos; });
}

bool Server::answers() const {
    return RawPeer(path).echo("well") == "well";
}

bool Server::serves() const {
    return until([this] { return answers(); });
}

// ------------------------------------------------------------------------------------------------------------ Peers

int connect_to(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

int listen_at(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd, 4), 0);
    return fd;
}

RawPeer::RawPeer(const std::string &path, bool says_hello) {
    begin(connect_to(path), Role::client);
    if (says_hello)
        send(hello("raw"));
}

RawPeer::RawPeer(int socket, Role role) {
    begin(socket, role);
    send(hello("raw"));
}

void RawPeer::begin(int socket, Role role) {
    sd_id128_t id = {};
    id.bytes[0] = 1;
    sd_bus_new(&bus_);
    sd_bus_set_fd(bus_, socket, socket);
    sd_bus_negotiate_fds(bus_, 1);
    if (role == Role::server)
        sd_bus_set_server(bus_, 1, id);
    sd_bus_start(bus_); // of a socket that is closed again at once it fails; what follows does too
}

RawPeer::~RawPeer() {
    sd_bus_close_unref(bus_);
}

int RawPeer::fd() const {
    return sd_bus_get_fd(bus_);
}

Message RawPeer::call(const char *object, const char *function,
                      const std::function<void(sd_bus_message *)> &arguments) const {
    sd_bus_message *message = nullptr;
    const uint32_t flags = 1;
    sd_bus_message_new_method_call(bus_, &message, nullptr, "/kex", "kex.Bus", "Call");
    append_bytes(message, object);
    append_bytes(message, function);
    sd_bus_message_append_basic(message, 'u', &flags);
    sd_bus_message_open_container(message, 'a', "(ay(yv))");
    if (arguments)
        arguments(message);
    sd_bus_message_close_container(message);
    return Message(message);
}

Message RawPeer::hello(const std::string &name) const {
    sd_bus_message *message = nullptr;
    sd_bus_message_new_signal(bus_, &message, "/kex", "kex.Bus", "Hello");
    append_bytes(message, name);
    return Message(message);
}

bool RawPeer::send(const Message &message, bool wants_reply) const {
    uint64_t cookie = 0;
    return sd_bus_send(bus_, message.get(), wants_reply ? &cookie : nullptr) >= 0 && sd_bus_flush(bus_) >= 0;
}

// Behind all that sd-bus has sent; what the peer does not take any more is no matter.
void RawPeer::send_bytes(const std::string &bytes) const {
    sd_bus_flush(bus_);
    const int flags = fcntl(fd(), F_GETFL);
    fcntl(fd(), F_SETFL, flags & ~O_NONBLOCK);
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t size = ::send(fd(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (size <= 0)
            break;
        sent += static_cast<size_t>(size);
    }
    fcntl(fd(), F_SETFL, flags);
}

std::optional<std::string> RawPeer::ask(const Message &message) const {
    sd_bus_message *reply = nullptr;
    if (sd_bus_call(bus_, message.get(), uint64_t{kPatience} * 1000, nullptr, &reply) < 0)
        return std::nullopt;
    const Message taken(reply);
    return read_reply(reply);
}

std::optional<std::string> RawPeer::echo(const std::string &text) const {
    return ask(call("Probe", "echo", [&](sd_bus_message *m) { append_text(m, "text", text); }));
}

bool RawPeer::reads(const std::function<bool()> &done) const {
    return until([&] {
        sd_bus_message *message = nullptr;
        while (sd_bus_process(bus_, &message) > 0)
            sd_bus_message_unref(message);
        return done();
    });
}

bool RawPeer::is_closed() const {
    return reads([this] { return sd_bus_is_open(bus_) <= 0; });
}

// -------------------------------------------------------------------------------------------------------- Arguments

void append_bytes(sd_bus_message *message, const std::string &text) {
    sd_bus_message_append_array(message, 'y', text.data(), text.size());
}

void append_value(sd_bus_message *message, uint8_t code, const char *type, const void *value) {
    sd_bus_message_open_container(message, 'r', "yv");
    sd_bus_message_append_basic(message, 'y', &code);
    sd_bus_message_open_container(message, 'v', type);
    if (std::string(type) == "ay")
        append_bytes(message, *static_cast<const std::string *>(value));
    else
        sd_bus_message_append_basic(message, *type, value);
    sd_bus_message_close_container(message);
    sd_bus_message_close_container(message);
}

void append_text(sd_bus_message *message, const char *name, const std::string &text) {
    sd_bus_message_open_container(message, 'r', "ay(yv)");
    append_bytes(message, name);
    append_value(message, VARIANT_TEXT, "ay", &text);
    sd_bus_message_close_container(message);
}

void append_descriptor(sd_bus_message *message, const char *name, int fd) {
    sd_bus_message_open_container(message, 'r', "ay(yv)");
    append_bytes(message, name);
    append_value(message, VARIANT_FD, "h", &fd);
    sd_bus_message_close_container(message);
}

void append_list(sd_bus_message *message, const char *name, int depth) {
    const uint8_t code = VARIANT_LIST;
    const int64_t number = 7;
    sd_bus_message_open_container(message, 'r', "ay(yv)");
    append_bytes(message, name);
    for (int i = 0; i < depth; i++) {
        sd_bus_message_open_container(message, 'r', "yv");
        sd_bus_message_append_basic(message, 'y', &code);
        sd_bus_message_open_container(message, 'v', "a(yv)");
        sd_bus_message_open_container(message, 'a', "(yv)");
    }
    append_value(message, VARIANT_UINT32, "x", &number);
    for (int i = 0; i < depth * 3; i++)
        sd_bus_message_close_container(message);
    sd_bus_message_close_container(message);
}

} // namespace peers
