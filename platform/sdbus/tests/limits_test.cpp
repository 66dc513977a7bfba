// SPDX-License-Identifier: MIT
// How much a bus on sd-bus keeps for a peer, how much it takes from one, and what happens beyond that.
#include "peers.h"
#include "served_functions.h"
#include "support/scratch.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace peers;
using support::uri_of;

namespace {

constexpr size_t kMebibyte = 1024 * 1024;
constexpr size_t kMost = 3 * kMebibyte; // that is queued to a peer, and that a reply may have

// A bus of this process that is connected to somebody.
class Limits : public testing::Test {
protected:
    Limits() { served::declare(bus); }
    ~Limits() override {
        kex_destroy(bus);
        served::reset();
    }
    void connect() {
        peer = kex_client_connect(bus, uri_of(path).c_str());
        ASSERT_NE(peer, nullptr);
        ASSERT_TRUE(turn_until([this] { return peer_processName(peer)[0] != '\0'; }));
    }
    // Connects to a process that reads nothing more.
    void connect_to_stopped(const Server &server) {
        connect();
        kill(server.process().pid(), SIGSTOP);
        waitpid(server.process().pid(), nullptr, WUNTRACED);
    }
    bool turn_until(const std::function<bool()> &done) {
        return until([&] {
            kex_dispatch(bus);
            return done();
        });
    }
    // One-way, with an argument of so many bytes, or descriptors.
    bool send(size_t bytes, int descriptors = 0) {
        request_t *r = request_create_executeFunction("Probe", "note", 0);
        variant_t value = {};
        const std::string data(bytes, 'x');
        if (bytes > 0)
            variant_setByteArray(&value, data.data(), static_cast<uint32_t>(bytes));
        else
            variant_initialize(&value, VARIANT_LIST);
        variant_t fd = {};
        variant_setFd(&fd, STDIN_FILENO);
        for (int i = 0; i < descriptors; i++)
            variant_list_add(variant_da_list(&value), &fd);
        request_addParameter(r, "value", &value);
        variant_cleanup(&value);
        const bool sent = kex_sendRequest(bus, peer, r) != 0;
        request_destroy(r);
        return sent;
    }
    int send_all(size_t bytes) {
        int count = 0;
        while (count < 100000 && send(bytes))
            count++;
        return count;
    }
    // Lines of the reply to Probe.run(value): "error 7", "bytes 100", "none".
    std::string run(const variant_t &value) {
        request_t *r = request_create_executeFunction("Probe", "run", 0);
        request_addParameter(r, "value", &value);
        std::string text;
        if (kex_sendRequest(bus, peer, r) == 0)
            text = "not sent";
        else if (!turn_until([&] { return request_reply(r) != nullptr; }))
            text = "not answered";
        uint32_t size = 0;
        const void *data = nullptr;
        for (reply_item_t *item = reply_firstItem(request_reply(r)); item != nullptr; item = reply_nextItem(item))
            text += variant_toByteArray(reply_item_returnValue(item), &data, &size) != 0
                        ? "bytes " + std::to_string(size)
                        : "error " + std::to_string(reply_item_error(item)) + "\n";
        request_destroy(r);
        return text;
    }

