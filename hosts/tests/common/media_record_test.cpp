// SPDX-License-Identifier: MIT
#include "media_record.h"

#include "media_records.h"

#include <gtest/gtest.h>

TEST(MediaRecord, IsReadWhenItIsGood) {
    voice_stream_info_t info;
    line_media_t media;
    stream_of(&info, 5, LIBVOICE_CODEC_PCMU, 0);
    info.mode = VOICE_MODE_SEND_ONLY;
    EXPECT_EQ(media_read_stream(&info, &media), nullptr);
    EXPECT_EQ(media.stream, 5u);
    EXPECT_EQ(media.mode, static_cast<uint32_t>(VOICE_MODE_SEND_ONLY));
    EXPECT_EQ(media.codec, static_cast<uint32_t>(LIBVOICE_CODEC_PCMU));
    EXPECT_EQ(media.payload_type, 0u);
    EXPECT_EQ(media.ptime_ms, 20u);
    EXPECT_EQ(media.context, 0u);
    EXPECT_EQ(media.media, -1) << "descriptors travel beside it";
    EXPECT_EQ(media.control, -1);
}

TEST(MediaRecord, IsRefusedWithAReason) {
    voice_stream_info_t info;
    line_media_t media;
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 128);
    EXPECT_STREQ(media_read_stream(&info, &media), "both directions must have the same codec");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 8);
    info.mode = 4;
    EXPECT_STREQ(media_read_stream(&info, &media), "unknown stream mode");
    stream_of(&info, 1, LIBVOICE_CODEC_PCMA, 8);
    info.length = VOICE_CNX_PARAMETER_BYTES + 1;
    EXPECT_STREQ(media_read_stream(&info, &media), "media record is longer than its room");
    info.length = 0;
    EXPECT_STREQ(media_read_stream(&info, &media), "media record lacks codec or packet time");
    info.version = 2;
    EXPECT_STREQ(media_read_stream(&info, &media), "media record of another version");
}
