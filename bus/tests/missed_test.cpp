// SPDX-License-Identifier: MIT
// Calls that find nothing, and functions that take long: what the trace and the tap say of them.
#include "kex_tap.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "support/shifted_clock.h"

#include <algorithm>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr uint64_t kSecond = 1000000000;

class Missed : public TwoBuses {
protected:
    Missed() {
        served::reset();
        served::declare(server);
        kex_setClock(
            server, [](void *userdata) { return *static_cast<uint64_t *>(userdata); }, &now);
    }
    ~Missed() override { served::reset(); }

    void send_one_way(const char *path, const char *function) {
        request_t *r = request_create_executeFunction(path, function, 0);
        ASSERT_TRUE(kex_sendRequest(client, to_server, r));
        request_destroy(r);
        turn_until_idle();
    }

    uint64_t now = kSecond;
};

TEST_F(Missed, CallsThatFindNoObjectOrNoFunctionAreTraced) {
    ASSERT_NE(kex_declareTemplate(server, "Probe.Line", "Probe"), nullptr);
    CapturedTrace trace;
    request_destroy(call("Nobody", "run"));
    request_destroy(call("Probe.Line", "run"));
    request_destroy(call("Probe", "walk"));
    request_destroy(call("Plain", "run"));
    const std::string text = trace.text();
    EXPECT_THAT(text, HasSubstr("' (process " + std::to_string(getpid()) +
                                ") calls 'run' of 'Nobody': there is no such object"));
    EXPECT_THAT(text, HasSubstr(" calls 'run' of 'Probe.Line': the object is a template, or not committed"));
    EXPECT_THAT(text, HasSubstr(" calls 'walk' of 'Probe': no such function is declared for class 'Probe'"));
    EXPECT_THAT(text, HasSubstr(" calls 'run' of 'Plain': no such function is declared for objects without a class"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4);
}

TEST_F(Missed, OneWayCallsAreTracedToo) {
    CapturedTrace trace;
    send_one_way("Nobody", "run");
    EXPECT_THAT(trace.text(), HasSubstr("calls 'run' of 'Nobody': there is no such object"));
}

TEST_F(Missed, TextsOfThePeerAreMadeFitForALine) {
    CapturedTrace trace;
    request_destroy(call("A\nB", "run"));
    EXPECT_THAT(trace.text(), HasSubstr("of 'A?B': there"));
}

TEST_F(Missed, TenAreTracedInASecondAndTheRestIsCounted) {
    CapturedTrace trace;
    for (int i = 0; i < 25; i++)
        request_destroy(call("Nobody", "run"));
    std::string text = trace.text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10);
    now += kSecond;
    EXPECT_TRUE(turn_until([&] { return trace.text().size() > text.size(); })) << "without another call";
    EXPECT_THAT(trace.text().substr(text.size()), HasSubstr("15 more calls found no object or no function\n"));
    text = trace.text();
    now += kSecond;
    request_destroy(call("Nobody", "run"));
    EXPECT_THAT(trace.text().substr(text.size()), testing::EndsWith("there is no such object\n"));
    EXPECT_THAT(trace.text().substr(text.size()), testing::Not(HasSubstr("more calls")));
}

TEST_F(Missed, TapOfTheCallersSideSeesThatAOneWayCallFoundNothing) {
    kex_tap_t *tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    turn_until_idle();
    kex_tap_record_t record;
    while (kex_tap_next(tap, &record) == 1)
        ;
    // The listener is the caller here, as an application that says "init" to a plugin.
    peer_t *to_client = nullptr;
    served::probe = [&](function_call_t *running, argument_list_t *, variant_t *) {
        to_client = fcall_peer(running);
        fcall_destroy(running);
        return KEX_FUNCTION_DONE;
    };
    request_destroy(call("Probe", "run"));
    while (kex_tap_next(tap, &record) == 1)
        ;
    CapturedTrace trace;
    request_t *r = request_create_executeFunction("tel", "init", 0);
    ASSERT_TRUE(kex_sendRequest(server, to_client, r));
    request_destroy(r);
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("calls 'init' of 'tel': there is no such object"));
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_ONE_WAY_CALL);
    const uint32_t serial = record.serial;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_REPLY);
    EXPECT_EQ(record.serial, serial);
    ASSERT_EQ(record.error_count, 1u);
    EXPECT_EQ(record.error_codes[0], static_cast<uint32_t>(KEX_ERROR_NO_OBJECT));
    EXPECT_STREQ(record.error_infos[0], "tel");
    kex_tap_close(tap);
}

TEST_F(Missed, PeerThatFloodsIsAnsweredNoMoreOftenThanItIsTraced) {
    RawPeer raw(socket);
    raw.send(hello("flood"));
    turn_until_idle();
    raw.receive_all();
    CapturedTrace trace;
    for (uint32_t i = 1; i <= 100; i++)
        raw.send(Packet(kOneWayCall, i).text("Nobody").text("run").byte(0));
    turn_until_idle();
    EXPECT_EQ(raw.receive_all().size(), 10u);
}

TEST_F(Missed, FunctionThatRunsLongerThanASecondIsTraced) {
    CapturedTrace trace;
    served::probe = [](function_call_t *running, argument_list_t *, variant_t *) {
        clock_advance(1250000000);
        fcall_destroy(running);
        return KEX_FUNCTION_DONE;
    };
    request_destroy(call("Probe", "run"));
    EXPECT_THAT(trace.text(),
                testing::ContainsRegex("'run' of 'Probe' ran for [1-9][0-9]*\\.[0-9] s: nothing else was done "
                                       "meanwhile\n"));
    const std::string text = trace.text();
    request_destroy(call("Probe", "note"));
    EXPECT_EQ(trace.text(), text);
}

TEST_F(Missed, OneWayCallOfOneThatHasGoneIsTraced) {
    RawPeer raw(socket);
    raw.send(hello("gone"));
    raw.send(Packet(kOneWayCall, 1).text("Nobody").text("run").byte(0));
    raw.close();
    CapturedTrace trace;
    turn_until_idle();
    EXPECT_THAT(trace.text(), HasSubstr("'gone' (process " + std::to_string(getpid()) + ") calls 'run' of 'Nobody'"));
}

} // namespace
