// SPDX-License-Identifier: MIT
// The vocabulary: its counts, its one irregular row, both look-ups against a plain search, the table for tools, and the
// texts of values.
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "identifier.h"
#include "libvoice_meanings.h"
#include "voice_test.h"

// Constants serve the preprocessor too.
#if LIBVOICE_SIGNAL_cg_dt != 0x10073000 || LIBVOICE_PARAM_tdmc_rxgain != 0x010D00FF || LIBVOICE_IDS != 265
#error "the identifiers are not those of the contract"
#endif

namespace voice_test {
namespace {

constexpr uint8_t id_package(uint32_t id) {
    return static_cast<uint8_t>(id >> 16);
}

using namespace voice;

constexpr uint32_t kNoIdentifier = 0xFFFFFFFFu;

// Null for what is none.
const char *name_of(uint32_t number) {
    const char *name = libvoice_param_str(number);
    return name[0] == 'L' ? name : nullptr;
}

class Vocabulary : public VoiceTest {
protected:
    const std::map<uint32_t, std::string> rows_ = {
#include "vocabulary_contract.inc"
    };
};

std::string package_of(const std::string &name) {
    const size_t start = name.find('_', strlen("LIBVOICE_")) + 1;
    return name.substr(start, name.find('_', start) - start);
}

TEST_F(Vocabulary, Holds265DifferentNumbersAndNames) {
    std::set<std::string> names;
    for (const auto &[number, name] : rows_)
        names.insert(name);
    EXPECT_EQ(rows_.size(), 265u);
    EXPECT_EQ(names.size(), 265u);
}

TEST_F(Vocabulary, EachPackageHasItsNumberAndItsCounts) {
    struct Package {
        const char *name;
        unsigned number, signals, events, parameters;
    };
    const Package packages[] = {
        {"g", 0x01, 0, 2, 2},     {"root", 0x02, 0, 0, 8},   {"tonegen", 0x03, 1, 0, 3}, {"tonedet", 0x04, 0, 3, 8},
        {"dg", 0x05, 16, 0, 16},  {"dd", 0x06, 0, 17, 2},    {"cg", 0x07, 9, 0, 0},      {"al", 0x09, 1, 3, 8},
        {"ct", 0x0A, 2, 1, 1},    {"nt", 0x0B, 0, 2, 6},     {"rtp", 0x0C, 0, 1, 6},     {"tdmc", 0x0D, 0, 0, 3},
        {"ctyp", 0x11, 0, 1, 2},  {"fax", 0x12, 0, 1, 1},    {"ipfax", 0x13, 0, 1, 5},   {"srvtn", 0x25, 3, 0, 0},
        {"alert", 0x3B, 3, 0, 2}, {"andisp", 0x3C, 3, 0, 7}, {"xal", 0x43, 2, 0, 0},     {"ajb", 0x7A, 0, 0, 6},
        {"fxo", 0xFA, 3, 2, 1},   {"fxoen", 0xFB, 1, 0, 1},  {"callsrv", 0xFD, 0, 9, 4}, {"zil", 0xFE, 2, 5, 50},
        {"sdp", 0xFF, 0, 0, 29},
    };
    unsigned total = 0;
    for (const Package &package : packages) {
        unsigned signals = 0, events = 0, parameters = 0;
        for (const auto &[number, name] : rows_) {
            EXPECT_EQ(package_of(name) == package.name, id_package(number) == package.number) << name;
            if (id_package(number) != package.number)
                continue;
            signals += name.find("LIBVOICE_SIGNAL_") == 0;
            events += name.find("LIBVOICE_EVENT_") == 0;
            parameters += name.find("LIBVOICE_PARAM_") == 0;
        }
        EXPECT_EQ(signals, package.signals) << package.name;
        EXPECT_EQ(events, package.events) << package.name;
        EXPECT_EQ(parameters, package.parameters) << package.name;
        total += signals + events + parameters;
    }
    EXPECT_EQ(total, 265u);
}

// A second list, kept apart from the one that everything is generated from.
const struct {
    uint32_t number;
    const char *name;
} kContract[] = {
#include "vocabulary_contract.inc"
};

TEST_F(Vocabulary, EveryRowIsTheContracts) {
    ASSERT_EQ(sizeof(kContract) / sizeof(kContract[0]), 265u);
    for (const auto &row : kContract) {
        EXPECT_STREQ(libvoice_param_str(row.number), row.name);
        EXPECT_EQ(libvoice_str_to_param(row.name), row.number) << row.name;
    }
}

TEST_F(Vocabulary, ConstantsHaveTheNumbersOfTheContract) {
    EXPECT_EQ(LIBVOICE_EVENT_g_cause, 0x20010100u);
    EXPECT_EQ(LIBVOICE_PARAM_root_MGCOriginatedPendingLimit, 0x01020007u);
    EXPECT_EQ(LIBVOICE_PARAM_tonegen_pt_tl, 0x13030101u);
    EXPECT_EQ(LIBVOICE_PARAM_tonedet_std_tid, 0x23040103u);
    EXPECT_EQ(LIBVOICE_SIGNAL_dg_da, 0x10051A00u);
    EXPECT_EQ(LIBVOICE_PARAM_dg_do_btd, 0x11052101u);
    EXPECT_EQ(LIBVOICE_PARAM_dd_ce_meth, 0x22060403u);
    EXPECT_EQ(LIBVOICE_SIGNAL_cg_rt, 0x10073100u);
    EXPECT_EQ(LIBVOICE_PARAM_al_ri_freq, 0x11090207u);
    EXPECT_EQ(LIBVOICE_EVENT_al_on, 0x20090400u);
    EXPECT_EQ(LIBVOICE_PARAM_al_on_init, 0x24090402u);
    EXPECT_EQ(LIBVOICE_PARAM_ct_cmp_res, 0x210A0508u);
    EXPECT_EQ(LIBVOICE_PARAM_rtp_pltrans_rtppltype, 0x230C0101u);
    EXPECT_EQ(LIBVOICE_PARAM_tdmc_ec, 0x040D0008u);
    EXPECT_EQ(LIBVOICE_SIGNAL_srvtn_mwt, 0x10255200u);
    EXPECT_EQ(LIBVOICE_PARAM_andisp_data_db, 0x133C0501u);
    EXPECT_EQ(LIBVOICE_SIGNAL_xal_nd, 0x10430400u);
    EXPECT_EQ(LIBVOICE_PARAM_ajb_ar, 0x017A000Du);
    EXPECT_EQ(LIBVOICE_PARAM_fxoen_sd_ds, 0x12FB0101u);
    EXPECT_EQ(LIBVOICE_EVENT_callsrv_reconnectcall, 0x20FD0900u);
    EXPECT_EQ(LIBVOICE_PARAM_zil_country, 0x02FE000Au);
    EXPECT_EQ(LIBVOICE_PARAM_zil_fxs_power, 0x03FE000Fu);
    EXPECT_EQ(LIBVOICE_PARAM_zil_call_stats_dscp, 0x21FE041Cu);
    EXPECT_EQ(LIBVOICE_PARAM_sdp_t38faxudpec, 0x01FF0068u);
}

TEST_F(Vocabulary, FieldsAreReadFromTheNumber) {
    EXPECT_EQ(id_class(0x10073100u), IdClass::signal);
    EXPECT_EQ(id_class(0x90073100u), IdClass::signal) << "bit 31 does not change the class";
    EXPECT_EQ(id_class(0x24090402u), IdClass::event);
    EXPECT_EQ(id_class(0x02FE000Au), IdClass::property);
    EXPECT_EQ(id_value_type(0x24090402u), ValueType::boolean);
    EXPECT_EQ(id_value_type(0x13030101u), ValueType::hex);
    EXPECT_EQ(id_value_type(0x10073100u), ValueType::none);
    EXPECT_EQ(id_package(0x24090402u), 0x09);
    EXPECT_EQ(id_item(0x24090402u), 0x04);
    EXPECT_EQ(id_sub_item(0x24090402u), 0x02);
    EXPECT_EQ(id_sub_item(0x010D00FFu), 0xFF);
}

TEST_F(Vocabulary, Bit31IsClearEverywhere) {
    for (const auto &[number, name] : rows_)
        EXPECT_EQ(number >> 31, 0u) << name;
}

TEST_F(Vocabulary, EveryParameterGivesBackItsSignalOrEvent) {
    for (const auto &[number, name] : rows_) {
        if (id_class(number) == IdClass::property || id_value_type(number) == ValueType::none)
            continue;
        const uint32_t owner = number & 0xF0FFFF00u;
        ASSERT_EQ(rows_.count(owner), 1u) << name;
        EXPECT_EQ(id_value_type(owner), ValueType::none) << name;
    }
    EXPECT_EQ(LIBVOICE_PARAM_al_ri_freq & 0xF0FFFF00u, LIBVOICE_SIGNAL_al_ri);
}

TEST_F(Vocabulary, OneParameterHasSubItemZeroLikeItsEvent) {
    std::set<uint32_t> irregular;
    for (const auto &[number, name] : rows_)
        if (id_value_type(number) != ValueType::none && id_sub_item(number) == 0)
            irregular.insert(number);
    EXPECT_EQ(irregular, std::set<uint32_t>{0x22FE0500u});
    EXPECT_EQ(LIBVOICE_PARAM_zil_dect_property_sw_version, 0x22FE0500u);
    EXPECT_EQ(LIBVOICE_EVENT_zil_dect_property, 0x20FE0500u);
}

TEST_F(Vocabulary, EveryRowIsFoundUnderItsNumberAndItsName) {
    for (const auto &[number, name] : rows_) {
        EXPECT_STREQ(name_of(number), name.c_str());
        EXPECT_EQ(libvoice_str_to_param(name.c_str()), number);
    }
}

TEST_F(Vocabulary, NumbersOneOrTwoBitsAwayAgreeWithAPlainSearch) {
    for (const auto &[number, name] : rows_) {
        for (uint32_t bits = 0; bits < 32 * 32; ++bits) {
            const uint32_t near = number ^ (1u << bits % 32) ^ (1u << bits / 32);
            const auto known = rows_.find(near);
            ASSERT_STREQ(name_of(near), known == rows_.end() ? nullptr : known->second.c_str()) << std::hex << near;
        }
    }
}

TEST_F(Vocabulary, NumbersEverywhereAgreeWithAPlainSearch) {
    uint32_t number = 1;
    for (int i = 0; i < 300000; ++i) {
        number = number * 1664525u + 1013904223u;
        ASSERT_EQ(name_of(number) != nullptr, rows_.count(number) == 1) << std::hex << number;
    }
    EXPECT_EQ(name_of(0u), nullptr);
    EXPECT_EQ(name_of(0xFFFFFFFFu), nullptr);
}

TEST_F(Vocabulary, NamesChangedInOneCharacterAreUnknown) {
    for (const auto &[number, name] : rows_) {
        for (size_t i = 0; i < name.size(); ++i) {
            for (const char c : {'_', 'a', 'x', 'Z', '0', '1', '\x80', '\xFF'}) {
                std::string changed = name;
                changed[i] = c;
                const auto known = rows_.find(libvoice_str_to_param(changed.c_str()));
                if (known != rows_.end()) {
                    ASSERT_EQ(changed, known->second);
                } else {
                    ASSERT_EQ(libvoice_str_to_param(changed.c_str()), kNoIdentifier);
                }
            }
            ASSERT_EQ(libvoice_str_to_param(name.c_str() + i + 1), kNoIdentifier) << "a tail of " << name;
        }
    }
}

TEST_F(Vocabulary, OnlyWholeNamesAreFound) {
    std::set<std::string> names;
    for (const auto &[number, name] : rows_)
        names.insert(name);
    for (const std::string &name : names) {
        for (size_t length = 0; length < name.size(); ++length) {
            const std::string prefix = name.substr(0, length);
            ASSERT_EQ(libvoice_str_to_param(prefix.c_str()) != kNoIdentifier, names.count(prefix) == 1) << prefix;
        }
        ASSERT_EQ(libvoice_str_to_param((name + " ").c_str()), kNoIdentifier);
        ASSERT_EQ(libvoice_str_to_param((" " + name).c_str()), kNoIdentifier);
    }
    EXPECT_EQ(libvoice_str_to_param(static_cast<const char *>(nullptr)), kNoIdentifier);
    EXPECT_EQ(libvoice_str_to_param(""), kNoIdentifier);
}

TEST_F(Vocabulary, AnEndlessNameIsReadNoFurtherThanTheLongestOne) {
    // 52 characters is the longest name; the 53rd settles it. Nothing behind it may be touched.
    const std::string longest = "LIBVOICE_PARAM_root_MGCProvisionalResponseTimerValue";
    ASSERT_EQ(longest.size(), 52u);
    EXPECT_EQ(libvoice_str_to_param(longest.c_str()), LIBVOICE_PARAM_root_MGCProvisionalResponseTimerValue);
    char *unterminated = new char[53];
    memset(unterminated, 'x', 53);
    memcpy(unterminated, longest.data(), 52);
    EXPECT_EQ(libvoice_str_to_param(unterminated), kNoIdentifier);
    delete[] unterminated;
}

TEST_F(Vocabulary, LookUpsNeedNoHeap) {
    const unsigned before = fake::memory_allocations();
    for (const auto &[number, name] : rows_) {
        EXPECT_EQ(libvoice_param_str(number), name_of(number));
        EXPECT_EQ(libvoice_str_to_param(name.c_str()), number);
    }
    EXPECT_EQ(libvoice_str_to_param("LIBVOICE_PARAM_unknown"), 0xFFFFFFFFu);
    EXPECT_EQ(fake::memory_allocations(), before);
}

// ------------------------------------------------------------------------------------------- the table for tools

TEST_F(Vocabulary, TheTableForToolsHasTheSameRowsSortedByNumber) {
    ASSERT_EQ(sizeof libvoice_meanings / sizeof libvoice_meanings[0], 265u);
    uint32_t before = 0;
    for (const libvoice_meaning &meaning : libvoice_meanings) {
        EXPECT_LT(before, meaning.number);
        before = meaning.number;
        ASSERT_EQ(rows_.count(meaning.number), 1u) << meaning.name;
        EXPECT_EQ(meaning.name, rows_.at(meaning.number));
        EXPECT_EQ(libvoice_meaning_of(meaning.number), &meaning);
    }
}

TEST_F(Vocabulary, UnknownNumbersHaveNoMeaning) {
    for (const uint32_t number : {0u, 0x01020000u, 0x24090503u, 0x20090501u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        EXPECT_EQ(libvoice_meaning_of(number), nullptr) << std::hex << number;
}

TEST_F(Vocabulary, ShortMeaningsAreOneToThreeWords) {
    for (const libvoice_meaning &row : libvoice_meanings) {
        const std::string meaning = row.meaning;
        unsigned words = 1;
        for (const char c : meaning)
            words += c == ' ';
        EXPECT_FALSE(meaning.empty()) << row.name;
        EXPECT_LE(words, 3u) << meaning;
    }
    EXPECT_STREQ(libvoice_meaning_of(LIBVOICE_EVENT_al_of)->meaning, "off hook");
    EXPECT_STREQ(libvoice_meaning_of(LIBVOICE_EVENT_al_on)->meaning, "on hook");
    EXPECT_STREQ(libvoice_meaning_of(LIBVOICE_SIGNAL_cg_dt)->meaning, "dial tone");
    EXPECT_STREQ(libvoice_meaning_of(LIBVOICE_EVENT_dd_do)->meaning, "DTMF #");
}

TEST_F(Vocabulary, HexValuesSayWhetherTheyHoldWordsOrBytes) {
    const auto content = [](uint32_t number) { return libvoice_meaning_of(number)->hex; };
    EXPECT_EQ(content(LIBVOICE_PARAM_al_ri_cad), 'w');
    EXPECT_EQ(content(LIBVOICE_PARAM_tonegen_pt_tl), 'w');
    EXPECT_EQ(content(LIBVOICE_PARAM_andisp_dwa_ddb), 'b');
    EXPECT_EQ(content(LIBVOICE_PARAM_andisp_data_db), 'b');
    EXPECT_EQ(content(LIBVOICE_PARAM_fxo_ri_cid), 'b');
    EXPECT_EQ(content(LIBVOICE_PARAM_zil_rtcp_tx_pkt), 'b');
    EXPECT_EQ(content(LIBVOICE_PARAM_al_ri_freq), 0);
    EXPECT_EQ(content(LIBVOICE_EVENT_al_on), 0);
    for (const libvoice_meaning &row : libvoice_meanings)
        EXPECT_EQ(row.hex == 'w' || row.hex == 'b', id_value_type(row.number) == ValueType::hex) << row.name;
}

// ---------------------------------------------------------------------------------------------- names and values

TEST_F(Vocabulary, NamesLoseTheirPrefix) {
    EXPECT_STREQ(name_without_prefix("LIBVOICE_SIGNAL_cg_dt"), "cg_dt");
    EXPECT_STREQ(name_without_prefix("LIBVOICE_EVENT_al_of"), "al_of");
    EXPECT_STREQ(name_without_prefix("LIBVOICE_PARAM_zil_call_stats_MOSLQ"), "zil_call_stats_MOSLQ");
    EXPECT_STREQ(name_without_prefix("LIBVOICE_PARAM_"), "");
    for (const char *name : {"", "????", "sig_nil", "cg_dt", "LIBVOICE_PARAM", "LIBVOICE_param_x", "LIBVOICE_OTHER_x"})
        EXPECT_STREQ(name_without_prefix(name), name);
}

std::string value_of(uint32_t id, const std::string &bytes) {
    char text[64];
    const int length = value_text(text, sizeof text, id, bytes.data(), static_cast<uint32_t>(bytes.size()));
    EXPECT_EQ(static_cast<size_t>(length), strlen(text));
    return text;
}

TEST_F(Vocabulary, ValuesAreShownByTheirType) {
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_freq, word(25)), "25");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_freq, word(0xFFFFFFE7u)), "-25");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_cad, word(1000) + word(4000)), "0x000003e8");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_of_init, word(0)), "false");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_of_init, word(2)), "true");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_zil_country, "FR"), "FR");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_zil_country, std::string("F\0R", 3)), "F") << "it ends at its terminator";
    EXPECT_EQ(value_of(LIBVOICE_PARAM_zil_country, "a b "), "a b ");
    EXPECT_EQ(value_of(LIBVOICE_SIGNAL_cg_dt, word(1)), "");
    EXPECT_EQ(value_of(0x05FE0001u, word(1)), "???") << "an undefined type";
}

TEST_F(Vocabulary, BytesThatAShortValueLacksCountAsZero) {
    uint32_t first = 0;
    memcpy(&first, "\x7F", 1);
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_freq, "\x7F"), std::to_string(first));
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_freq, ""), "0");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_ri_cad, ""), "0x00000000");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_al_of_init, ""), "false");
    EXPECT_EQ(value_of(LIBVOICE_PARAM_zil_country, ""), "");
    char text[8];
    EXPECT_EQ(value_text(text, sizeof text, LIBVOICE_PARAM_zil_country, nullptr, 0), 0);
    EXPECT_STREQ(text, "");
}

TEST_F(Vocabulary, AValueIsCutToItsRoomAndTerminated) {
    char text[5] = "####";
    EXPECT_EQ(value_text(text, 4, LIBVOICE_PARAM_zil_country, "abcdef", 6), 6) << "the length it would have";
    EXPECT_EQ(std::string(text, 5), std::string("abc\0\0", 5));
    EXPECT_EQ(value_text(nullptr, 0, LIBVOICE_PARAM_zil_country, "abcdef", 6), 6);
}

} // namespace
} // namespace voice_test
