// SPDX-License-Identifier: MIT
// Facts about codec numbers and DECT handset types, for both processes.
#define TRACE_ZONE media

#include "libvoice_plugin.h"
#include "trace.h"

namespace {

struct CodecRow {
    libvoice_codec codec;
    uint16_t hertz; // of the audio, not of the RTP clock: RFC 3551 keeps G.722 at a clock of 8000 for audio of 16000
};

constexpr CodecRow kCodecs[] = {
    {LIBVOICE_CODEC_PCMU, 8000},
    {LIBVOICE_CODEC_GSM_FR, 8000},
    {LIBVOICE_CODEC_G723, 8000},
    {LIBVOICE_CODEC_DVI4_8000, 8000},
    {LIBVOICE_CODEC_DVI4_16000, 16000},
    {LIBVOICE_CODEC_LPC, 8000},
    {LIBVOICE_CODEC_PCMA, 8000},
    {LIBVOICE_CODEC_G722, 16000},
    {LIBVOICE_CODEC_L16_STEREO, 44100},
    {LIBVOICE_CODEC_L16_MONO, 44100},
    {LIBVOICE_CODEC_QCELP, 8000},
    {LIBVOICE_CODEC_CN, 8000},
    {LIBVOICE_CODEC_G728, 8000},
    {LIBVOICE_CODEC_DVI4_11025, 11025},
    {LIBVOICE_CODEC_DVI4_22050, 22050},
    {LIBVOICE_CODEC_G729, 8000},
    {LIBVOICE_CODEC_G726_16, 8000},
    {LIBVOICE_CODEC_G726_24, 8000},
    {LIBVOICE_CODEC_G726_32, 8000},
    {LIBVOICE_CODEC_G726_40, 8000},
    {LIBVOICE_CODEC_AAL2_G726_16, 8000},
    {LIBVOICE_CODEC_AAL2_G726_24, 8000},
    {LIBVOICE_CODEC_AAL2_G726_32, 8000},
    {LIBVOICE_CODEC_AAL2_G726_40, 8000},
    {LIBVOICE_CODEC_G729D, 8000},
    {LIBVOICE_CODEC_G729E, 8000},
    {LIBVOICE_CODEC_G729_1, 16000},
    {LIBVOICE_CODEC_G722_1, 16000},
    {LIBVOICE_CODEC_G722_1C, 32000},
    {LIBVOICE_CODEC_AMR, 8000},
    {LIBVOICE_CODEC_AMR_WB, 16000},
    {LIBVOICE_CODEC_EVS, 16000},
    {LIBVOICE_CODEC_ILBC, 8000},
    {LIBVOICE_CODEC_GSM_EFR, 8000},
    {LIBVOICE_CODEC_GSM_HR, 8000},
    {LIBVOICE_CODEC_SPEEX_NB, 8000},
    {LIBVOICE_CODEC_SPEEX_WB, 16000},
    {LIBVOICE_CODEC_SPEEX_UWB, 32000},
    {LIBVOICE_CODEC_OPUS, 48000},
    {LIBVOICE_CODEC_L16_8000, 8000},
    {LIBVOICE_CODEC_L16_16000, 16000},
    {LIBVOICE_CODEC_L16_48000, 48000},
    {LIBVOICE_CODEC_CLEARMODE, 8000},
    {LIBVOICE_CODEC_TELEPHONE_EVENT, 8000},
    {LIBVOICE_CODEC_TONE, 8000},
    {LIBVOICE_CODEC_RED, 8000},
    {LIBVOICE_CODEC_T38, 8000},
    {LIBVOICE_CODEC_LC3PLUS_8000, 8000},
    {LIBVOICE_CODEC_LC3PLUS_16000, 16000},
    {LIBVOICE_CODEC_LC3PLUS_24000, 24000},
    {LIBVOICE_CODEC_LC3PLUS_32000, 32000},
    {LIBVOICE_CODEC_LC3PLUS_48000, 48000},
    {LIBVOICE_CODEC_AAC_LD, 32000},
    {LIBVOICE_CODEC_EVRC, 8000},
    {LIBVOICE_CODEC_EVRC_B, 8000},
    {LIBVOICE_CODEC_G711_0, 8000},
    {LIBVOICE_CODEC_G711_1, 16000},
};

constexpr int32_t kNumbers = LIBVOICE_CODEC_G711_1 + 1;

// The rates by number, 0 where there is none. Made by the compiler: the rows themselves are not in the library.
struct Rates {
    uint16_t hertz[kNumbers] = {};
};

constexpr Rates kRates = [] {
    Rates rates;
    for (const CodecRow &row : kCodecs)
        rates.hertz[row.codec] = row.hertz;
    return rates;
}();

constexpr bool each_number_has_one_row() {
    int32_t rates = 0;
    for (const uint16_t hertz : kRates.hertz)
        rates += hertz != 0;
    return rates == sizeof kCodecs / sizeof kCodecs[0];
}
static_assert(each_number_has_one_row());

// By type. GAP: ETSI EN 300 444. CAT-iq: TS 102 527. ULE: TS 102 939-1. Repeater: EN 300 700.
constexpr char kHandsets[][11] = {
    "unknown", "GAP", "CAT-iq 1.0", "CAT-iq 2.0", "CAT-iq 2.1", "CAT-iq 3.0", "ULE", "HAN-FUN", "repeater", "headset",
};
constexpr int32_t kHandsetTypes = sizeof kHandsets / sizeof kHandsets[0];

} // namespace

uint32_t libvoice_codec_sampling_rate(int32_t codec) {
    const uint32_t hertz = codec >= 0 && codec < kNumbers ? kRates.hertz[codec] : 0;
    if (hertz == 0)
        TRACE_ERROR("codec %d has no fixed sampling rate", codec);
    return hertz;
}

const char *libvoice_dect_pp_type_str(int32_t type) {
    return type >= 0 && type < kHandsetTypes ? kHandsets[type] : "????";
}
