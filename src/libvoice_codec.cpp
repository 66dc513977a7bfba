// SPDX-License-Identifier: MIT
// Facts about codec numbers and DECT handset types, for both processes.
#define TRACE_ZONE "MEDIA"

#include "libvoice_plugin.h"
#include "trace.h"

// The rate of the audio, not of the RTP clock: RFC 3551 keeps G.722 at a clock of 8000 for audio of 16000.
uint32_t libvoice_codec_sampling_rate(int32_t codec) {
    switch (codec) {
    case LIBVOICE_CODEC_PCMU:
    case LIBVOICE_CODEC_GSM_FR:
    case LIBVOICE_CODEC_G723:
    case LIBVOICE_CODEC_DVI4_8000:
    case LIBVOICE_CODEC_LPC:
    case LIBVOICE_CODEC_PCMA:
    case LIBVOICE_CODEC_QCELP:
    case LIBVOICE_CODEC_CN:
    case LIBVOICE_CODEC_G728:
    case LIBVOICE_CODEC_G729:
    case LIBVOICE_CODEC_G726_16:
    case LIBVOICE_CODEC_G726_24:
    case LIBVOICE_CODEC_G726_32:
    case LIBVOICE_CODEC_G726_40:
    case LIBVOICE_CODEC_AAL2_G726_16:
    case LIBVOICE_CODEC_AAL2_G726_24:
    case LIBVOICE_CODEC_AAL2_G726_32:
    case LIBVOICE_CODEC_AAL2_G726_40:
    case LIBVOICE_CODEC_G729D:
    case LIBVOICE_CODEC_G729E:
    case LIBVOICE_CODEC_AMR:
    case LIBVOICE_CODEC_ILBC:
    case LIBVOICE_CODEC_GSM_EFR:
    case LIBVOICE_CODEC_GSM_HR:
    case LIBVOICE_CODEC_SPEEX_NB:
    case LIBVOICE_CODEC_L16_8000:
    case LIBVOICE_CODEC_CLEARMODE:
    case LIBVOICE_CODEC_TELEPHONE_EVENT:
    case LIBVOICE_CODEC_TONE:
    case LIBVOICE_CODEC_RED:
    case LIBVOICE_CODEC_T38:
    case LIBVOICE_CODEC_LC3PLUS_8000:
    case LIBVOICE_CODEC_EVRC:
    case LIBVOICE_CODEC_EVRC_B:
    case LIBVOICE_CODEC_G711_0:
        return 8000;
    case LIBVOICE_CODEC_DVI4_11025:
        return 11025;
    case LIBVOICE_CODEC_DVI4_16000:
    case LIBVOICE_CODEC_G722:
    case LIBVOICE_CODEC_G729_1:
    case LIBVOICE_CODEC_G722_1:
    case LIBVOICE_CODEC_AMR_WB:
    case LIBVOICE_CODEC_EVS:
    case LIBVOICE_CODEC_SPEEX_WB:
    case LIBVOICE_CODEC_L16_16000:
    case LIBVOICE_CODEC_LC3PLUS_16000:
    case LIBVOICE_CODEC_G711_1:
        return 16000;
    case LIBVOICE_CODEC_DVI4_22050:
        return 22050;
    case LIBVOICE_CODEC_LC3PLUS_24000:
        return 24000;
    case LIBVOICE_CODEC_G722_1C:
    case LIBVOICE_CODEC_SPEEX_UWB:
    case LIBVOICE_CODEC_LC3PLUS_32000:
    case LIBVOICE_CODEC_AAC_LD:
        return 32000;
    case LIBVOICE_CODEC_L16_STEREO:
    case LIBVOICE_CODEC_L16_MONO:
        return 44100;
    case LIBVOICE_CODEC_OPUS:
    case LIBVOICE_CODEC_L16_48000:
    case LIBVOICE_CODEC_LC3PLUS_48000:
        return 48000;
    default:
        TRACE_ERROR("codec %d has no fixed sampling rate", codec);
        return 0;
    }
}

// GAP: ETSI EN 300 444. CAT-iq: TS 102 527. ULE: TS 102 939-1. Repeater: EN 300 700.
const char *libvoice_dect_pp_type_str(int32_t type) {
    switch (type) {
    case 0:
        return "unknown";
    case 1:
        return "GAP";
    case 2:
        return "CAT-iq 1.0";
    case 3:
        return "CAT-iq 2.0";
    case 4:
        return "CAT-iq 2.1";
    case 5:
        return "CAT-iq 3.0";
    case 6:
        return "ULE";
    case 7:
        return "HAN-FUN";
    case 8:
        return "repeater";
    case 9:
        return "headset";
    default:
        return "????";
    }
}
