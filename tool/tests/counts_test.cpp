// SPDX-License-Identifier: MIT
#include "counts.h"

#include <gtest/gtest.h>

#include "counts_rate.h"
#include "counts_text.h"

namespace voicectl {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;

class CountsTest : public testing::Test {
protected:
    Counts counts;
    uint32_t serial = 0;

    static Step step(Step::Kind kind, uint32_t connection, const std::string &plugin, const std::string &endpoint = "",
                     uint64_t time_ns = kSecond) {
        Step step{.kind = kind};
        step.time_ns = time_ns;
        step.peer.connection = connection;
        step.peer.process = "fxs_plugin";
        step.peer.plugin = plugin;
        step.endpoint = endpoint;
        step.bytes = 100;
        return step;
    }

    void event(uint32_t connection, const std::string &plugin, const std::string &endpoint, int32_t number = -1) {
        Step one = step(Step::Kind::one_way_call, connection, plugin, endpoint);
        if (number >= 0)
            one.record = Record{.kind = RecordKind::event, .endpoint = number};
        counts.take(one);
    }

    Step call(uint32_t connection, const std::string &plugin, const std::string &endpoint, uint64_t time_ns) {
        Step one = step(Step::Kind::call, connection, plugin, endpoint, time_ns);
        one.towards_listener = false;
        one.serial = ++serial;
        counts.take(one);
        return one;
    }

    void answer(const Step &call, uint64_t elapsed_ns) {
        Step one = call;
        one.kind = Step::Kind::reply;
        one.towards_listener = !call.towards_listener;
        one.time_ns += elapsed_ns;
        one.elapsed_ns = elapsed_ns;
        counts.take(one);
    }

    // "fxs1 FXS1 2 ..." of each row: names and messages.
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const Count &row : counts.rows(kSecond))
            names.push_back(row.plugin + " " + row.endpoint + " " + std::to_string(row.messages) +
                            (row.connected ? "" : " gone"));
        return names;
    }
};

using Names = std::vector<std::string>;

TEST_F(CountsTest, EachPluginAndEndpointHasARow) {
    event(1, "fxs1", "FXS1");
    event(1, "fxs1", "FXS1");
    event(1, "fxs1", "");
    event(2, "fxs2", "FXS1");
    EXPECT_EQ(names(), (Names{"fxs1  1", "fxs1 FXS1 2", "fxs2 FXS1 1"}));
    EXPECT_EQ(counts.plugin_count(), 2U);
    EXPECT_EQ(counts.sum(kSecond).messages, 4U);
    EXPECT_EQ(counts.sum(kSecond).bytes, 400U);
}

TEST_F(CountsTest, WhatCameBeforeANameIsCountedUnderIt) {
    counts.take(step(Step::Kind::connected, 1, ""));
    event(1, "fxs1", "#4", 4);
    EXPECT_EQ(names(), (Names{"fxs1  1", "fxs1 #4 1"}));
    event(1, "fxs1", "FXS1", 4);
    EXPECT_EQ(names(), (Names{"fxs1  1", "fxs1 FXS1 2"}));
}

TEST_F(CountsTest, ProcessesOfOneNameKeepTheirRowUntilTheLastHasAnother) {
    counts.take(step(Step::Kind::connected, 1, ""));
    counts.take(step(Step::Kind::connected, 2, ""));
    event(1, "fxs1", "");
    EXPECT_EQ(names(), (Names{"fxs1  1", "fxs_plugin  2"}));
    event(2, "fxs2", "");
    EXPECT_EQ(names(), (Names{"fxs1  1", "fxs2  3"}));
}

