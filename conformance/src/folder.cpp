// SPDX-License-Identifier: MIT
// Implements folder.h: whoever uses a folder holds a lock on it, which nobody keeps longer than it is there.
#include "folder.h"
#include "host.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr char kName[] = "kexcheck-XXXXXX";
constexpr size_t kNameGiven = sizeof "kexcheck-" - 1;
constexpr int kOld = 60; // seconds: a younger one may not be locked yet

// The checks' sockets have to fit into an address.
constexpr size_t kLongestName = sizeof "/missing/bus" - 1;
constexpr size_t kLongestFolder = sizeof sockaddr_un{}.sun_path - 1 - kLongestName;

int lock = -1;

const char *parent_of_folders() {
    const char *parent = getenv("TMPDIR");
    return parent != nullptr && *parent != '\0' ? parent : "/tmp";
}

int folder_open(int parent, const char *name) {
    return openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// What a check made there: files, sockets and empty folders.
void folder_empty(int place) {
    DIR *entries = fdopendir(dup(place));
    if (entries == nullptr)
        return;
    for (const dirent *entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        if (unlinkat(place, entry->d_name, 0) != 0)
            unlinkat(place, entry->d_name, AT_REMOVEDIR);
    }
    closedir(entries);
}

bool folder_is_left(int place) {
    struct stat status = {};
    return fstat(place, &status) == 0 && status.st_uid == geteuid() && time(nullptr) - status.st_mtime > kOld &&
           flock(place, LOCK_EX | LOCK_NB) == 0;
}

} // namespace

bool folder_make() {
    const int length = snprintf(folder, sizeof folder, "%s/%s", parent_of_folders(), kName);
    if (length > static_cast<int>(kLongestFolder)) {
        errno = ENAMETOOLONG;
        return false;
    }
    if (mkdtemp(folder) == nullptr)
        return false;
    lock = folder_open(AT_FDCWD, folder);
    if (lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0)
        return true;
    rmdir(folder);
    return false;
}

void folder_remove() {
    folder_empty(lock);
    rmdir(folder);
    close(lock);
}

void folders_sweep() {
    DIR *parent = opendir(parent_of_folders());
    if (parent == nullptr)
        return;
    for (const dirent *entry = readdir(parent); entry != nullptr; entry = readdir(parent)) {
        const bool is_one = strlen(entry->d_name) == sizeof kName - 1 && strncmp(entry->d_name, kName, kNameGiven) == 0;
        const int place = is_one ? folder_open(dirfd(parent), entry->d_name) : -1;
        if (place >= 0 && folder_is_left(place)) {
            folder_empty(place);
            unlinkat(dirfd(parent), entry->d_name, AT_REMOVEDIR);
        }
        if (place >= 0)
            close(place);
    }
    closedir(parent);
}

} // namespace conformance
