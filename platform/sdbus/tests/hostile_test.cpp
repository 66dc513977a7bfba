// SPDX-License-Identifier: MIT
// What no host sends, against a process that serves: whoever sends it is closed, and nobody else notices.
#include "peers.h"
#include "served_functions.h"
#include "support/scratch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace peers;

namespace {

constexpr size_t kMebibyte = 1024 * 1024;
constexpr const char *kMalformed = "it sent a malformed call";
constexpr const char *kNoMessage = "it sent what is none of this bus's messages";

class Hostile : public testing::Test {
protected:
    // Nobody has left anything open.
    ~Hostile() override {
        EXPECT_TRUE(served);
        EXPECT_TRUE(server.serves());
        EXPECT_TRUE(until([this] { return server.process().descriptors() <= before; }));
    }

    support::ScratchDirectory scratch;
    const Server server = Server(scratch.path("bus"));
    const bool served = server.serves();
    const size_t before = server.process().descriptors();
};

// The bytes of a call of Probe.echo as sd-bus sends them, behind the authentication and the hello.
std::string call_bytes() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const std::string agreed = "DATA\r\nOK 00000000000000000000000000000001\r\nAGREE_UNIX_FD\r\n";
    EXPECT_EQ(write(ends[1], agreed.data(), agreed.size()), static_cast<ssize_t>(agreed.size()));
    const RawPeer raw(ends[0], Role::client);
    char bytes[4096];
    EXPECT_GT(read(ends[1], bytes, sizeof bytes), 0);
    raw.send(raw.call("Probe", "echo", [](sd_bus_message *m) { append_text(m, "text", "well"); }));
    const ssize_t size = read(ends[1], bytes, sizeof bytes);
    close(ends[1]);
    return std::string(bytes, size > 0 ? static_cast<size_t>(size) : 0);
}

// The fixed head of a call of D-Bus whose body is said to be so long.
std::string head_of(uint32_t body) {
    std::string head("l\1\0\1", 4);
    for (const uint32_t word : {body, uint32_t{2}, uint32_t{0}})
        head.append(reinterpret_cast<const char *>(&word), sizeof word);
    return head;
}

// Sends bytes and hangs up; returns when the server has done with them.
void send_and_leave(const std::string &path, const std::string &bytes) {
    const RawPeer raw(path);
    raw.send_bytes(bytes);
    shutdown(raw.fd(), SHUT_WR);
    EXPECT_TRUE(raw.is_closed());
}

// ------------------------------------------------------------------------------------------------------ Any bytes

TEST_F(Hostile, BytesThatAreNoDBus) {
    for (const std::string &bytes :
         {std::string("GET / HTTP/1.0\r\n\r\n"), std::string(1, '\0'), std::string(100000, '\0'),
          std::string("\0AUTH ANONYMOUS\r\nBEGIN\r\nxxxxxxxxxxxxxxxxxxxxxxxxxx", 50),
          std::string("\0AUTH EXTERNAL 3939\r\nBEGIN\r\n", 29)}) {
        const int fd = connect_to(server.path);
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        close(fd);
    }
    send_and_leave(server.path, std::string(100000, 'x'));
}

TEST_F(Hostile, EveryPrefixOfACall) {
    const std::string whole = call_bytes();
    ASSERT_GT(whole.size(), 100u);
    for (size_t length = 1; length < whole.size(); length++)
        send_and_leave(server.path, whole.substr(0, length));
}

TEST_F(Hostile, EveryByteOfACallChanged) {
    const std::string whole = call_bytes();
    for (size_t at = 0; at < whole.size(); at++) {
        for (const int bits : {0x01, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ bits);
            send_and_leave(server.path, changed);
        }
    }
}

TEST_F(Hostile, MessageLongerThanDBusHasThem) {
    const RawPeer raw(server.path);
    raw.send_bytes(head_of(128 * kMebibyte + 1));
    EXPECT_TRUE(raw.is_closed());
}

TEST_F(Hostile, MessageThatIsLongAndDoesNotComeTakesNoMemory) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "under the address sanitizer what is reserved is resident";
#endif
    const size_t memory = server.process().resident();
    std::vector<std::unique_ptr<RawPeer>> all;
    for (int i = 0; i < 7; i++) {
        all.push_back(std::make_unique<RawPeer>(server.path));
        all.back()->send_bytes(head_of(127 * kMebibyte));
    }
    EXPECT_TRUE(server.serves());
    EXPECT_LT(server.process().resident(), memory + 8 * kMebibyte);
}

// ------------------------------------------------------------------------------------------- Messages of D-Bus

struct Wrong {
    const char *what;
    std::function<Message(const RawPeer &)> message;
    const char *told;
};

