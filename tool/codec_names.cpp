// SPDX-License-Identifier: MIT
// Codec numbers by name.
#include "codec_names.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "libvoice_plugin.h"

namespace voicectl {

namespace {

struct Codec {
    int64_t number;
    std::string_view name;
};

// clang-format off
#define CODEC(name) {LIBVOICE_CODEC_##name, #name}
constexpr Codec kCodecs[] = {
    CODEC(PCMU), CODEC(GSM_FR), CODEC(G723), CODEC(DVI4_8000), CODEC(DVI4_16000), CODEC(LPC), CODEC(PCMA),
    CODEC(G722), CODEC(L16_STEREO), CODEC(L16_MONO), CODEC(QCELP), CODEC(CN), CODEC(G728), CODEC(DVI4_11025),
    CODEC(DVI4_22050), CODEC(G729), CODEC(G726_16), CODEC(G726_24), CODEC(G726_32), CODEC(G726_40),
    CODEC(AAL2_G726_16), CODEC(AAL2_G726_24), CODEC(AAL2_G726_32), CODEC(AAL2_G726_40), CODEC(G729D), CODEC(G729E),
    CODEC(G729_1), CODEC(G722_1), CODEC(G722_1C), CODEC(AMR), CODEC(AMR_WB), CODEC(EVS), CODEC(ILBC), CODEC(GSM_EFR),
    CODEC(GSM_HR), CODEC(SPEEX_NB), CODEC(SPEEX_WB), CODEC(SPEEX_UWB), CODEC(OPUS), CODEC(L16_8000), CODEC(L16_16000),
    CODEC(L16_48000), CODEC(CLEARMODE), CODEC(TELEPHONE_EVENT), CODEC(TONE), CODEC(RED), CODEC(T38),
    CODEC(LC3PLUS_8000), CODEC(LC3PLUS_16000), CODEC(LC3PLUS_24000), CODEC(LC3PLUS_32000), CODEC(LC3PLUS_48000),
    CODEC(AAC_LD), CODEC(EVRC), CODEC(EVRC_B), CODEC(G711_0), CODEC(G711_1),
};
#undef CODEC
// clang-format on

} // namespace

std::string codec_name(int64_t codec) {
    const auto *found =
        std::find_if(std::begin(kCodecs), std::end(kCodecs), [codec](const Codec &row) { return row.number == codec; });
    if (found == std::end(kCodecs))
        return fmt::format("codec {}", codec);
    std::string name(found->name);
    std::replace(name.begin(), name.end(), '_', '-'); // G726-32, as settings files write it
    return name;
}

} // namespace voicectl
