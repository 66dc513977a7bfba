// SPDX-License-Identifier: MIT
// Codec numbers by name.
#ifndef VOICECTL_CODEC_NAMES_H
#define VOICECTL_CODEC_NAMES_H

#include <cstdint>
#include <string>

namespace voicectl {

// "PCMA" for LIBVOICE_CODEC_PCMA; "codec 99" for a number without a name.
std::string codec_name(int64_t codec);

} // namespace voicectl

#endif
