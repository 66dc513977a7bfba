// SPDX-License-Identifier: MIT
// Ladders as text, Mermaid, SVG and data of the page: what they look like, and that no text of the bus is markup.
#include "ladder_text.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "byte_order.h"
#include "capture_record.h"
#include "ladder_feed.h"
#include "ladder_page.h"
#include "ladder_page_parts.h"
#include "ladder_svg.h"
#include "libvoice_plugin.h"
#include "samples.h"

using namespace voicectl;

namespace {

constexpr auto kIn = Sample::Direction::in;
constexpr auto kOut = Sample::Direction::out;

LadderModel small_ladder() {
    LadderFeed feed{Filter()};
    const auto take = [&feed](auto &&sample) { feed.take(sample.record()); };
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 1000)
             .call(1, "VoiceService.VoiceApplication", "register_plugin")
             .with_text("plugin_name", "fxs_a"));
    take(Sample(KEX_TAP_WAITING, kIn, 1, "fxs_plugin", 3000).serial(1));
    take(Sample(KEX_TAP_REPLY, kOut, 1, "fxs_plugin", 4500).serial(1).with_bool("", true));
    take(Sample(KEX_TAP_ONE_WAY_CALL, kOut, 1, "fxs_plugin", 4600)
             .call(2, "fxs_a.EndPoint.FXS1", "signal")
             .with_bytes("signal", signal_bytes(4, LIBVOICE_SIGNAL_al_ri)));
    take(Sample(KEX_TAP_ONE_WAY_CALL, kIn, 1, "fxs_plugin", 4700)
             .call(3, "VoiceService.VoiceApplication", "event")
             .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of)));
    take(Sample(KEX_TAP_CALL, kOut, 1, "fxs_plugin", 4701).call(4, "fxs_a.EndPoint.FXS1", "create"));
    take(Sample(KEX_TAP_REPLY, kIn, 1, "fxs_plugin", 4702).serial(4).with_bool("", false));
    return feed.finish("evening.pcapng");
}

// Texts that would be markup, script, another form of the diagram, or steer what is around them.
constexpr const char *kHostile[] = {"</script><script>alert(1)</script>",
                                    "<img src=x onerror=alert(1)>",
                                    "<!--",
                                    "]]>",
                                    "\" onload=\"alert(1)",
                                    "end",
                                    "p0->>p1: x; #35;",
                                    "\xE2\x80\xAE evil",
                                    "a\nNote over p0: b",
                                    "\xFF\xFE",
                                    "%DATA%%SCRIPT%",
                                    "\xE2\x80\xA8"};

LadderModel hostile_ladder(const char *text) {
    LadderFeed feed{Filter()};
    Sample call(KEX_TAP_CALL, kIn, 1, text, 1);
    call.call(1, text, text).with_text("plugin_name", text).with_text(text, text);
    Sample reply(KEX_TAP_REPLY, kOut, 1, text, 2);
    reply.serial(1).with_error(1, text, text).with_text("", text);
    Sample closed(KEX_TAP_CLOSED, kIn, 1, text, 3);
    closed.text(text);
    for (Sample *one : {&call, &reply, &closed})
        feed.take(one->record());
    return feed.finish(text);
}

TEST(LadderText, DrawsLanesArrowsGapsAndBlockedCallers) {
    const std::string wanted =
        "  time (s)            FXS1                      fxs_a               voice_application\n"
        "    0.0000              │                         │─── ‖ register_plugin ──>│\n"
        "    +2.0 s              ┆                         ▒                         ┃\n"
        "    2.0000              │                         ▒ ! register_plugin is waited for, 2...\n";
    EXPECT_EQ(ladder_text(small_ladder(), 89, 2), wanted) << ladder_text(small_ladder(), 89);
}

TEST(LadderText, LanesHaveFourteenColumnsAtLeast) {
    const LadderModel ladder = small_ladder();
    EXPECT_EQ(ladder_text_columns(ladder), 11u + 3 * 14);
    EXPECT_EQ(ladder_text(ladder, 1), ladder_text(ladder, 53));
}

TEST(LadderText, MermaidHasAnArrowForEachKind) {
    EXPECT_EQ(ladder_mermaid(small_ladder()), "sequenceDiagram\n"
                                              "    participant p0 as FXS1\n"
                                              "    participant p1 as fxs_a\n"
                                              "    participant p2 as voice_application\n"
                                              "    p1->>p2: register_plugin\n"
                                              "    Note over p1: register_plugin is waited for#44; 2.0 s so far\n"
                                              "    p2-->>p1: true after 3.5 s\n"
                                              "    p2->>p0: al_ri ring\n"
                                              "    p0-)p2: al_of off hook\n"
                                              "    p2->>p0: create\n"
                                              "    p0--xp2: false after 1.00 ms\n");
}

TEST(LadderText, MermaidTextsAreNoPartOfItsLanguage) {
    for (const char *text : kHostile) {
        const LadderModel ladder = hostile_ladder(text);
        const std::string diagram = ladder_mermaid(ladder);
        EXPECT_EQ(std::count(diagram.begin(), diagram.end(), '\n'),
                  static_cast<ptrdiff_t>(1 + ladder.lanes.size() + ladder.rows.size()));
        EXPECT_EQ(diagram.find('<'), std::string::npos);
        EXPECT_EQ(diagram.find(" end"), std::string::npos);
    }
}