TEST_F(CountsTest, WaitsLastFromTheCallToItsAnswer) {
    const Step first = call(1, "fxs1", "FXS1", kSecond);
    call(1, "fxs1", "FXS1", 2 * kSecond);
    EXPECT_EQ(counts.rows(4 * kSecond)[0].waits, 2U);
    EXPECT_EQ(counts.rows(4 * kSecond)[0].longest_ns, 3 * kSecond);
    answer(first, kSecond / 2);
    const Count row = counts.rows(4 * kSecond)[0];
    EXPECT_EQ(row.waits, 1U);
    EXPECT_EQ(row.longest_ns, 2 * kSecond);
    EXPECT_EQ(row.answers, 1U);
    EXPECT_EQ(row.answer_ns, kSecond / 2);
    EXPECT_EQ(row.answer_classes[3], 1U) << "above 0.1 s, up to 1 s";
}

TEST_F(CountsTest, WaitThatIsToldOfHasItsBeginBeforeTheNotice) {
    Step notice = step(Step::Kind::waiting, 1, "fxs1", "", 10 * kSecond);
    notice.elapsed_ns = 4 * kSecond;
    counts.take(notice);
    EXPECT_EQ(counts.rows(11 * kSecond)[0].longest_ns, 5 * kSecond);
}

TEST_F(CountsTest, NobodyWaitsForOneThatHasGone) {
    call(1, "fxs1", "FXS1", kSecond);
    counts.take(step(Step::Kind::closed, 1, "fxs1"));
    EXPECT_EQ(counts.sum(kSecond).waits, 0U);
    EXPECT_EQ(names(), (Names{"fxs1  1 gone", "fxs1 FXS1 1 gone"}));
    call(2, "fxs2", "", kSecond);
    counts.disconnect();
    EXPECT_EQ(counts.sum(kSecond).waits, 0U);
    EXPECT_EQ(counts.plugin_count(), 0U);
}

TEST_F(CountsTest, AnswersMayBeAmongLostCopies) {
    call(1, "fxs1", "FXS1", kSecond);
    Step lost = step(Step::Kind::lost, 0, "");
    lost.lost = 7;
    counts.take(lost);
    EXPECT_EQ(counts.lost(), 7U);
    EXPECT_EQ(counts.sum(kSecond).waits, 0U);
}

TEST_F(CountsTest, ErrorsAreAnswersRefusalsAndBrokenRecords) {
    Step reply = step(Step::Kind::reply, 1, "fxs1");
    reply.errors.push_back({196640, "Missing argument", "country"});
    counts.take(reply);
    Step broken = step(Step::Kind::one_way_call, 1, "fxs1");
    broken.record = Record{.kind = RecordKind::event, .fault = "too short"};
    counts.take(broken);
    counts.take(step(Step::Kind::refused, 1, "fxs1"));
    event(1, "fxs1", "");
    EXPECT_EQ(counts.sum(kSecond).errors, 3U);
}

TEST_F(CountsTest, NamesCannotSteerATerminalAndAreCut) {
    event(1, "fxs\x1B[2J\n" + std::string(100, 'x'), "");
    const std::string name = counts.rows(kSecond)[0].plugin;
    EXPECT_TRUE(name.starts_with("fxs\\x1B[2J\\x0Axxx"));
    EXPECT_EQ(name.size(), Counts::kMostName);
}

