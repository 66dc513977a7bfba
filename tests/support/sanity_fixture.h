// SPDX-License-Identifier: MIT
// The harness under test: it must notice leaks, misuse and wrong logs, and stay silent where nothing is wrong.
#ifndef SANITY_FIXTURE_H
#define SANITY_FIXTURE_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "kex_host.h"
#include "voice_fake/gtest.h"

namespace sanity {

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void drain() const {
        char byte = 0;
        while (read(ends[0], &byte, 1) == 1)
            ;
    }
};

// Open before the bus counts descriptors.
inline const Pipe &shared_pipe() {
    static const Pipe the_pipe;
    return the_pipe;
}

class Harness : public testing::Test {
protected:
    Harness() {
        shared_pipe().drain();
        bus().reset();
    }
    void TearDown() override { EXPECT_THAT(bus().check(), IsEmpty()) << "left by the test itself"; }
};

inline request_t *make_request() {
    return request_create_executeFunction("A.B", "do", 0x8001);
}

} // namespace sanity

#endif
