// SPDX-License-Identifier: MIT
// Words of a buffer as trace messages.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

class PrintBuffer : public Handlers {};

TEST_F(PrintBuffer, TheAddressAdvancesByOneByte) {
    const std::string bytes = "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c";
    for (const uint32_t length : {0u, 1u, 3u, 4u, 7u, 8u, 12u}) {
        bus().clear_log();
        char *block = static_cast<char *>(malloc(length + 1)) + 1; // an odd address, exact at its end
        memcpy(block, bytes.data(), length);
        debug_libvoice_print_buffer(block, length);
        std::vector<std::string> expected;
        for (uint32_t i = 0; i < length / 4; ++i)
            expected.push_back(text("x debug_libvoice_print_buffer@kex_functions: %p %08X",
                                    static_cast<void *>(block + i), word_at(block, i)));
        EXPECT_EQ(fake::difference(expected, bus().log_without_markers()), "") << "length " << length;
        free(block - 1);
    }
}

} // namespace
} // namespace voice_test
