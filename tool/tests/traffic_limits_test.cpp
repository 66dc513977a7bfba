// SPDX-License-Identifier: MIT
// What a watcher keeps of calls whose answers do not come: a tap that started late, or a peer, must not make it grow.
#include "traffic.h"

#include <gtest/gtest.h>

namespace voicectl {

namespace {

Step message(Step::Kind kind, uint32_t serial, uint32_t bytes) {
    Step step{.kind = kind};
    step.peer.connection = 1;
    step.towards_listener = kind != Step::Kind::reply;
    step.serial = serial;
    step.bytes = bytes;
    if (kind != Step::Kind::reply)
        step.function = "get";
    return step;
}

TEST(TrafficLimits, CallsBeyondTheLimitsTakeThePlaceOfThoseWithoutAnswer) {
    constexpr struct {
        Step::Kind kind;
        uint32_t bytes;
        uint32_t most;
    } kRows[] = {{Step::Kind::call, 100, 10'000},
                 {Step::Kind::call, 64 * 1024, 16},
                 {Step::Kind::one_way_call, 100, 500},
                 {Step::Kind::one_way_call, 64 * 1024, 16}};
    for (const auto &[kind, bytes, most] : kRows)
        for (const uint32_t calls : {most, most + 1}) {
            Traffic watched;
            for (uint32_t serial = 1; serial <= calls; ++serial)
                watched.next(message(kind, serial, bytes));
            EXPECT_EQ(watched.next(message(Step::Kind::reply, calls, 20)).function, "get");
            EXPECT_EQ(watched.next(message(Step::Kind::reply, 1, 20)).function, calls == most ? "get" : "") << most;
        }
}

TEST(TrafficLimits, AnsweredAndForgottenCallsTakeNoRoom) {
    Traffic traffic;
    constexpr uint32_t kHalf = 512 * 1024;
    for (uint32_t serial = 1; serial < 100; ++serial) {
        traffic.next(message(Step::Kind::call, 1, kHalf));
        traffic.next(message(Step::Kind::call, 1, kHalf));
        EXPECT_EQ(traffic.next(message(Step::Kind::reply, 1, 20)).function, "get");
        Step other = message(Step::Kind::call, serial, kHalf);
        other.peer.connection = 2;
        traffic.next(other);
        other.kind = Step::Kind::closed;
        traffic.next(other);
    }
    traffic.next(message(Step::Kind::call, 1, kHalf));
    traffic.next(message(Step::Kind::call, 2, kHalf));
    EXPECT_EQ(traffic.next(message(Step::Kind::reply, 1, 20)).function, "get");
}

TEST(TrafficLimits, ArgumentsOfACallAreNotKeptUntilItsAnswer) {
    Traffic traffic;
    Step call = message(Step::Kind::call, 1, 100);
    call.arguments.push_back({"list", {.type = Value::Type::list, .list = std::vector<Value>(1000)}});
    EXPECT_EQ(traffic.next(call).arguments.size(), 1U);
    const std::vector<Step> overdue = traffic.overdue(9'000'000'000);
    ASSERT_EQ(overdue.size(), 1U);
    EXPECT_TRUE(overdue.front().arguments.empty());
}

Step signal_to(int32_t endpoint, const std::string &path) {
    Step step = message(Step::Kind::one_way_call, 1, 100);
    step.towards_listener = false;
    step.path = path;
    step.record = Record{.kind = RecordKind::signal, .endpoint = endpoint};
    return step;
}

TEST(TrafficLimits, NumbersOfEndpointsBeyondTheLimitTakeThePlaceOfThoseBefore) {
    constexpr int32_t kMost = 1000;
    Step event = message(Step::Kind::one_way_call, 1, 100);
    event.record = Record{.kind = RecordKind::event, .endpoint = 0};
    for (const int32_t endpoints : {kMost, kMost + 1}) {
        Traffic traffic;
        for (int32_t number = 0; number < endpoints; ++number)
            traffic.next(signal_to(number, "fxs_a.EndPoint.FXS1"));
        EXPECT_EQ(traffic.next(event).endpoint, endpoints == kMost ? "FXS1" : "#0");
    }
}

TEST(TrafficLimits, NamesAreKeptUpToTheirLimit) {
    constexpr size_t kMost = 255;
    const std::string fits(kMost, 'n'), longer = fits + "n";
    for (const std::string &name : {fits, longer}) {
        Traffic traffic;
        Step called = traffic.next(signal_to(1, name + ".EndPoint." + name));
        EXPECT_EQ(called.peer.plugin, fits);
        EXPECT_EQ(called.endpoint, fits);
        Step registration = message(Step::Kind::call, 1, 100);
        registration.function = "register_endpoint";
        registration.arguments = {{"plugin_name", {.type = Value::Type::text, .text = name + "x"}},
                                  {"endpoint_name", {.type = Value::Type::text, .text = name + "x"}}};
        registration = traffic.next(registration);
        EXPECT_EQ(registration.peer.plugin, fits);
        EXPECT_EQ(registration.endpoint, fits);
    }
}

} // namespace

} // namespace voicectl