Message value_message(const RawPeer &raw, uint8_t code, const char *type, const void *value) {
    return raw.call("Probe", "echo", [=](sd_bus_message *m) {
        sd_bus_message_open_container(m, 'r', "ay(yv)");
        append_bytes(m, "text");
        append_value(m, code, type, value);
        sd_bus_message_close_container(m);
    });
}

Message number_message(const RawPeer &raw, uint8_t code, int64_t number) {
    return value_message(raw, code, "x", &number);
}

Message method_message(const RawPeer &raw, const char *interface, const char *member) {
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(raw.bus(), &message, nullptr, "/kex", interface, member);
    return Message(message);
}

const std::string kZeroInside("a\0b", 3);

const std::vector<Wrong> kWrong = {
    {"a value of no type code", [](const RawPeer &r) { return number_message(r, 99, 1); }, kMalformed},
    {"a number that does not fit", [](const RawPeer &r) { return number_message(r, VARIANT_UINT16, 65536); },
     kMalformed},
    {"a negative unsigned one", [](const RawPeer &r) { return number_message(r, VARIANT_UINT32, -1); }, kMalformed},
    {"a boolean of 2", [](const RawPeer &r) { return number_message(r, VARIANT_BOOL, 2); }, kMalformed},
    {"a number for a descriptor", [](const RawPeer &r) { return number_message(r, VARIANT_FD, 3); }, kMalformed},
    {"a number for a text", [](const RawPeer &r) { return number_message(r, VARIANT_TEXT, 3); }, kMalformed},
    {"a number for a list", [](const RawPeer &r) { return number_message(r, VARIANT_LIST, 3); }, kMalformed},
    {"a text for a number", [](const RawPeer &r) { return value_message(r, VARIANT_INT32, "ay", &kZeroInside); },
     kMalformed},
    {"a text with a zero inside", [](const RawPeer &r) { return value_message(r, VARIANT_TEXT, "ay", &kZeroInside); },
     kMalformed},
    {"65 arguments",
     [](const RawPeer &r) {
         return r.call("Probe", "echo", [](sd_bus_message *m) {
             for (int i = 0; i < 65; i++)
                 append_text(m, "text", "");
         });
     },
     kMalformed},
    {"a call of nothing", [](const RawPeer &r) { return method_message(r, "kex.Bus", "Call"); }, kMalformed},
    {"a function that there is not", [](const RawPeer &r) { return method_message(r, "kex.Bus", "Run"); }, kNoMessage},
    {"an interface that there is not", [](const RawPeer &r) { return method_message(r, "kex.Tap", "Call"); },
     kNoMessage},
    {"a second hello", [](const RawPeer &r) { return r.hello("other"); }, kNoMessage},
};

TEST_F(Hostile, WellFormedMessagesOfAnotherForm) {
    for (const Wrong &wrong : kWrong) {
        SCOPED_TRACE(wrong.what);
        const std::string told = server.trace();
        const RawPeer raw(server.path);
        EXPECT_EQ(raw.echo("first"), "first");
        raw.send(wrong.message(raw));
        EXPECT_TRUE(raw.is_closed());
        EXPECT_TRUE(until([&] { return server.trace().find(wrong.told, told.size()) != std::string::npos; }));
    }
}

TEST_F(Hostile, SixtyFourArgumentsAndANameOfSixtyThreeBytes) {
    const RawPeer raw(server.path, false);
    raw.send(raw.hello(std::string(63, 'n')));
    EXPECT_EQ(raw.ask(raw.call("Probe", "echo",
                               [](sd_bus_message *m) {
                                   for (int i = 0; i < 64; i++)
                                       append_text(m, i == 63 ? "text" : "other", "last");
                               })),
              "last");
}

TEST_F(Hostile, HelloThatIsNone) {
    for (const size_t length : {size_t{64}, size_t{100000}}) {
        const RawPeer raw(server.path, false);
        raw.send(raw.hello(std::string(length, 'n')));
        EXPECT_TRUE(raw.is_closed()) << length;
    }
    const RawPeer raw(server.path, false);
    raw.send(raw.call("Probe", "note"));
    EXPECT_TRUE(raw.is_closed()) << "a call in its place";
}

TEST_F(Hostile, ListsThatAreTooDeep) {
    const auto deep = [](const RawPeer &raw, int depth) {
        return raw.ask(raw.call("Probe", "note", [=](sd_bus_message *m) { append_list(m, "number", depth); }));
    };
    EXPECT_EQ(deep(RawPeer(server.path), 4), "none");
    EXPECT_EQ(deep(RawPeer(server.path), 5), std::nullopt);
    EXPECT_EQ(deep(RawPeer(server.path), 40), std::nullopt) << "as deep as sd-bus writes one";
    EXPECT_TRUE(server.says(kMalformed));
}

