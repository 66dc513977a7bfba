// SPDX-License-Identifier: MIT
// What goes wrong with the packets and the clocks of a call: each packet is heard or counted, and then the call goes on.
#include "session_fixture.h"

#include <sys/syscall.h>
#include <time.h>

namespace {

int64_t day_moved; // s, by which the clock of the day was set

class SessionFaults : public Session {
protected:
    struct sender {
        uint16_t sequence;
        uint32_t time;
        uint32_t source;
    };
    // A packet to the second end, in place of the first one's.
    void put(const sender &from) {
        Packet packet(12 + 160, 0xD5);
        packet[0] = 0x80;
        packet[1] = 8;
        put16(packet.data() + 2, from.sequence);
        put32(packet.data() + 4, from.time);
        put32(packet.data() + 8, from.source);
        for (size_t i = 12; i < packet.size(); i++) // 400 Hz
            packet[i] = i % 20 < 10 ? 0x2A : 0xAA;
        send(media_[1][1], packet.data(), packet.size(), 0);
        read_all();
    }
    // So many packets in time, 20 ms each.
    void put_all(sender *from, uint32_t count) {
        for (; count > 0; count--, from->sequence++, from->time += 160) {
            put(*from);
            now_ns += 20 * kMs;
            sampling_clock_advance();
        }
    }
    void listen() {
        open();
        change(0, VOICE_MODE_INACTIVE);
        change(1, VOICE_MODE_RECEIVE_ONLY);
    }
    void begin_anew() {
        TearDown();
        SetUp();
        listen();
    }
    // Whether the loop has nothing to do at last.
    static bool comes_to_rest() {
        int turns = 0;
        while (turns < 100 && kex_dispatch(bus_) > 0)
            turns++;
        return turns < 100;
    }
    // Packets that came, by what is said of them: those of the stream, and others. What is dropped of the stream is both.
    static uint32_t accounted() {
        const line_statistics_t said = counts(1);
        return said.rx_packets + said.discarded - said.late - said.overruns - said.duplicates;
    }
};

} // namespace

// In place of the C library's: the clock of the day can be set.
extern "C" int clock_gettime(clockid_t clock, timespec *now) {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    now->tv_sec += clock == CLOCK_REALTIME ? static_cast<time_t>(day_moved) : 0;
    return result;
}

// Of every length, from 0 to 1,500 bytes: three are sound, and what is not is counted.
TEST_F(SessionFaults, EveryLengthIsHeardOrDiscardedAndCounted) {
    open();
    uint32_t sound = 0;
    for (uint32_t size = 0; size <= 1500; size++) {
        Packet packet(size, 0xD5);
        if (size >= 12) {
            packet[0] = 0x80;
            packet[1] = 8;
            put16(packet.data() + 2, static_cast<uint16_t>(size));
            put32(packet.data() + 4, size * 160);
            put32(packet.data() + 8, 77);
        }
        sound += size == 92 || size == 172 || size == 252;
        send(media_[1][1], packet.data(), packet.size(), 0);
        if (size % 16 == 0)
            read_all();
    }
    read_all();
    EXPECT_EQ(counts(1).rx_packets, sound);
    EXPECT_EQ(counts(1).rx_packets + counts(1).discarded - counts(1).late - counts(1).overruns, 1501u);
    EXPECT_EQ(counts(1).lost, 0u) << "all of them came";
}

TEST_F(SessionFaults, ReportsOfEveryLengthCountOnlyWhenTheyAre) {
    open();
    for (uint32_t size = 0; size <= 1500; size++) {
        Packet packet(size, 0);
        for (uint32_t at = 0; at + 4 <= size; at += 4) { // bare heads, one behind the other
            packet[at] = 0x80;
            packet[at + 1] = 201;
        }
        send(control_[1][1], packet.data(), packet.size(), 0);
        if (size % 16 == 0)
            read_all();
    }
    read_all();
    EXPECT_EQ(counts(1).rx_reports, 1500 / 4 - 1u) << "whole words, and at least the source";
}

