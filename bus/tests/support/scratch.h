// SPDX-License-Identifier: MIT
// A private directory for a test's sockets, and the count of open descriptors that every test has to keep.
#ifndef BUS_TESTS_SCRATCH_H
#define BUS_TESTS_SCRATCH_H

#include <cstddef>
#include <string>

namespace support {

// Made under /tmp, so that socket addresses stay short; removed with what is in it.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory &) = delete;
    ScratchDirectory &operator=(const ScratchDirectory &) = delete;
    std::string path(const std::string &name) const { return directory_ + "/" + name; }

private:
    std::string directory_;
};

// Entries of /proc/self/fd.
size_t open_descriptors();

// What a socket address looks like to kex_client_connect().
inline std::string uri_of(const std::string &path) {
    return "kex://ipc:[" + path + "]";
}

} // namespace support

#endif