// Texts travel as bytes: D-Bus itself takes none that is not UTF-8.
TEST_F(Hostile, TextsThatAreNotUtf8AreAsGoodAsOthers) {
    const RawPeer raw(server.path);
    for (const char *text : {"caf\xe9", "\xff\xfe", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x01\x1b[2J"})
        EXPECT_EQ(raw.echo(text), text);
    const auto answer = raw.ask(raw.call("caf\xe9\x1b[2J", "echo"));
    EXPECT_EQ(answer.value_or("").find(std::to_string(KEX_ERROR_NO_OBJECT) + " "), 0u);
    EXPECT_EQ(answer.value_or("").find('\x1b'), std::string::npos) << "it cannot steer a terminal";
}

TEST_F(Hostile, PathOfAnyLengthIsAnsweredWithOneError) {
    const RawPeer raw(server.path);
    for (const std::string &path : {std::string(256, 'p'), std::string(kMebibyte, '.'), std::string()}) {
        const auto answer = raw.ask(raw.call(path.c_str(), "echo"));
        EXPECT_EQ(answer.value_or("").find(std::to_string(KEX_ERROR_NO_OBJECT) + " "), 0u);
        EXPECT_LT(answer.value_or("").size(), 200u);
    }
}

// --------------------------------------------------------------------------------------------------- Descriptors

TEST_F(Hostile, DescriptorsThatNobodyReadsAreClosed) {
    const RawPeer raw(server.path);
    const auto many = [](sd_bus_message *m) {
        append_text(m, "text", "well");
        for (int i = 0; i < 60; i++)
            append_descriptor(m, "fd", STDIN_FILENO);
    };
    for (int i = 0; i < 30; i++)
        EXPECT_EQ(raw.ask(raw.call("Probe", "echo", many)), "well");
}

// A process that may have few descriptors.
class FullTable : public testing::TestWithParam<rlim_t> {
protected:
    FullTable() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few = {GetParam(), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        server = std::make_unique<Server>(scratch.path("bus"));
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    support::ScratchDirectory scratch;
    std::unique_ptr<Server> server;

private:
    rlimit before_;
};

TEST_P(FullTable, DescriptorsThatFindNoRoomEndTheirConnection) {
    const RawPeer other(server->path);
    EXPECT_EQ(other.echo("before"), "before");
    const RawPeer raw(server->path);
    raw.send(raw.call("Probe", "note", [](sd_bus_message *m) {
        for (int i = 0; i < 60; i++)
            append_descriptor(m, "fd", STDIN_FILENO);
    }));
    EXPECT_TRUE(raw.is_closed());
    EXPECT_EQ(other.echo("after"), "after");
    EXPECT_TRUE(server->serves());
}

TEST_P(FullTable, NewcomersWithoutADescriptorAreTurnedAway) {
    std::vector<std::unique_ptr<Child>> crowd;
    for (int i = 0; i < 5; i++) { // two descriptors for each connection
        crowd.push_back(std::make_unique<Child>(own_user(), [this](int word) {
            std::vector<std::unique_ptr<RawPeer>> all;
            for (int k = 0; k < 6; k++) {
                all.push_back(std::make_unique<RawPeer>(server->path));
                all.back()->echo("here");
            }
            if (write(word, "x", 1) == 1)
                pause();
        }));
        EXPECT_EQ(crowd.back()->hear(), 'x');
    }
    EXPECT_FALSE(server->answers());
    EXPECT_TRUE(server->says("may not connect: Too many open files"));
    crowd.clear();
    EXPECT_TRUE(until([this] { return server->serves(); }));
}

// A connection takes two: the last one that is free lets nobody in either.
INSTANTIATE_TEST_SUITE_P(EvenAndOdd, FullTable, testing::Values(48, 49));

// --------------------------------------------------------------------------------------------------------- Floods

TEST_F(Hostile, FloodOfCallsLeavesRoomForOthersAndTakesNoMemory) {
    const size_t memory = server.process().resident();
    const Child flood(own_user(), [this](int word) {
        const RawPeer raw(server.path);
        for (int i = 0;; i++) {
            if (!raw.send(raw.call("Probe", "note")) || (i == 1000 && write(word, "f", 1) != 1))
                break;
        }
    });
    ASSERT_EQ(flood.hear(), 'f');
    for (int i = 0; i < 20; i++)
        EXPECT_TRUE(server.serves());
    EXPECT_LT(server.process().resident(), memory + 64 * kMebibyte); // most of it is the log of Probe.note
}

TEST_F(Hostile, PeerThatNeverReadsWhatSdBusAnswersIsClosed) {
    const size_t memory = server.process().resident();
    const RawPeer deaf(server.path);
    int sent = 0;
    while (sent < 100000 && deaf.send(method_message(deaf, "org.freedesktop.DBus.Peer", "Ping"), true))
        sent++;
    EXPECT_LT(sent, 100000);
    EXPECT_TRUE(server.says("it does not read the answers of sd-bus"));
    EXPECT_LT(server.process().resident(), memory + 8 * kMebibyte);
}

} // namespace
