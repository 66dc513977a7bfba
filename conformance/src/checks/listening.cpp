// SPDX-License-Identifier: MIT
// What stands at a path already when somebody wants to listen there.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

peer_t *listen_at(const char *path) {
    return lib.connection_listenOnIPC(lib.kex_connection(bus), path);
}

ino_t inode_at(const char *path) {
    struct stat status = {};
    return lstat(path, &status) == 0 ? status.st_ino : 0;
}

bool is_socket(const char *path) {
    struct stat status = {};
    return lstat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

void expect_served(const char *path) {
    char uri[400];
    expect(is_socket(path), "there is a peer, and no socket");
    snprintf(uri, sizeof uri, "kex://ipc:[%s]", path);
    expect(lib.kex_client_connect(bus, uri) != nullptr, "nobody can connect to it");
    saw("taken over, and it can be connected to");
}

void new_path() {
    char path[300];
    host_begin();
    expect(listen_at(folder_path(path, "new")) != nullptr, "null for a path where nothing stands");
    expect_served(path);
    host_end();
}

// What a process leaves that was killed while it listened.
void stale_serve() {
    far_listen();
    line_hear('e');
    process_vanish();
}

void stale() {
    char path[300];
    host_begin();
    line_hear('!');
    line_say('e');
    line_hear('\0');
    expect(inode_at(folder_path(path, "bus")) != 0, "a killed process leaves no socket: nothing is proved");
    expect(listen_at(path) != nullptr, "null for the socket of a process that was killed");
    expect_served(path);
    host_end();
}

// One that knows nothing of this bus's ways: a socket that is bound, and nobody has it any more.
void stale_foreign() {
    char path[300];
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", folder_path(path, "old"));
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    expect(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "no socket can be bound");
    close(fd);
    host_begin();
    expect(listen_at(path) != nullptr, "null for the socket of a process that is gone");
    expect_served(path);
    host_end();
}

void file() {
    char path[300];
    char text[16] = "";
    const int fd = open(folder_path(path, "file"), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    expect(write(fd, "precious", 8) == 8, "no file can be written");
    close(fd);
    const ino_t before = inode_at(path);
    host_begin();
    expect(listen_at(path) == nullptr, "a peer where a file stands");
    expect(inode_at(path) == before, "the file is gone");
    const int again = open(path, O_RDONLY | O_CLOEXEC);
    expect(read(again, text, sizeof text - 1) == 8 && strcmp(text, "precious") == 0, "the file has changed");
    close(again);
    saw("null, and the file as it was");
    host_end();
}

void directory() {
    char path[300];
    expect(mkdir(folder_path(path, "directory"), 0700) == 0, "no directory can be made");
    const ino_t before = inode_at(path);
    host_begin();
    expect(listen_at(path) == nullptr, "a peer where a directory stands");
    expect(inode_at(path) == before, "the directory is gone");
    saw("null, and the directory as it was");
    host_end();
}

void missing_folder() {
    char path[300];
    host_begin();
    expect(listen_at(folder_path(path, "missing/bus")) == nullptr, "a peer in a folder that is not there");
    saw("null");
    host_end();
}

void long_path() {
    static char path[5000];
    host_begin();
    memset(path, 'x', sizeof path - 1);
    memcpy(path, "/tmp/", 5);
    expect(listen_at(path) == nullptr, "a peer for a path of 4,999 bytes");
    expect(listen_at("") == nullptr, "a peer for an empty path");
    saw("null twice");
    host_end();
}

// The second process listens; this one wants to, too.
void live() {
    char path[300];
    host_begin();
    line_hear('!');
    const ino_t before = inode_at(folder_path(path, "bus"));
    expect(listen_at(path) == nullptr, "a peer where another process listens");
    expect(inode_at(path) == before, "its socket is gone");
    call_and_wait(far_connect_again(), "run", 1);
    saw("null, and the other process still serves");
    host_end();
}

void live_in_one_process() {
    char path[300];
    host_begin();
    expect(listen_at(folder_path(path, "one")) != nullptr, "null for a new path");
    expect(listen_at(path) == nullptr, "this process listens there twice");
    expect_served(path);
    host_end();
}

void after_the_end() {
    char path[300];
    for (unsigned i = 0; i < 3; i++) {
        host_begin();
        expect(listen_at(folder_path(path, "again")) != nullptr, "null at start %u", i + 1);
        expect(is_socket(path), "there is a peer, and no socket");
        host_end();
    }
    saw("one process after the other");
}

mode_t mode_of_new_socket(const char *name) {
    char path[300];
    struct stat status = {};
    expect(listen_at(folder_path(path, name)) != nullptr, "null for a new path");
    expect(lstat(path, &status) == 0 && S_ISSOCK(status.st_mode), "no socket stands there");
    return status.st_mode & 0777;
}

void mode() {
    host_begin();
    umask(0);
    const mode_t open_mask = mode_of_new_socket("open");
    umask(077);
    const mode_t closed_mask = mode_of_new_socket("closed");
    expect(open_mask == 0660 && closed_mask == 0660, "mode 0%o, 0%o with a umask of 077", open_mask, closed_mask);
    saw("0660 with any umask");
    host_end();
}

constexpr char kStale[] = "A socket that nobody listens at any more is taken over.";
constexpr char kUntouched[] =
    "Whatever else stands there stays untouched, and the answer is NULL: a file, a directory, "
    "a socket at which somebody listens.";

constexpr Check kChecks[] = {
    {"listening.new_path", kMust, "Listens on a local socket at a file-system path.", new_path, nullptr, 0, false,
     true},
    {"listening.stale", kMust, kStale, stale, stale_serve, 0, false},
    {"listening.stale_foreign", kMust, kStale, stale_foreign, nullptr, 0, false, true},
    {"listening.file", kMust, kUntouched, file, nullptr, 0, false, true},
    {"listening.directory", kMust, kUntouched, directory, nullptr, 0, false, true},
    {"listening.live", kMust, kUntouched, live, far_plain, 0, false},
    {"listening.live_in_one_process", Level::should, kUntouched, live_in_one_process, nullptr, 0, false, true},
    {"listening.missing_folder", kMust, "@return a peer that stands for the listener, or NULL.", missing_folder,
     nullptr, 0, false, true},
    {"listening.long_path", kMust, "@return a peer that stands for the listener, or NULL.", long_path, nullptr, 0,
     false, true},
    {"listening.after_the_end", kMust, kStale, after_the_end, nullptr, 0, false, true},
    {"listening.mode", Level::should, "The socket has mode 0660 whatever the umask is", mode, nullptr, 0, false, true},
};

} // namespace

const Group kListening = group_of(kChecks);

} // namespace conformance
