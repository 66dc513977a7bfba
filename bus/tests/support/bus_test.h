// SPDX-License-Identifier: MIT
// Fixtures with buses in one process: a listening one and connected ones, driven by hand, on a private socket.
#ifndef BUS_TESTS_BUS_TEST_H
#define BUS_TESTS_BUS_TEST_H

#include "kex_host.h"
#include "scratch.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace support {

// Takes turns on the buses until `done` holds. Sleeps in poll(2) on their descriptors; false after 20 s.
bool turn_until(const std::vector<kex_t *> &buses, const std::function<bool()> &done);
// Turns as long as any of them has something to do right now.
void turn_until_idle(const std::vector<kex_t *> &buses);

// Standard error of this process, collected while the object lives.
class CapturedTrace {
public:
    CapturedTrace();
    ~CapturedTrace();
    std::string text() const;

private:
    int saved_;
    int file_;
};

// While it lives, the process may have so many descriptors.
class TableSize {
public:
    explicit TableSize(rlim_t size);
    ~TableSize();
    TableSize(const TableSize &) = delete;
    TableSize &operator=(const TableSize &) = delete;
    bool made() const { return made_; } // else it may never have so many

private:
    rlimit before_;
    bool made_;
};
constexpr rlim_t kRoomForEightPackets = 2400; // whatever they bring
// While it lives, that is so, and of them so many are left.
class FullTable {
public:
    explicit FullTable(rlim_t size, size_t left = 0);
    ~FullTable();
    FullTable(const FullTable &) = delete;
    FullTable &operator=(const FullTable &) = delete;

private:
    TableSize size_;
    std::vector<int> fillers_;
};

// Every test gives back all descriptors it opened.
class DescriptorTest : public testing::Test {
protected:
    DescriptorTest() : descriptors_before_(open_descriptors()) {}
    ~DescriptorTest() override {
        // What came from a peer may be closed beside the loop.
        for (int i = 0; i < 2000 && open_descriptors() != descriptors_before_; i++)
            usleep(1000);
        EXPECT_EQ(open_descriptors(), descriptors_before_) << "descriptors opened by the test are still open";
    }

private:
    size_t descriptors_before_;
};

// A server bus that listens and a client bus that is connected to it.
class TwoBuses : public DescriptorTest {
protected:
    TwoBuses();
    ~TwoBuses() override;

    // Connects one more bus of its own.
    peer_t *connect(kex_t *bus) { return kex_client_connect(bus, uri_of(socket).c_str()); }
    bool turn_until(const std::function<bool()> &done) { return support::turn_until({server, client}, done); }
    void turn_until_idle() { support::turn_until_idle({server, client}); }
    // Sends, takes turns until the reply is complete, and hands back the request for the caller to destroy.
    request_t *call(const char *path, const char *function,
                    const std::vector<std::pair<std::string, variant_t>> &args = {}, uint32_t flags = 0);

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *server = nullptr;
    kex_t *client = nullptr;
    peer_t *to_server = nullptr;
};

// Values, cleaned with the statement's temporaries by whoever sends them: call() does.
variant_t text(const char *value);
variant_t u32(uint32_t value);
variant_t i32(int32_t value);
variant_t u16(uint16_t value);
variant_t i16(int16_t value);
variant_t boolean(bool value);
variant_t bytes(const std::string &value);
variant_t none();
variant_t descriptor(int fd);
variant_t list(const std::vector<variant_t> &items); // cleans the items

// The reply of a request as lines, "error 65537 No such object: x" or "value u32 7".
std::vector<std::string> lines_of(request_t *r);
// One value as text: `u32 7`, `text "a"`, `list [u32 1, none]`.
std::string show(const variant_t *value);

} // namespace support

#endif
