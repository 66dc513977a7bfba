// SPDX-License-Identifier: MIT
// Records as voicectl's text, and back: what is whole comes back as long as it was and says the same.
#include "block.h"
#include "input.h"
#include "params_text.h"
#include "require.h"
#include "terminal.h"

using fuzz::require;
using voicectl::ByteOrder;
using voicectl::Bytes;
using voicectl::ParamsForm;

namespace {

void harmless_check(const std::string &text) {
    require(!fuzz::steers_a_terminal(text), "text steers no terminal");
}

void sentence_check(const std::string &sentence) {
    harmless_check(sentence);
    require(sentence.find('\n') == std::string::npos, "a sentence is one line");
}

void bytes_try(ParamsForm form, ByteOrder order, const std::string &input) {
    const Bytes bytes(input.begin(), input.end());
    const voicectl::ParamsRead read = params_read(form, order, bytes);
    harmless_check(read.text);
    harmless_check(read.json);
    sentence_check(read.problem);
    if (!read.problem.empty())
        return;
    const voicectl::ParamsWritten written = params_write(form, order, read.text);
    require(written.problem.empty(), "what was read is written");
    require(written.bytes.size() == bytes.size(), "it comes back as long as it was");
    require(params_read(form, order, written.bytes).text == read.text, "it says the same");
}

void text_try(ParamsForm form, ByteOrder order, const std::string &input) {
    const voicectl::ParamsWritten written = params_write(form, order, input);
    sentence_check(written.problem);
    if (written.problem.empty() && written.bytes.size() <= voicectl::kMostParamsBytes)
        require(params_read(form, order, written.bytes).problem.empty(), "what was written is whole");
}

void block_try(const std::string &input) {
    const voicectl::Block block = voicectl::block_read(input);
    sentence_check(block.problem);
    if (!block.problem.empty())
        return;
    harmless_check(block_text(block));
    harmless_check(block_json(block));
    require(voicectl::block_read(block.line_hex).hex == block.hex, "both checksums stand for the same block");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz::Input input(bytes, size);
    const auto form = static_cast<ParamsForm>(input.below(4));
    const ByteOrder order = input.flag() ? ByteOrder::big : ByteOrder::little;
    switch (input.below(3)) {
    case 0:
        bytes_try(form, order, input.rest());
        break;
    case 1:
        text_try(form, order, input.rest());
        break;
    default:
        block_try(input.rest());
    }
    return 0;
}
