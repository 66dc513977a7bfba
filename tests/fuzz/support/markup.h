// SPDX-License-Identifier: MIT
// Whether a text is XML of the few elements that a picture has.
#ifndef FUZZ_MARKUP_H
#define FUZZ_MARKUP_H

#include "require.h"
#include "terminal.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

namespace fuzz {

class MarkupReader {
public:
    explicit MarkupReader(std::string_view text) : rest_(text) {}

    void check() {
        while (!rest_.empty())
            rest_.front() == '<' ? tag() : character();
        require(open_.empty(), "every element ends");
    }

private:
    // A text outside of tags and in the values of attributes.
    void character() {
        constexpr std::string_view kNames[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
        if (rest_.front() == '&') {
            const auto *name = std::find_if(std::begin(kNames), std::end(kNames),
                                            [this](std::string_view one) { return rest_.starts_with(one); });
            require(name != std::end(kNames), "an ampersand begins the name of a character");
            rest_.remove_prefix(name->size());
            return;
        }
        require(rest_.front() != '<' && rest_.front() != '>', "markup stands in tags only");
        const char32_t code = character_take(rest_);
        require(code <= 0x10FFFF && (code & 0xFFFE) != 0xFFFE && (code >= 0x20 || code == '\n'),
                "XML has the character");
    }

    void tag() {
        rest_.remove_prefix(1);
        const bool ends = taken("/");
        const std::string_view name = word();
        constexpr std::string_view kElements[] = {"svg",  "title", "style", "defs", "pattern",
                                                  "path", "rect",  "text",  "g",    "circle"};
        require(std::find(std::begin(kElements), std::end(kElements), name) != std::end(kElements),
                "an element is one of a picture's");
        if (ends) {
            require(!open_.empty() && open_.back() == name && taken(">"), "an element ends where it should");
            open_.pop_back();
            return;
        }
        while (taken(" "))
            attribute();
        const bool is_empty = taken("/");
        require(taken(">"), "a tag ends");
        if (!is_empty)
            open_.push_back(name);
    }

    void attribute() {
        const std::string_view name = word();
        require(!name.empty() && !name.starts_with("on") && name != "href" && taken("=\""),
                "an attribute has a name and a value, and runs nothing");
        while (!rest_.empty() && rest_.front() != '"')
            character();
        require(taken("\""), "a value ends with its quote");
    }

    std::string_view word() {
        const size_t end = std::min(rest_.find_first_of(" =/>\"<"), rest_.size());
        const std::string_view taken = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return taken;
    }

    bool taken(std::string_view mark) {
        if (!rest_.starts_with(mark))
            return false;
        rest_.remove_prefix(mark.size());
        return true;
    }

    std::string_view rest_;
    std::vector<std::string_view> open_{};
};

inline void markup_check(std::string_view text) {
    MarkupReader(text).check();
}

} // namespace fuzz

#endif