TEST(LadderText, DataOfThePageIsJsonWithoutMarkup) {
    for (const char *text : kHostile) {
        const std::string json = ladder_json(hostile_ladder(text));
        EXPECT_TRUE(nlohmann::json::accept(json)) << json;
        EXPECT_EQ(json.find_first_of("<>&"), std::string::npos);
        EXPECT_EQ(json.find("\xE2\x80"), std::string::npos) << "nothing that turns a line around";
    }
}

TEST(LadderText, DataOfThePageNamesItsTextsByNumber) {
    const nlohmann::json data = nlohmann::json::parse(ladder_json(small_ladder()));
    EXPECT_EQ(data["title"], "evening.pcapng");
    EXPECT_EQ(data["begin"], 1000);
    EXPECT_EQ(data["lanes"][0], nlohmann::json::parse(R"(["FXS1", 2, 1])"));
    const auto &row = data["rows"][3];
    EXPECT_EQ(row[0], 3'600'000);
    EXPECT_EQ(row[1], 0);
    EXPECT_EQ(data["texts"][row[5].get<size_t>()], "al_ri");
    EXPECT_EQ(data["texts"][row[6].get<size_t>()], "ring");
    EXPECT_EQ(data["rows"][0][8], 2) << "its answer";
    EXPECT_EQ(data["rows"][2][8], 0) << "and back";
}

TEST(LadderText, PageHoldsOneScriptWhateverTheTexts) {
    const auto count = [](const std::string &page, std::string_view what) {
        size_t found = 0;
        for (size_t at = page.find(what); at != std::string::npos; at = page.find(what, at + 1))
            ++found;
        return found;
    };
    for (const char *text : kHostile) {
        const std::string page = ladder_page(hostile_ladder(text));
        EXPECT_EQ(count(page, "<script"), 2u) << "its data and its script";
        EXPECT_EQ(count(page, "</script"), 2u);
        EXPECT_EQ(count(page, "<img"), 0u);
        EXPECT_EQ(count(page, "%STYLE%"), 0u);
        EXPECT_NE(page.find(kLadderPageScript), std::string::npos);
        EXPECT_EQ(count(page, "http://"), count(std::string(kLadderPageScript), "http://")) << "it fetches nothing";
        EXPECT_EQ(count(page, "https://"), 0u);
    }
}

TEST(LadderText, SvgTextsAreNoMarkup) {
    for (const char *text : kHostile) {
        const std::string svg = ladder_svg(hostile_ladder(text));
        for (const char *markup : {"<script", "<img", "<!--", "onload=\"", "\xE2\x80\xAE", "]]>"})
            EXPECT_EQ(svg.find(markup), std::string::npos) << markup;
    }
}

TEST(LadderText, SvgHasSoManyRowsAtMost) {
    const LadderModel ladder = small_ladder();
    const auto rows = [](const std::string &svg) {
        size_t found = 0;
        for (size_t at = svg.find("<g>"); at != std::string::npos; at = svg.find("<g>", at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(rows(ladder_svg(ladder)), ladder.rows.size());
    EXPECT_EQ(rows(ladder_svg(ladder, 2)), 2u);
}

// The bytes of a call as a capture has them, with any one of them changed: it is drawn, or said to be broken.
TEST(LadderText, AnyBrokenByteIsDrawnOrSaid) {
    std::string body;
    const auto add = [&body](const std::string &text) {
        const auto size = static_cast<uint32_t>(text.size());
        body.append(reinterpret_cast<const char *>(&size), sizeof size).append(text);
    };
    const Bytes signal = signal_bytes(4, LIBVOICE_SIGNAL_al_ri);
    add("fxs_a.EndPoint.FXS1");
    add("signal");
    body += '\1';
    add("signal");
    body += '\x13';
    add({signal.begin(), signal.end()});
    const uint32_t words[] = {7, 0, static_cast<uint32_t>(20 + body.size()), 0};
    const std::string order = byte_order_here() == ByteOrder::little ? "k\x02l\x03"
                                                                     : "k\x02"
                                                                       "B\x03";
    kex_tap_record_t record{};
    record.kind = KEX_TAP_ONE_WAY_CALL;
    record.from = {100, 0, "voice_application"};
    record.to = {200, 3, "fxs_plugin"};
    record.text = "";
    const std::string whole =
        capture_record(record, order + std::string(reinterpret_cast<const char *>(words), sizeof words) + body, 0);
    for (size_t at = 0; at < whole.size(); ++at)
        for (const int change : {0x01, 0x7F, 0x80, 0xFF}) {
            std::string broken = whole;
            broken[at] = static_cast<char>(broken[at] ^ change);
            LadderFeed feed{Filter()};
            feed.take(CapturedPacket{.time_ns = 1, .dissector = "kexbus", .bytes = whole});
            feed.take(CapturedPacket{.time_ns = 2, .dissector = "kexbus", .bytes = broken});
            const LadderModel ladder = feed.finish("x");
            ASSERT_TRUE(nlohmann::json::accept(ladder_json(ladder))) << at;
            ASSERT_NE(ladder_text(ladder, 80).find("al_ri"), std::string::npos);
        }
}

TEST(LadderText, EmptyLadderIsDrawnToo) {
    LadderFeed feed{Filter()};
    const LadderModel ladder = feed.finish("");
    EXPECT_TRUE(nlohmann::json::accept(ladder_json(ladder)));
    EXPECT_EQ(ladder_mermaid(ladder), "sequenceDiagram\n");
    EXPECT_NE(ladder_svg(ladder).find("</svg>"), std::string::npos);
    EXPECT_EQ(ladder_text(ladder, 80), "  time (s)\n");
}

} // namespace