    support::ScratchDirectory scratch;
    std::string path = scratch.path("bus");
    kex_t *bus = kex_create("client");
    peer_t *peer = nullptr;
};

variant_t number(uint32_t value) {
    variant_t v = {};
    variant_setUInt32(&v, value);
    return v;
}

variant_t nested(uint32_t depth) {
    variant_t value = number(7);
    for (uint32_t i = 0; i < depth; i++) {
        variant_t list = {};
        variant_initialize(&list, VARIANT_LIST);
        variant_list_add(variant_da_list(&list), &value);
        variant_cleanup(&value);
        value = list;
    }
    return value;
}

// ------------------------------------------------------------------------------------------------------ To a peer

TEST_F(Limits, RequestsThatNobodyReadsTakeThreeMebibytes) {
    const Server server(path);
    connect_to_stopped(server);
    EXPECT_EQ(send_all(64 * 1024), 46);
    kill(server.process().pid(), SIGCONT);
    EXPECT_TRUE(turn_until([this] { return send(kMost - 8192); })) << "there is room again";
}

TEST_F(Limits, RequestsOfFewBytesThatNobodyReadsTakeNoMore) {
    const Server server(path);
    connect_to_stopped(server);
    const size_t before = mallinfo2().uordblks;
    EXPECT_GE(send_all(1), 1250) << "a burst of events";
    EXPECT_LE(mallinfo2().uordblks, before + kMost + kMost / 8);
}

TEST_F(Limits, KernelKeepsLittleBesides) {
    const Server server(path);
    connect_to_stopped(server);
    size_t bytes = 0;
    for (int refused = 0; refused < 100;) {
        if (send(64 * 1024))
            bytes += 64 * 1024;
        else
            refused++;
        kex_dispatch(bus);
    }
    EXPECT_GE(bytes, kMost - kMebibyte / 8);
    EXPECT_LE(bytes, kMost + kMebibyte);
}

TEST_F(Limits, RequestOfMoreIsNotSent) {
    const Server server(path);
    connect();
    EXPECT_FALSE(send(kMost));
    EXPECT_TRUE(send(kMost - 8192));
}

// It answers nothing that it reads.
TEST_F(Limits, FourThousandAndNinetySixRequestsHaveNoAnswer) {
    const int listener = listen_at(path);
    const Child silent(own_user(), [&](int) {
        const RawPeer raw(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), Role::server);
        raw.reads([] { return false; });
    });
    connect();
    std::vector<request_t *> all;
    for (bool sent = true; sent && all.size() < 5000;) {
        all.push_back(request_create_executeFunction("Probe", "note", 0));
        sent = kex_sendRequest(bus, peer, all.back()) != 0;
        kex_dispatch(bus);
        for (int i = 0; !sent && i < 2000 && all.size() <= 4096; i++) { // the queue is full: it reads on
            poll(nullptr, 0, 1);
            kex_dispatch(bus);
            sent = kex_sendRequest(bus, peer, all.back()) != 0;
        }
    }
    EXPECT_EQ(all.size(), 4097u);
    for (request_t *r : all)
        request_destroy(r);
    EXPECT_TRUE(send(1)) << "those that are destroyed leave room";
    close(listener);
}

TEST_F(Limits, TwoHundredAndFiftyThreeDescriptorsAreQueued) {
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *value) {
        variant_list_t *list = nullptr;
        argument_getList(arguments, "value", 0, &list);
        const std::string bytes(variant_list_size(list), 'x');
        variant_setByteArray(value, bytes.data(), static_cast<uint32_t>(bytes.size()));
        variant_list_destroy(list);
        fcall_destroy(call);
        return int{KEX_FUNCTION_DONE};
    };
    const Server server(path);
    connect();
    variant_t list = {};
    variant_t fd = {};
    variant_initialize(&list, VARIANT_LIST);
    variant_setFd(&fd, STDIN_FILENO);
    for (int i = 0; i < 253; i++)
        variant_list_add(variant_da_list(&list), &fd);
    EXPECT_EQ(run(list), "bytes 253");
    variant_cleanup(&list);
    EXPECT_FALSE(send(0, 254));
    EXPECT_TRUE(send(0, 127));
    EXPECT_FALSE(send(0, 127)) << "of all requests together";
    EXPECT_TRUE(turn_until([this] { return send(0, 127); })) << "which leave";
}

TEST_F(Limits, ListsAreFourDeep) {
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *value) {
        fcall_destroy(call);
        return variant_setByteArray(value, "", 0) != 0 ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
    };
    const Server server(path);
    connect();
    variant_t deep = nested(4), deeper = nested(5);
    EXPECT_EQ(run(deep), "bytes 0");
    EXPECT_EQ(run(deeper), "not sent");
    EXPECT_EQ(run(deep), "bytes 0") << "the connection is as it was";
    variant_cleanup(&deep);
    variant_cleanup(&deeper);
}

TEST_F(Limits, CallsHaveSixtyFourArguments) {
    const Server server(path);
    connect();
    const auto sent = [this](int arguments) {
        request_t *r = request_create_executeFunction("Probe", "note", 0);
        const variant_t value = {};
        for (int i = 0; i < arguments; i++)
            request_addParameter(r, "value", &value);
        const bool answered = kex_sendRequest(bus, peer, r) != 0 &&
                              turn_until([&] { return request_reply(r) != nullptr; }) &&
                              reply_item_type(reply_firstItem(request_reply(r))) != REPLY_ITEM_ERROR;
        request_destroy(r);
        return answered;
    };
    EXPECT_TRUE(sent(64));
    EXPECT_FALSE(sent(65));
    EXPECT_TRUE(sent(64)) << "the connection is as it was";
}

