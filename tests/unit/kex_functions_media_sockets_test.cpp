// SPDX-License-Identifier: MIT
// Media whose connection information has addresses: the library opens the sockets itself.
#include "kex_functions_fixture.h"

#include "local_sockets.h"

namespace voice_test {
namespace {

// An address as it stands in the connection information.
std::string bytes_of(const sockaddr_in &a) {
    return std::string(reinterpret_cast<const char *>(&a), sizeof(a));
}

const char *const kCreate = "__EndPoint_create";

class EndPointCreateSockets : public Handlers {
protected:
    static std::string info(const sockaddr_in &local, const sockaddr_in &remote, size_t bytes = 736) {
        std::string result = std::string(704, 'c') + bytes_of(local) + bytes_of(remote);
        result.resize(bytes, 'z');
        host.cnx_bytes = bytes;
        return result;
    }
};

TEST_F(EndPointCreateSockets, TheLongFormOpensThePairAndReadsNoDescriptors) {
    for (const size_t bytes : {736ul, 737ul, 1000ul}) {
        again();
        const uint16_t port = free_pair();
        const std::string cnx = info(address(own_host(), port), address("127.0.0.1", 6000), bytes);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx)).with("filedesc", Value::fds({STDERR_FILENO}));
        EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 0) << bytes;
        EXPECT_LOG_OF(kCreate, enter(kCreate), read("ByteArray", "cnx_info", Value::bytes(cnx)),
                      read("UInt32", "ep_line_id", Value::u32(9)), "voice_plugin_create(5, 9)", kTrue, kDestroyed,
                      leave(kCreate));
        ASSERT_EQ(host.descriptors.size(), 10u);
        EXPECT_EQ(local_port(host.descriptors[0]), port);
        EXPECT_EQ(remote_port(host.descriptors[0]), 6000);
        EXPECT_EQ(local_port(host.descriptors[1]), port + 1);
        EXPECT_EQ(remote_port(host.descriptors[1]), 6001);
        for (size_t i = 2; i < 10; ++i)
            EXPECT_EQ(host.descriptors[i], -1);
        EXPECT_EQ(host.bytes, cnx);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointCreateSockets, BetweenTheTwoFormsIsAFailedConnection) {
    for (const size_t bytes : {705ul, 719ul, 720ul, 735ul}) {
        again();
        const std::string cnx = info(address(own_host(), free_pair()), address("127.0.0.1", 6000), bytes);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx)).with("filedesc", Value::fds({STDERR_FILENO}));
        EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2) << bytes;
        EXPECT_LOG_OF(kCreate, enter(kCreate), read("ByteArray", "cnx_info", Value::bytes(cnx)),
                      said("x", kCreate, "Failed to create and connect to media sockets"), kFalse, kDestroyed,
                      leave(kCreate));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointCreateSockets, AnAddressThatIsNotOursFails) {
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address("192.0.2.1", 5000), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(),
                ElementsAre("x libvoice_connectMediaSockets@generic: failed to bind to local socket - Cannot assign "
                            "requested address",
                            said("x", kCreate, "Failed to create and connect to media sockets")));
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(EndPointCreateSockets, AMissingLineClosesTheSocketsOpened) {
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address(own_host(), free_pair()), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kCreate, "Missing argument line_id")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"ep_line_id\""));
}

TEST_F(EndPointCreateSockets, AFailingCallbackKeepsItsSockets) {
    host.result = 3;
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address(own_host(), free_pair()), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kCreate, "voice plugin create FAILED")));
    ASSERT_EQ(host.descriptors.size(), 10u);
    EXPECT_EQ(remote_port(host.descriptors[1]), 6001);
    close_received();
}

} // namespace
} // namespace voice_test
