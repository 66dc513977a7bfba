// SPDX-License-Identifier: MIT
// Implements scratch.h.
#include "scratch.h"

#include <cstdlib>
#include <dirent.h>
#include <stdexcept>
#include <unistd.h>

namespace support {

ScratchDirectory::ScratchDirectory() {
    char name[] = "/tmp/kex_test_XXXXXX";
    if (mkdtemp(name) == nullptr)
        throw std::runtime_error("no scratch directory");
    directory_ = name;
}

ScratchDirectory::~ScratchDirectory() {
    if (DIR *directory = opendir(directory_.c_str())) {
        while (const dirent *entry = readdir(directory))
            unlink((directory_ + "/" + entry->d_name).c_str());
        closedir(directory);
    }
    rmdir(directory_.c_str());
}

size_t open_descriptors() {
    size_t count = 0;
    if (DIR *directory = opendir("/proc/self/fd")) {
        while (readdir(directory) != nullptr)
            count++;
        closedir(directory);
    }
    return count;
}

} // namespace support
