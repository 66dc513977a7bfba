// SPDX-License-Identifier: MIT
// Codec numbers and DECT handset types, each against the whole table.

#include <cstdint>
#include <map>

#include "voice_test.h"

namespace voice_test {
namespace {

class Codec : public VoiceTest {};

// Numbers as they stand in records of shipped hosts, not the constants that a slip could change with them.
const std::map<int32_t, uint32_t> kRates = {
    {0, 8000},    {3, 8000},    {4, 8000},    {5, 8000},    {6, 16000},   {7, 8000},    {8, 8000},    {9, 16000},
    {10, 44100},  {11, 44100},  {12, 8000},   {13, 8000},   {15, 8000},   {16, 11025},  {17, 22050},  {18, 8000},
    {128, 8000},  {129, 8000},  {130, 8000},  {131, 8000},  {132, 8000},  {133, 8000},  {134, 8000},  {135, 8000},
    {136, 8000},  {137, 8000},  {138, 16000}, {139, 16000}, {140, 32000}, {141, 8000},  {142, 16000}, {143, 16000},
    {144, 8000},  {145, 8000},  {146, 8000},  {147, 8000},  {148, 16000}, {149, 32000}, {150, 48000}, {151, 8000},
    {152, 16000}, {153, 48000}, {154, 8000},  {155, 8000},  {156, 8000},  {157, 8000},  {158, 8000},  {159, 8000},
    {160, 16000}, {161, 24000}, {162, 32000}, {163, 48000}, {164, 32000}, {165, 8000},  {166, 8000},  {167, 8000},
    {168, 16000},
};

TEST_F(Codec, EveryNumberHasItsRateOrOneTraceMessage) {
    for (int32_t codec = -2; codec <= 300; ++codec) {
        bus().clear_log();
        const auto known = kRates.find(codec);
        if (known != kRates.end()) {
            EXPECT_EQ(libvoice_codec_sampling_rate(codec), known->second) << "codec " << codec;
            EXPECT_TRUE(bus().log().empty()) << "codec " << codec;
            continue;
        }
        EXPECT_EQ(libvoice_codec_sampling_rate(codec), 0u) << "codec " << codec;
        EXPECT_LOG("x[MEDIA] libvoice_codec_sampling_rate@libvoice_codec: codec " + std::to_string(codec) +
                   " has no fixed sampling rate");
    }
}

TEST_F(Codec, NumbersFarOutsideHaveNoRate) {
    for (const int32_t codec : {INT32_MIN, -1, 96, 127, 192, 255, 256, 0x10000, INT32_MAX}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_codec_sampling_rate(codec), 0u) << "codec " << codec;
        EXPECT_EQ(bus().complaints().size(), 1u) << "codec " << codec;
    }
}

TEST_F(Codec, TheRateIsThatOfTheAudioNotOfTheRtpClock) {
    EXPECT_EQ(libvoice_codec_sampling_rate(LIBVOICE_CODEC_G722), 16000u) << "its RTP clock is 8000";
}

TEST_F(Codec, HandsetTypesHaveTheirTexts) {
    EXPECT_STREQ(libvoice_dect_pp_type_str(0), "unknown");
    EXPECT_STREQ(libvoice_dect_pp_type_str(1), "GAP");
    EXPECT_STREQ(libvoice_dect_pp_type_str(2), "CAT-iq 1.0");
    EXPECT_STREQ(libvoice_dect_pp_type_str(3), "CAT-iq 2.0");
    EXPECT_STREQ(libvoice_dect_pp_type_str(4), "CAT-iq 2.1");
    EXPECT_STREQ(libvoice_dect_pp_type_str(5), "CAT-iq 3.0");
    EXPECT_STREQ(libvoice_dect_pp_type_str(6), "ULE");
    EXPECT_STREQ(libvoice_dect_pp_type_str(7), "HAN-FUN");
    EXPECT_STREQ(libvoice_dect_pp_type_str(8), "repeater");
    EXPECT_STREQ(libvoice_dect_pp_type_str(9), "headset");
}

TEST_F(Codec, AnyOtherHandsetTypeIsUnknownWithoutATraceMessage) {
    for (const int32_t type : {10, 11, 255, -1, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(libvoice_dect_pp_type_str(type), "????") << type;
    EXPECT_TRUE(bus().log().empty());
}

} // namespace
} // namespace voice_test
