// SPDX-License-Identifier: MIT
// The two families of result codes and their texts.
#include "voice_test.h"

namespace voice_test {
namespace {

const char *const kTexts[] = {
    /* 0 */ "success",
    /* 1 */ "connection to voice service was not established or was disconnected",
    /* 2 */ "invalid endpoint ID",
    /* 3 */ "unknown or invalid signal or event type",
    /* 4 */ "invalid argument",
    /* 5 */ "media failed due to codec mismatch, lack of resources, or unavailability",
    /* 6 */ "media is not currently active",
    /* 7 */ "parameter was not found",
    /* 8 */ "incorrectly formatted parameter buffer",
    /* 9 */ "insufficient space in parameter buffer",
};

class Strerror : public VoiceTest {};

TEST_F(Strerror, EachLibraryCodeHasItsText) {
    for (uint32_t code = 0; code < 10; ++code) {
        EXPECT_STREQ(libvoice_strerror(code), kTexts[code]) << "code " << code;
        EXPECT_STREQ(libvoice_result_texts[code], kTexts[code]) << "code " << code;
    }
    EXPECT_EQ(sizeof(libvoice_result_texts) / sizeof(libvoice_result_texts[0]), 10u);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Strerror, LibraryCodesOutOfRangeShareOneTextWithoutATrace) {
    for (const uint32_t code : {10u, 11u, 12u, 13u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_STREQ(libvoice_strerror(code), "Uknowm error value") << "code " << code;
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Strerror, EachServiceCodeHasItsText) {
    EXPECT_EQ(sizeof(voice_service_result_texts) / sizeof(voice_service_result_texts[0]), 13u);
    for (uint32_t code = 0; code < 10; ++code) {
        const char *expected = code == 1 ? "connection not established or was disconnected" : kTexts[code];
        EXPECT_STREQ(voice_service_strerror(code), expected) << "code " << code;
        EXPECT_STREQ(voice_service_result_texts[code], expected) << "code " << code;
    }
    EXPECT_STREQ(voice_service_strerror(10), "message from unknown voice plugin");
    EXPECT_STREQ(voice_service_strerror(12), "insufficient space to register endpoint");
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Strerror, EqualTextsAreShared) {
    for (uint32_t code = 0; code < 10; ++code)
        if (code != 1) {
            EXPECT_EQ(voice_service_result_texts[code], libvoice_result_texts[code]) << "code " << code;
        }
    EXPECT_STRNE(voice_service_strerror(1), libvoice_strerror(1));
}

TEST_F(Strerror, ServiceCodeElevenIsDeliberatelyEmpty) {
    EXPECT_EQ(voice_service_strerror(11), nullptr);
    EXPECT_EQ(voice_service_result_texts[11], nullptr);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Strerror, ServiceCodesOutOfRangeWarnInZoneGen) {
    const struct {
        uint32_t code;
        const char *line;
    } rows[] = {
        {13, "![GEN] voice_service_strerror@voice_service: err (13) is invalid"},
        {0x7FFFFFFFu, "![GEN] voice_service_strerror@voice_service: err (2147483647) is invalid"},
        {0xFFFFFFFFu, "![GEN] voice_service_strerror@voice_service: err (-1) is invalid"},
    };
    for (const auto &row : rows) {
        bus().clear_log();
        EXPECT_STREQ(voice_service_strerror(row.code), "invalid error code");
        EXPECT_LOG(row.line);
        ASSERT_EQ(bus().traces().size(), 1u);
        EXPECT_EQ(bus().traces()[0].level, 200);
        EXPECT_EQ(bus().traces()[0].message_format, "err (%d) is invalid");
        EXPECT_THAT(bus().traces()[0].rendered, testing::StartsWith("GEN     - [!]err ("));
    }
}

TEST_F(Strerror, CodesHaveTheirNumbers) {
    EXPECT_EQ(LIBVOICE_OK, 0);
    EXPECT_EQ(LIBVOICE_ERR_NOT_CONNECTED, 1);
    EXPECT_EQ(LIBVOICE_ERR_INVALID_ENDPOINT, 2);
    EXPECT_EQ(LIBVOICE_ERR_INVALID_TYPE, 3);
    EXPECT_EQ(LIBVOICE_ERR_INVALID_ARG, 4);
    EXPECT_EQ(LIBVOICE_ERR_MEDIA_FAILED, 5);
    EXPECT_EQ(LIBVOICE_ERR_MEDIA_INACTIVE, 6);
    EXPECT_EQ(LIBVOICE_ERR_PARAM_NOT_FOUND, 7);
    EXPECT_EQ(LIBVOICE_ERR_PARAM_FORMAT, 8);
    EXPECT_EQ(LIBVOICE_ERR_PARAM_NO_SPACE, 9);
    EXPECT_EQ(VOICE_SERVICE_OK, 0);
    EXPECT_EQ(VOICE_SERVICE_ERR_NOT_CONNECTED, 1);
    EXPECT_EQ(VOICE_SERVICE_ERR_INVALID_ENDPOINT, 2);
    EXPECT_EQ(VOICE_SERVICE_ERR_INVALID_TYPE, 3);
    EXPECT_EQ(VOICE_SERVICE_ERR_INVALID_ARG, 4);
    EXPECT_EQ(VOICE_SERVICE_ERR_MEDIA_FAILED, 5);
    EXPECT_EQ(VOICE_SERVICE_ERR_MEDIA_INACTIVE, 6);
    EXPECT_EQ(VOICE_SERVICE_ERR_PARAM_NOT_FOUND, 7);
    EXPECT_EQ(VOICE_SERVICE_ERR_PARAM_FORMAT, 8);
    EXPECT_EQ(VOICE_SERVICE_ERR_PARAM_NO_SPACE, 9);
    EXPECT_EQ(VOICE_SERVICE_ERR_UNKNOWN_PLUGIN, 10);
    EXPECT_EQ(VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE, 12);
}

} // namespace
} // namespace voice_test