TEST_F(CountsTest, ManyNamesTakeThePlaceOfThoseThatAreGone) {
    event(1, "fxs1", "FXS1");
    for (uint32_t i = 0; i < 1'000; ++i) {
        event(2, "stranger" + std::to_string(i), "");
        counts.take(step(Step::Kind::closed, 2, "stranger" + std::to_string(i)));
    }
    EXPECT_EQ(counts.rows(kSecond).size(), Counts::kMost);
    event(3, "fxs2", "");
    const Names all = names();
    EXPECT_NE(std::find(all.begin(), all.end(), "fxs1 FXS1 1"), all.end());
    EXPECT_NE(std::find(all.begin(), all.end(), "fxs2  1"), all.end());
    EXPECT_EQ(counts.sum(kSecond).messages, 2'002U) << "the sums know those who made room";
}

TEST_F(CountsTest, BeyondTheLimitMessagesOfThoseWhoAreThereAreCountedWithoutAName) {
    for (int i = 0; i < 1'000; ++i)
        event(1, "fxs1", "E" + std::to_string(i));
    EXPECT_LE(counts.rows(kSecond).size(), Counts::kMost + 1);
    EXPECT_EQ(counts.sum(kSecond).messages, 1'000U);
    EXPECT_EQ(counts.rows(kSecond)[0].plugin, "");
}

TEST_F(CountsTest, WaitsWithoutANameAreCountedToo) {
    for (size_t i = 0; i < Counts::kMost; ++i)
        event(1, "fxs1", "E" + std::to_string(i));
    const Step beyond = call(1, "fxs1", "F", kSecond);
    call(1, "fxs1", "E1", kSecond);
    EXPECT_EQ(counts.sum(2 * kSecond).waits, 2U);
    EXPECT_EQ(counts.rows(2 * kSecond)[0].plugin, "");
    EXPECT_EQ(counts.rows(2 * kSecond)[0].waits, 1U);
    EXPECT_EQ(counts.rows(2 * kSecond)[0].longest_ns, kSecond);
    answer(beyond, kSecond);
    EXPECT_EQ(counts.sum(2 * kSecond).waits, 1U);
}

TEST_F(CountsTest, ProcessMayTakeAnotherNameWhenThereIsNoRoom) {
    for (size_t i = 0; i <= Counts::kMost; ++i)
        event(1, "fxs1", "E" + std::to_string(i));
    ASSERT_EQ(counts.rows(kSecond).size(), Counts::kMost + 1);
    event(1, "fxs2", "E1");
    EXPECT_LE(counts.rows(kSecond).size(), Counts::kMost);
    for (const Count &row : counts.rows(kSecond))
        EXPECT_EQ(row.plugin, row.endpoint.empty() ? "" : "fxs2");
    EXPECT_GE(counts.sum(kSecond).messages, Counts::kMost);
}

TEST_F(CountsTest, RatesAreTheDifferenceOfTwoLooks) {
    CountsRate rate(0);
    event(1, "fxs1", "FXS1");
    EXPECT_EQ(rate.look(counts, 2 * kSecond, true).rows[0].rate, 0.5);
    for (int i = 0; i < 10; ++i)
        event(1, "fxs1", "FXS1");
    const CountsView view = rate.look(counts, 4 * kSecond, true);
    EXPECT_EQ(view.rows[0].rate, 5);
    EXPECT_EQ(view.sum.rate, 5);
    EXPECT_EQ(rate.look(counts, 4 * kSecond, true).sum.rate, 0) << "no time has passed";
}

TEST_F(CountsTest, TableLeavesOutWhatIsAtRest) {
    for (int i = 0; i < 30; ++i)
        event(1, "fxs1", "E" + std::to_string(i));
    call(1, "fxs1", "E7", kSecond);
    CountsRate rate(0);
    const CountsView view = rate.look(counts, 3 * kSecond, true);
    const std::string text = counts_table(view, {.columns = 80, .lines = 10});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10);
    EXPECT_NE(text.find("E7 "), std::string::npos);
    EXPECT_NE(text.find("... 23 more"), std::string::npos);
    const std::string whole = counts_table(view, {});
    EXPECT_EQ(std::count(whole.begin(), whole.end(), '\n'), 32);
}

TEST_F(CountsTest, RowsOfATableAreNoWiderThanTheTerminal) {
    event(1, std::string(60, 'x'), std::string(60, 'y'));
    CountsRate rate(0);
    const CountsView view = rate.look(counts, kSecond, true);
    for (const size_t columns : {1U, 20U, 79U}) {
        std::string text = counts_table(view, {.columns = columns});
        for (size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
            EXPECT_LE(end, std::max<size_t>(columns, 3)) << text;
    }
}

} // namespace

} // namespace voicectl