TEST_F(Limits, PathsHave255Bytes) {
    request_t *r = request_create_executeFunction(std::string(255, 'p').c_str(), std::string(255, 'f').c_str(), 0);
    EXPECT_NE(r, nullptr);
    request_destroy(r);
    EXPECT_EQ(request_create_executeFunction(std::string(256, 'p').c_str(), "f", 0), nullptr);
    EXPECT_EQ(request_create_executeFunction("p", std::string(256, 'f').c_str(), 0), nullptr);
}

TEST_F(Limits, ListenerThatIsRefusedSaysWhy) {
    const int lock = open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const Server waits_for_nobody(path);
    EXPECT_FALSE(waits_for_nobody.listens);
    EXPECT_TRUE(waits_for_nobody.says("another process listens there already"));
    flock(lock, LOCK_UN); // also that process's
    close(lock);
    const Server first(path), second(path), no_socket(scratch.path("."));
    EXPECT_TRUE(first.listens);
    EXPECT_FALSE(second.listens);
    EXPECT_TRUE(second.says("another process listens there already"));
    EXPECT_FALSE(no_socket.listens);
    EXPECT_TRUE(no_socket.says("something that is no socket stands there"));
}

TEST_F(Limits, ManyWaitToBeTakenIn) {
    kex_t *listener = kex_create("listener");
    ASSERT_NE(connection_listenOnIPC(kex_connection(listener), path.c_str()), nullptr);
    for (int i = 0; i < 64; i++) // as many as a bus makes
        EXPECT_NE(kex_client_connect(bus, uri_of(path).c_str()), nullptr) << i;
    kex_destroy(listener);
}

// -------------------------------------------------------------------------------------------------------- Replies

TEST_F(Limits, ReplyOfMoreThanThreeMebibytesIsAnError) {
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *value) {
        uint32_t size = 0;
        argument_getUInt32(arguments, "value", 0, &size);
        const std::string bytes(size, 'x');
        variant_setByteArray(value, bytes.data(), size);
        fcall_destroy(call);
        return int{KEX_FUNCTION_DONE};
    };
    const Server server(path);
    connect();
    EXPECT_EQ(run(number(kMost - 8192)), "bytes " + std::to_string(kMost - 8192));
    EXPECT_EQ(run(number(kMost)), "error " + std::to_string(KEX_ERROR_TOO_LARGE) + "\n");
    EXPECT_EQ(run(number(100 * kMebibyte)), "error " + std::to_string(KEX_ERROR_TOO_LARGE) + "\n");
    EXPECT_EQ(run(number(1)), "bytes 1");
}

TEST_F(Limits, ReplyThatCannotBeWrittenIsAnError) {
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *value) {
        constexpr int kNoDescriptor = 1000000;
        uint32_t depth = 0;
        argument_getUInt32(arguments, "value", 0, &depth);
        if (depth > 1)
            *value = nested(depth);
        else if (depth == 1)
            variant_setFd(value, kNoDescriptor);
        else
            variant_setByteArray(value, "", 0);
        fcall_destroy(call);
        return int{KEX_FUNCTION_DONE};
    };
    const Server server(path);
    connect();
    EXPECT_EQ(run(number(5)), "error " + std::to_string(KEX_ERROR_TOO_LARGE) + "\n");
    EXPECT_EQ(run(number(1)), "error " + std::to_string(KEX_ERROR_TOO_LARGE) + "\n");
    EXPECT_EQ(run(number(0)), "bytes 0") << "the connection is as it was";
}

TEST_F(Limits, ReplyHasSixtyFourErrors) {
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *value) {
        uint32_t added = 0;
        for (uint32_t i = 0; i < 70; i++)
            added += reply_addError(request_reply(fcall_request(call)), i, "", "") != 0;
        fcall_destroy(call);
        return variant_setByteArray(value, std::string(added, 'x').data(), added) != 0 ? KEX_FUNCTION_DONE
                                                                                       : KEX_FUNCTION_FAILED;
    };
    const Server server(path);
    connect();
    std::string wanted;
    for (int i = 0; i < 64; i++)
        wanted += "error " + std::to_string(i) + "\n";
    EXPECT_EQ(run(number(0)), wanted + "bytes 64");
}

