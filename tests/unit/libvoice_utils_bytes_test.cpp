// SPDX-License-Identifier: MIT
// Two characters as a byte, and the checksum.
#include "libvoice_utils_fixture.h"

#include "libvoice_utils.h"

namespace voice_test {
namespace {

class DataBlockBytes : public VoiceTest {};

TEST_F(DataBlockBytes, TwoCharactersReadAsTheStandardLibraryDoes) {
    struct Row {
        const char *text;
        unsigned value;
    };
    for (const Row row : {Row{"00", 0},
                          Row{"0A", 0x0A},
                          Row{"0a", 0x0A},
                          Row{"fF", 0xFF},
                          Row{"80", 0x80},
                          Row{" 5", 5},
                          Row{"\t7", 7},
                          Row{"\n7", 7},
                          Row{"5 ", 5},
                          Row{"  ", 0},
                          Row{"+5", 5},
                          Row{"-1", 0xFFFF},
                          Row{"-F", 0xFFF1},
                          Row{"-0", 0},
                          Row{"--", 0},
                          Row{"0x", 0},
                          Row{"x1", 0},
                          Row{"1x", 1},
                          Row{"g1", 0},
                          Row{"", 0},
                          Row{"A", 0x0A},
                          Row{"-", 0},
                          Row{"123", 0x12},
                          Row{"\xFF"
                              "1",
                              0},
                          Row{"1\x80", 0x1}})
        EXPECT_EQ(voice::libvoice_db_hex_byte(row.text), row.value) << '"' << row.text << '"';
}

TEST_F(DataBlockBytes, AChecksumIsThePlainSum) {
    EXPECT_EQ(voice::libvoice_db_verify_checksum("800080"), 1);
    EXPECT_EQ(voice::libvoice_db_verify_checksum("8003110101"
                                                 "96"),
              1);
    EXPECT_TRUE(bus().log().empty());
    // The two's complement that belongs on the line.
    EXPECT_EQ(voice::libvoice_db_verify_checksum("8003110101"
                                                 "6A"),
              0);
    EXPECT_LOG(wrong_checksum("0x6a", "6A"));
}

TEST_F(DataBlockBytes, AChecksumThatIsNotThereIsWrong) {
    for (const char *text : {"", "8", "80", "800", "8000", "80008", "80FF", "80-1", "-1-1"}) {
        bus().clear_log();
        EXPECT_EQ(voice::libvoice_db_verify_checksum(text), 0) << text;
        EXPECT_LOG(wrong_checksum("0x00", ""));
    }
    bus().clear_log();
    EXPECT_EQ(voice::libvoice_db_verify_checksum(nullptr), 0);
    EXPECT_LOG(wrong_checksum("0x00", ""));
}

} // namespace
} // namespace voice_test
