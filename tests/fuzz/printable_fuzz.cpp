// SPDX-License-Identifier: MIT
// Texts from outside as hosts and voicectl show them: any bytes become text that steers no terminal, and text that does
// not stays as it is.
#include "printable.h"
#include "text.h"

#include "require.h"
#include "terminal.h"

using fuzz::require;
using fuzz::steers_a_terminal;

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    std::string text(reinterpret_cast<const char *>(bytes), size);
    text = text.substr(0, text.find('\0'));
    const bool is_harmless = !steers_a_terminal(text) && text.find('\n') == std::string::npos;

    std::string line = text;
    line_make_printable(line.data());
    require(line.size() == text.size(), "a host's line has the bytes that it had");
    require(!steers_a_terminal(line) && line.find('\n') == std::string::npos, "a host's line steers no terminal");
    require(!is_harmless || line == text, "what is harmless a host shows as it is");
    text_make_printable(line.data());
    require(line.find('"') == std::string::npos, "a quoted text ends with its quote");

    const std::string shown = voicectl::printable(text);
    require(!steers_a_terminal(shown) && shown.find('\n') == std::string::npos,
            "what voicectl shows steers no terminal");
    const bool has_escapes = text.find('\\') != std::string::npos; // which are written twice
    require(!is_harmless || has_escapes || shown == text, "what is harmless voicectl shows as it is");
    return 0;
}