TEST_F(Limits, PeerThatNeverReadsItsRepliesIsClosed) {
    const Server server(path);
    ASSERT_TRUE(server.serves());
    const size_t before = server.process().resident();
    const RawPeer deaf(path);
    const std::string text(1000, 'x');
    const auto call = [&] {
        return deaf.call("Probe", "echo", [&](sd_bus_message *m) { append_text(m, "text", text); });
    };
    int sent = 0;
    while (sent < 100000 && deaf.send(call(), true))
        sent++;
    EXPECT_LT(sent, 100000);
    EXPECT_TRUE(server.says("it does not read its replies"));
    EXPECT_LT(server.process().resident(), before + 16 * kMebibyte);
    EXPECT_TRUE(server.serves());
}

// ------------------------------------------------------------------------------------------------------ In a wait

Message call_await(const RawPeer &raw) {
    Message call;
    until([&] {
        sd_bus_message *message = nullptr;
        sd_bus_process(raw.bus(), &message);
        if (message != nullptr)
            call.reset(message);
        return sd_bus_message_is_method_call(call.get(), "kex.Bus", "Call") > 0;
    });
    return call;
}

void answer(const RawPeer &raw, const Message &call) {
    sd_bus_message *reply = nullptr;
    const int64_t nothing = 0;
    sd_bus_message_new_method_return(call.get(), &reply);
    sd_bus_message_append(reply, "a(uayay)", 0);
    append_value(reply, VARIANT_NONE, "x", &nothing);
    raw.send(Message(reply));
}

// A listener that sends so many calls while its answer is waited for, and then perhaps the answer.
class Talker {
public:
    Talker(const std::string &path, int calls, bool answers)
        : listener_(listen_at(path)), child_(own_user(), [=, this](int) {
              const RawPeer raw(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), Role::server);
              const Message call = call_await(raw);
              for (int i = 0; i < calls; i++)
                  raw.send(raw.call("Probe", "note"));
              if (answers)
                  answer(raw, call);
              raw.reads([] { return false; });
          }) {}
    ~Talker() { close(listener_); }

private:
    int listener_;
    Child child_;
};

// What was answered to a wait of 20 s.
bool wait_for_reply(kex_t *bus, peer_t *peer) {
    request_t *r = request_create_executeFunction("Probe", "run", 0);
    const timeval limit = {20, 0};
    const bool answered = kex_sendRequest(bus, peer, r) != 0 && kex_waitForReply(bus, r, &limit) != 0;
    request_destroy(r);
    return answered;
}

// This process answers when a call has come to it by another connection.
TEST_F(Limits, WaitSendsToEverybody) {
    const std::string other_path = scratch.path("other");
    const int listener = listen_at(path), other_listener = listen_at(other_path);
    const Child both(own_user(), [&](int) {
        const RawPeer raw(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), Role::server);
        const RawPeer other(accept4(other_listener, nullptr, nullptr, SOCK_CLOEXEC), Role::server);
        if (call_await(other) != nullptr)
            answer(raw, call_await(raw));
        raw.reads([] { return false; });
    });
    connect();
    peer_t *waited_for = peer;
    path = other_path;
    connect();
    EXPECT_TRUE(send(1));
    EXPECT_TRUE(wait_for_reply(bus, waited_for));
    close(listener);
    close(other_listener);
}

TEST_F(Limits, WaitKeepsFourThousandAndNinetySixCallsAndReplies) {
    const Talker talker(path, 4095, true);
    connect();
    EXPECT_TRUE(wait_for_reply(bus, peer));
    EXPECT_TRUE(turn_until([] { return served::log.size() == 4095; }));
}

TEST_F(Limits, PeerThatSendsMoreIntoAWaitIsClosed) {
    const Talker talker(path, 4097, false);
    connect();
    EXPECT_FALSE(wait_for_reply(bus, peer)) << "at once";
    EXPECT_FALSE(wait_for_reply(bus, peer)) << "it is closed";
    EXPECT_TRUE(turn_until([] { return served::log.size() >= 4097; })) << "what it had sent is run";
}

} // namespace
