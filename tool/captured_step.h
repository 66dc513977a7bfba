// SPDX-License-Identifier: MIT
// A record of a capture (capture_record.h) read back: whose message it is and what the message says, whichever byte order
// it was written in.
#ifndef VOICECTL_CAPTURED_STEP_H
#define VOICECTL_CAPTURED_STEP_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "step.h"

namespace voicectl {

struct CapturedStep {
    std::optional<Step> step{}; // none: nobody can say whose it is, or a kind that this version does not know
    uint32_t lost = 0;          // copies that are missing before it
    std::string fault{};        // why the rest cannot be read, a printable sentence; empty: all was
};

// Never reads past the bytes.
CapturedStep captured_step_read(std::string_view record, uint64_t time_ns);

} // namespace voicectl

#endif
