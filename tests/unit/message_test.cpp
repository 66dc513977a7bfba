// SPDX-License-Identifier: MIT
// Names of identifiers and the dump of a parameter buffer.
#include "message.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "voice_test.h"

namespace voice_test {
namespace {

class ParamStr : public VoiceTest {};
class StrToParam : public VoiceTest {};
class ClassStr : public VoiceTest {};
class DumpMsg : public VoiceTest {};

TEST_F(ParamStr, GivesTheNameOfEachKind) {
    EXPECT_STREQ(libvoice_param_str(0x10073100), "LIBVOICE_SIGNAL_cg_rt");
    EXPECT_STREQ(libvoice_param_str(0x20090400), "LIBVOICE_EVENT_al_on");
    EXPECT_STREQ(libvoice_param_str(0x02FE000A), "LIBVOICE_PARAM_zil_country");
    EXPECT_STREQ(libvoice_param_str(0x010D00FF), "LIBVOICE_PARAM_tdmc_rxgain");
    EXPECT_STREQ(libvoice_param_str(0x22FE0500), "LIBVOICE_PARAM_zil_dect_property_sw_version");
    EXPECT_STREQ(libvoice_param_str(0x20FE0500), "LIBVOICE_EVENT_zil_dect_property");
}

TEST_F(ParamStr, ZeroIsTheNullIdentifier) {
    EXPECT_STREQ(libvoice_param_str(0), "sig_nil");
}

TEST_F(ParamStr, UnknownIdentifiersAreQuestionMarksWithoutATraceMessage) {
    EXPECT_STREQ(libvoice_param_str(0x10073101), "????");
    EXPECT_STREQ(libvoice_param_str(0x90073100), "????") << "bit 31 set";
    EXPECT_STREQ(libvoice_param_str(0x11073100), "????") << "another value type";
    EXPECT_STREQ(libvoice_param_str(0x80000000), "????");
    EXPECT_STREQ(libvoice_param_str(0xFFFFFFFF), "????");
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(StrToParam, GivesTheIdentifierOfAName) {
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_zil_fxs_power"), 0x03FE000Fu);
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_SIGNAL_cg_rt"), 0x10073100u);
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_zil_call_stats_MOSLQ"), 0x21FE0416u);
}

TEST_F(StrToParam, ComparesWholeNamesExactly) {
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_ZIL_FXS_POWER"), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param("libvoice_param_zil_fxs_power"), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_zil_fxs_power "), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param(" LIBVOICE_PARAM_zil_fxs_power"), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_zil_fxs_powe"), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_zil_fxs_powers"), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param(""), 0xFFFFFFFFu);
    EXPECT_EQ(libvoice_str_to_param("????"), 0xFFFFFFFFu);
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(StrToParam, NullIsUnknown) {
    EXPECT_EQ(libvoice_str_to_param(nullptr), 0xFFFFFFFFu);
}

TEST_F(StrToParam, TheNullIdentifiersTextIsNoName) {
    EXPECT_STREQ(libvoice_param_str(0), "sig_nil");
    EXPECT_EQ(libvoice_str_to_param("sig_nil"), 0xFFFFFFFFu);
}

TEST_F(StrToParam, InvertsNamesOfEveryKind) {
    for (const uint32_t id :
         {0x20010100u, 0x01020008u, 0x13030101u, 0x11052101u, 0x24090402u, 0x22FE0500u, 0x01FF0068u})
        EXPECT_EQ(libvoice_str_to_param(libvoice_param_str(id)), id);
}

TEST_F(ClassStr, EachClassHasItsWord) {
    EXPECT_STREQ(voice::libvoice_class_str(0x10073100), "sig");
    EXPECT_STREQ(voice::libvoice_class_str(0x20090400), "evt");
    EXPECT_STREQ(voice::libvoice_class_str(0x02FE000A), "prop");
    EXPECT_STREQ(voice::libvoice_class_str(0), "prop");
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(ClassStr, Bit31DoesNotChangeTheClass) {
    EXPECT_STREQ(voice::libvoice_class_str(0x90073100), "sig");
    EXPECT_STREQ(voice::libvoice_class_str(0xA0090400), "evt");
    EXPECT_STREQ(voice::libvoice_class_str(0x80000000), "prop");
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(ClassStr, AnyOtherClassIsQuestionMarksAndOneTraceMessage) {
    for (uint32_t cls = 3; cls <= 7; ++cls) {
        bus().clear_log();
        EXPECT_STREQ(voice::libvoice_class_str(cls << 28), "????");
        EXPECT_LOG(text("x libvoice_class_str@message: uknown class for 0x%08x", cls << 28));
    }
}

// -------------------------------------------------------------------------------------------------- dump_msg

// Dumps from memory of exactly the buffer's size into memory of exactly `size` bytes, so that the sanitizer sees any
// step outside; what is not written keeps its '~'. The result ends at the terminator.
std::string dumped(const std::string &params, int32_t position = 0, int32_t size = 1000, std::string *all = nullptr) {
    const size_t bytes = params.size();
    void *from = malloc(bytes ? bytes : 1);
    memcpy(from, params.data(), bytes);
    std::vector<char> text(static_cast<size_t>(size), '~');
    dump_msg(text.data(), position, size, from, static_cast<uint32_t>(bytes));
    free(from);
    std::string result(text.begin(), text.end());
    if (all)
        *all = result;
    return result.substr(static_cast<size_t>(position)).c_str();
}

TEST_F(DumpMsg, AnEventAndItsBooleanParameter) {
    EXPECT_EQ(dumped(item(0x20090400, "") + item(0x24090402, word(1))),
              "evt LIBVOICE_EVENT_al_on evt LIBVOICE_PARAM_al_on_init true ");
}

TEST_F(DumpMsg, ItemsRunTogetherInOneText) {
    EXPECT_EQ(dumped(item(0x20090400, "") + item(0x10073100, "")),
              "evt LIBVOICE_EVENT_al_on sig LIBVOICE_SIGNAL_cg_rt ");
}

TEST_F(DumpMsg, AStringItem) {
    EXPECT_EQ(dumped(item(0x02FE000A, std::string("FR\0", 3))), "prop LIBVOICE_PARAM_zil_country FR ");
}

TEST_F(DumpMsg, AHexItemShowsItsFirstWord) {
    EXPECT_EQ(dumped(item(0x03FE000F, word(1))), "prop LIBVOICE_PARAM_zil_fxs_power 0x00000001 ");
    EXPECT_EQ(dumped(item(0x13090206, word(1000) + word(4000))), "sig LIBVOICE_PARAM_al_ri_cad 0x000003e8 ");
}

TEST_F(DumpMsg, IntegersAreSigned) {
    EXPECT_EQ(dumped(item(0x11090207, word(25))), "sig LIBVOICE_PARAM_al_ri_freq 25 ");
    EXPECT_EQ(dumped(item(0x010D000A, word(0xFFFFFFFD))), "prop LIBVOICE_PARAM_tdmc_gain -3 ");
    EXPECT_EQ(dumped(item(0x010D000A, word(0x80000000))), "prop LIBVOICE_PARAM_tdmc_gain -2147483648 ");
}

TEST_F(DumpMsg, AnyWordButZeroIsTrue) {
    EXPECT_EQ(dumped(item(0x040D0008, word(0))), "prop LIBVOICE_PARAM_tdmc_ec false ");
    EXPECT_EQ(dumped(item(0x040D0008, word(0x80000000))), "prop LIBVOICE_PARAM_tdmc_ec true ");
    EXPECT_EQ(dumped(item(0x040D0008, word(0x100))), "prop LIBVOICE_PARAM_tdmc_ec true ");
}

TEST_F(DumpMsg, AValueOfATypeWithoutValueIsSteppedOver) {
    EXPECT_EQ(dumped(item(0x20090400, word(7)) + item(0x10073100, "")),
              "evt LIBVOICE_EVENT_al_on sig LIBVOICE_SIGNAL_cg_rt ");
}

TEST_F(DumpMsg, AnUnknownValueTypeIsQuestionMarksAndOneTraceMessage) {
    for (uint32_t type = 5; type <= 15; ++type) {
        bus().clear_log();
        const uint32_t id = 0x10073100 | type << 24;
        EXPECT_EQ(dumped(item(id, word(1))), "sig ???? ??? ") << type;
        EXPECT_LOG(text("x dump_msg@message: unknown param type for id 0x%08x", id));
    }
}

TEST_F(DumpMsg, AnUnknownIdentifierHasAnUnknownName) {
    EXPECT_EQ(dumped(item(0x11090299, word(5))), "sig ???? 5 ");
    EXPECT_EQ(dumped(item(0, "")), "prop sig_nil ");
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(DumpMsg, TheLineAboutTheTypeComesBeforeThatAboutTheClass) {
    EXPECT_EQ(dumped(item(0x77000000, word(1))), "???? ???? ??? ");
    EXPECT_LOG("x dump_msg@message: unknown param type for id 0x77000000",
               "x libvoice_class_str@message: uknown class for 0x77000000");
}

TEST_F(DumpMsg, WritesNoLineOfItsOwn) {
    dumped(item(0x20090400, "") + item(0x24090402, word(1)) + item(0x03FE000F, word(1)));
    EXPECT_TRUE(bus().log().empty());
}

TEST_F(DumpMsg, AnEmptyBufferWritesNothingNotEvenATerminator) {
    std::string all;
    dumped(std::string(), 0, 16, &all);
    EXPECT_EQ(all, std::string(16, '~'));
}

TEST_F(DumpMsg, StartsAtThePosition) {
    std::string all;
    dumped(item(0x040D0008, word(1)), 5, 60, &all);
    EXPECT_EQ(all.substr(0, 5), "~~~~~");
    EXPECT_STREQ(all.c_str() + 5, "prop LIBVOICE_PARAM_tdmc_ec true ");
}

// "prop LIBVOICE_PARAM_tdmc_ec true " has 33 characters.
TEST_F(DumpMsg, ATextIsCutAndTerminatedAtTheBuffersEnd) {
    const std::string whole = "prop LIBVOICE_PARAM_tdmc_ec true ";
    ASSERT_EQ(whole.size(), 33u);
    for (int32_t size = 1; size <= 40; ++size) {
        std::string all;
        const std::string text = dumped(item(0x040D0008, word(1)), 0, size, &all);
        EXPECT_EQ(text, whole.substr(0, static_cast<size_t>(size) - 1)) << "size " << size;
        if (size > 34) {
            EXPECT_EQ(all.substr(34), std::string(static_cast<size_t>(size) - 34, '~')) << "size " << size;
        }
    }
}

TEST_F(DumpMsg, NothingIsWrittenOnceAnItemWasCut) {
    // The first item fills its 33 characters to the last; the second could fit nowhere.
    const std::string params = item(0x040D0008, word(1)) + item(0x040D0008, word(0));
    EXPECT_EQ(dumped(params, 0, 33), "prop LIBVOICE_PARAM_tdmc_ec true");
    EXPECT_EQ(dumped(params, 0, 34), "prop LIBVOICE_PARAM_tdmc_ec true ");
    EXPECT_EQ(dumped(params, 0, 35), "prop LIBVOICE_PARAM_tdmc_ec true p");
}

TEST_F(DumpMsg, LinesAreTheSameWhenTheTextDoesNotFit) {
    dumped(item(0x040D0008, word(1)) + item(0x17000000, word(1)), 0, 4);
    EXPECT_LOG("x dump_msg@message: unknown param type for id 0x17000000");
}

TEST_F(DumpMsg, AnyRoomBelowOneWritesNothing) {
    struct Room {
        int32_t position, size;
    };
    const std::string params = item(0x040D0008, word(1));
    for (const Room room : {Room{0, 0}, Room{0, -1}, Room{0, INT32_MIN}, Room{8, 8}, Room{9, 8}, Room{INT32_MAX, 8},
                            Room{-1, 8}, Room{INT32_MIN, 8}, Room{INT32_MIN, INT32_MAX}, Room{-5, -3},
                            Room{INT32_MAX, INT32_MAX}, Room{INT32_MAX, INT32_MIN}}) {
        char text[] = "~~~~~~~~";
        dump_msg(text, room.position, room.size, params.data(), static_cast<uint32_t>(params.size()));
        EXPECT_STREQ(text, "~~~~~~~~") << room.position << " of " << room.size;
    }
}

TEST_F(DumpMsg, AHugeSizeIsOnlyAPromise) {
    char text[64];
    const std::string params = item(0x040D0008, word(1));
    dump_msg(text, 0, INT32_MAX, params.data(), static_cast<uint32_t>(params.size()));
    EXPECT_STREQ(text, "prop LIBVOICE_PARAM_tdmc_ec true ");
}

TEST_F(DumpMsg, NullPointersAreHarmless) {
    const std::string params = item(0x17000000, word(1));
    dump_msg(nullptr, 0, 100, params.data(), static_cast<uint32_t>(params.size()));
    char text[] = "~~~~";
    dump_msg(text, 0, 4, nullptr, 12);
    EXPECT_STREQ(text, "~~~~");
}

TEST_F(DumpMsg, BytesThatAShortValueLacksCountAsZero) {
    // In memory order: the bytes that are there are a word's first ones.
    const auto word_of = [](std::vector<uint8_t> bytes) {
        bytes.resize(4);
        uint32_t word;
        memcpy(&word, bytes.data(), 4);
        return word;
    };
    const std::string value = "\x11\x22\x33";
    for (size_t length = 0; length <= 3; ++length) {
        const std::string part = value.substr(0, length);
        const uint32_t word = word_of(std::vector<uint8_t>(part.begin(), part.end()));
        EXPECT_EQ(dumped(item(0x03FE000F, part)), text("prop LIBVOICE_PARAM_zil_fxs_power 0x%08x ", word));
        EXPECT_EQ(dumped(item(0x010D000A, part)),
                  text("prop LIBVOICE_PARAM_tdmc_gain %d ", static_cast<int32_t>(word)));
        EXPECT_EQ(dumped(item(0x040D0008, part)), text("prop LIBVOICE_PARAM_tdmc_ec %s ", length ? "true" : "false"));
    }
}

TEST_F(DumpMsg, PaddingThatIsNotZeroIsNoPartOfAShortValue) {
    EXPECT_EQ(dumped(word(0x03FE000F) + word(1) + std::string("\0\xFF\xFF\xFF", 4)),
              "prop LIBVOICE_PARAM_zil_fxs_power 0x00000000 ");
}

TEST_F(DumpMsg, AnUnterminatedTextEndsWithItsItem) {
    EXPECT_EQ(dumped(item(0x02FE000A, "FRAN") + item(0x10073100, "")),
              "prop LIBVOICE_PARAM_zil_country FRAN sig LIBVOICE_SIGNAL_cg_rt ");
    EXPECT_EQ(dumped(word(0x02FE000A) + word(2) + "FRAN"), "prop LIBVOICE_PARAM_zil_country FR ");
    EXPECT_EQ(dumped(item(0x02FE000A, "F")), "prop LIBVOICE_PARAM_zil_country F ");
    EXPECT_EQ(dumped(item(0x02FE000A, "")), "prop LIBVOICE_PARAM_zil_country  ");
}

TEST_F(DumpMsg, ATextEndsAtItsFirstZero) {
    EXPECT_EQ(dumped(item(0x02FE000A, std::string("F\0R\0", 4))), "prop LIBVOICE_PARAM_zil_country F ");
}

TEST_F(DumpMsg, AnItemCutOffEndsTheDump) {
    struct Case {
        uint32_t length;
        size_t value_bytes;
    };
    for (const Case c : {Case{4, 0}, Case{1, 0}, Case{5, 4}, Case{10, 8}, Case{0x7FFFFFFF, 4}, Case{0x80000000, 4},
                         Case{0xFFFFFFFC, 4}, Case{0xFFFFFFFD, 4}, Case{0xFFFFFFFF, 4}}) {
        const std::string cut = word(0x03FE000F) + word(c.length) + std::string(c.value_bytes, 'x');
        EXPECT_EQ(dumped(item(0x20090400, "") + cut), "evt LIBVOICE_EVENT_al_on ") << "length " << c.length;
    }
    // What stands behind a head that promises more than there is belongs to its value, whatever it looks like.
    const std::string hidden = word(0x03FE000F) + word(100) + item(0x10073100, "");
    EXPECT_EQ(dumped(item(0x20090400, "") + hidden), "evt LIBVOICE_EVENT_al_on ");
}

TEST_F(DumpMsg, ATailOfLessThanAHeadEndsTheDump) {
    for (size_t tail = 1; tail < 8; ++tail) {
        const std::string cut = item(0x10073100, "").substr(0, tail);
        EXPECT_EQ(dumped(item(0x20090400, "") + cut), "evt LIBVOICE_EVENT_al_on ") << tail << " bytes of a head";
    }
}

TEST_F(DumpMsg, RoomOf800BytesPer64OfParametersSuffices) {
    // The longest line per byte of buffer: the longest name without a value, eight times in 64 bytes.
    std::string params;
    for (int i = 0; i < 8; ++i)
        params += item(0x01020006, "");
    ASSERT_EQ(params.size(), 64u);
    EXPECT_LT(dumped(params, 0, 2000).size(), 800u);
}

} // namespace
} // namespace voice_test
