// SPDX-License-Identifier: MIT
// What a capture keeps of a message, byte for byte, and which addresses it gives to processes.
#include "capture_record.h"

#include <cstring>

#include <gtest/gtest.h>

using namespace voicectl;

namespace {

kex_tap_end_t end_of(const char *name, int32_t process, uint32_t connection) {
    kex_tap_end_t end{process, connection, ""};
    std::strncpy(end.name, name, sizeof end.name - 1);
    return end;
}

kex_tap_record_t record_of(int32_t kind, const char *text = "") {
    kex_tap_record_t record{};
    record.kind = kind;
    record.from = end_of("fxs", 0x01020304, 7);
    record.to = end_of("app", 258, 0);
    record.text = text;
    return record;
}

TEST(CaptureRecord, HeadIsBigEndianAndNamesStandBeforeTheMessage) {
    const std::string wanted("v\x01\x03\x00\x00\x26\x00\x00"    // head of 38 bytes, no text
                             "\x01\x02\x03\x04\x00\x00\x00\x07" // who sent it, on which connection
                             "\x00\x00\x01\x02\x00\x00\x00\x00" // to whom
                             "\x00\x00\x00\x05\x03\x03\x00\x00"
                             "fxsapp"
                             "kmessage",
                             46);
    EXPECT_EQ(capture_record(record_of(KEX_TAP_CALL), "kmessage", 5), wanted);
}

TEST(CaptureRecord, TextOfAnEventStandsBehindTheNames) {
    const std::string bytes = capture_record(record_of(KEX_TAP_CLOSED, "gone"), "", 0);
    EXPECT_EQ(bytes.substr(4, 4), std::string("\x00\x2A\x00\x04", 4));
    EXPECT_EQ(bytes.substr(32), "fxsappgone");
    const std::string cut = capture_record(record_of(KEX_TAP_CLOSED, std::string(5000, 'x').c_str()), "", 0);
    EXPECT_EQ(cut.size(), 32u + 6u + 1024u);
}

TEST(CaptureRecord, NameThatFillsItsRoomHasNoTerminator) {
    kex_tap_record_t record = record_of(KEX_TAP_CALL);
    std::memset(record.from.name, 'x', sizeof record.from.name);
    EXPECT_EQ(capture_record(record, "", 0).substr(32), std::string(64, 'x') + "app");
}

TEST(CaptureAddresses, EachProcessHasOneAndIsNamedOnce) {
    CaptureAddresses addresses;
    EXPECT_EQ(addresses.address_of(end_of("app", 100, 0)), 0x7F010001u);
    EXPECT_EQ(addresses.address_of(end_of("fxs", 200, 1)), 0x7F010002u);
    EXPECT_EQ(addresses.address_of(end_of("fxs", 200, 9)), 0x7F010002u) << "another connection of the same process";
    EXPECT_NE(addresses.name_block(end_of("fxs", 200, 1)), "");
    EXPECT_EQ(addresses.name_block(end_of("fxs", 200, 1)), "");
    EXPECT_NE(addresses.name_block(end_of("dect", 200, 2)), "") << "its number was given anew";
    EXPECT_EQ(addresses.name_block(end_of("", 201, 3)), "") << "refused before it said who it is";
}

TEST(CaptureAddresses, ProcessesWithoutEndKeepInTheLoopbackNetwork) {
    CaptureAddresses addresses;
    for (int32_t process = 1; process < 70'000; process++)
        ASSERT_EQ(addresses.address_of(end_of("", process, 1)) >> 16, 0x7F01u) << process;
}

} // namespace
