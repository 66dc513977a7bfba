// SPDX-License-Identifier: MIT
// The tables of docs/line.md are those of the sources. With VOICE_WRITE_PAGES set the test writes them.
#include "country.h"
#include "country_tones.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char *kCodes[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};
constexpr char kBegin[] = "<!-- generated: countries -->\n\n", kEnd[] = "\n<!-- end -->";

// The cells of one tone: each pattern once, with the countries that have it and how sure each is.
std::string tone_rows(network_tone tone) {
    std::vector<std::pair<std::string, std::string>> patterns;
    for (const char *code : kCodes) {
        const tone_cell *cell = country_tone(code, tone);
        const std::string who = std::string(code) + " " + cell->confidence + (cell->is_disputed ? "!" : "");
        auto known = patterns.begin();
        while (known != patterns.end() && known->first != cell->text)
            ++known;
        if (known == patterns.end())
            patterns.emplace_back(cell->text, who);
        else
            known->second += ", " + who;
    }
    std::string rows;
    for (const auto &[pattern, countries] : patterns)
        rows += std::string("| ") + network_tone_name(tone) + " | `" + pattern + "` | " + countries + " |\n";
    return rows;
}

std::string ring_row(const char *code) {
    const country_rules *rules = country_find(code);
    std::string cadence;
    for (uint32_t i = 0; i < rules->cadence_words; i++)
        cadence += (i == 0 ? "" : "/") + std::to_string(rules->cadence[i]);
    return std::string("| ") + code + " | " + cadence + " " + rules->cadence_confidence + " | " +
           std::to_string(rules->ring_frequency) + " " + rules->frequency_confidence + " | " + rules->emergency +
           " |\n";
}

std::string tables() {
    std::string text = "| tone | pattern | countries |\n|---|---|---|\n";
    for (uint32_t tone = 0; tone < TONES; tone++)
        text += tone_rows(static_cast<network_tone>(tone));
    text += "\n| country | rings, ms on and off | Hz | emergency numbers |\n|---|---|---|---|\n";
    for (const char *code : kCodes)
        text += ring_row(code);
    return text;
}

} // namespace

TEST(LinePage, HasTheTablesOfTheSources) {
    std::ostringstream read;
    read << std::ifstream(LINE_PAGE).rdbuf();
    std::string page = read.str();
    const size_t begin = page.find(kBegin);
    ASSERT_NE(begin, page.npos);
    const size_t first = begin + sizeof kBegin - 1, end = page.find(kEnd, first);
    ASSERT_NE(end, page.npos);
    if (getenv("VOICE_WRITE_PAGES") != nullptr)
        std::ofstream(LINE_PAGE) << page.replace(first, end - first, tables());
    else
        EXPECT_EQ(page.substr(first, end - first), tables())
            << "write them: VOICE_WRITE_PAGES=1 build/bin/hosts_tests --gtest_filter=LinePage.*";
}