// By so many sequence numbers, and the same time as if they had been sent; or the time alone.
TEST_F(SessionFaults, JumpsOfSequenceAndTimeAreFollowed) {
    constexpr int32_t kJumps[] = {1, -1, 99, -99, 2998, 2999, 3000, -3000, 32768, -32768};
    listen();
    for (int32_t jump : kJumps)
        for (bool with_time : {false, true})
            for (bool with_sequence : {false, true}) {
                sender from = {1000, 50000, 77};
                begin_anew();
                put_all(&from, 20);
                from.sequence = static_cast<uint16_t>(from.sequence + (with_sequence ? jump : 0));
                from.time += static_cast<uint32_t>(with_time ? jump * 160 : 0);
                put_all(&from, 60);
                SCOPED_TRACE(testing::Message()
                             << jump << (with_sequence ? " sequence" : "") << (with_time ? " time" : ""));
                EXPECT_TRUE(hears(1)) << "a second later";
                EXPECT_EQ(accounted(), 80u);
                EXPECT_LE(counts(1).discarded, jump < 0 && with_sequence ? 101u : 4u);
                const bool is_gap = with_sequence && jump > 0 && jump < 2999;
                EXPECT_EQ(counts(1).lost, is_gap ? static_cast<uint32_t>(jump) : 0u);
            }
}

TEST_F(SessionFaults, ATimeThatStandsStillOrGoesBackEndsNothing) {
    for (int32_t step : {0, -160, -1, 1, 159}) {
        sender from = {1, 400000, 77};
        listen();
        for (uint32_t i = 0; i < 50; i++, from.sequence++) {
            put(from);
            from.time += static_cast<uint32_t>(step);
            now_ns += 20 * kMs;
            sampling_clock_advance();
        }
        from.time = 9000000;
        put_all(&from, 50);
        EXPECT_TRUE(hears(1)) << step;
        EXPECT_EQ(accounted(), 100u) << step;
        TearDown();
        SetUp();
    }
}

TEST_F(SessionFaults, SixtyFourSourcesInTurnLeaveTheFirstItsVoice) {
    sender from = {1, 0, 77};
    listen();
    put_all(&from, 10);
    for (uint32_t source = 0; source < 640; source++) {
        put({static_cast<uint16_t>(source * 7), source * 100000, 1000 + source % 64});
        if (source % 4 == 0)
            put_all(&from, 1);
    }
    EXPECT_TRUE(hears(1));
    EXPECT_EQ(counts(1).rx_packets, 170u);
    EXPECT_EQ(counts(1).discarded, 640u);
    EXPECT_EQ(counts(1).lost + counts(1).late, 0u);
}

// First drivers and benches send back what comes as it is, and whoever tries them wants to hear it.
TEST_F(SessionFaults, PlainEchoIsHeard) {
    open();
    change(0, VOICE_MODE_INACTIVE);
    run(200);
    sender from = {1000, 50000, parsed(passed_[1].back()).ssrc};
    put_all(&from, 20);
    EXPECT_TRUE(hears(1));
    EXPECT_EQ(counts(1).rx_packets, 20u);
    EXPECT_EQ(counts(1).discarded, 0u);
}

TEST_F(SessionFaults, AClockOfTheDayThatIsSetMovesNothing) {
    open();
    run(2500);
    for (int64_t moved : {-86400, 3600, -1}) {
        day_moved += moved;
        const size_t before = reports_[0].size();
        run(5000);
        ASSERT_EQ(reports_[0].size(), before + 1) << moved;
        const uint8_t *last = reports_[0][before - 1].data(), *report = reports_[0][before].data();
        EXPECT_EQ(get32(report + 8) - get32(last + 8), 5u) << "seconds by the clock of the call";
        EXPECT_EQ(get32(report + 16) - get32(last + 16), 40000u);
        EXPECT_TRUE(hears(0) && hears(1)) << moved;
    }
    EXPECT_EQ(counts(0).round_trip_ms, 1u);
    EXPECT_EQ(counts(0).concealed_ms + counts(0).late + counts(0).lost, 0u);
    day_moved = 0;
}

// Whoever made the sockets may have kept copies of them.
TEST_F(SessionFaults, ASocketThatIsShutDownKeepsNobodyAwake) {
    for (int how : {SHUT_RDWR, SHUT_RD}) {
        open();
        run(100);
        for (int fd : {ends[1].session.media.media, ends[1].session.media.control})
            shutdown(fd, how);
        ASSERT_TRUE(comes_to_rest()) << how;
        run(100);
        EXPECT_EQ(counts(0).tx_packets, 10u) << how;
        TearDown();
        SetUp();
    }
}

TEST_F(SessionFaults, ErrorsThatNobodyAskedForKeepNobodyAwake) {
    constexpr int kOn = 1;
    open();
    run(100);
    setsockopt(ends[0].session.media.media, IPPROTO_IP, IP_RECVERR, &kOn, sizeof kOn);
    close(media_[0][1]); // nobody listens there any more
    for (int packets = 0; packets < 3; packets++) {
        now_ns += 20 * kMs;
        sampling_clock_advance();
    }
    EXPECT_TRUE(comes_to_rest());
    media_[0][1] = dup(control_[0][1]); // which is closed at the end
}
