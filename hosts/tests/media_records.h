// SPDX-License-Identifier: MIT
// What the application sends about media, for tests.
#pragma once

#include "voice_records.h"

#include <string.h>
#include <utility>

inline uint32_t media_items(uint32_t *params, uint32_t codec, uint32_t payload, uint32_t ptime = 20) {
    uint32_t length = 0;
    for (auto [id, value] : {std::pair<uint32_t, uint32_t>{LIBVOICE_PARAM_sdp_upstream_codec, codec},
                             {LIBVOICE_PARAM_sdp_upstream_payload, payload},
                             {LIBVOICE_PARAM_sdp_upstream_ptime, ptime},
                             {LIBVOICE_PARAM_sdp_downstream_codec, codec},
                             {LIBVOICE_PARAM_sdp_downstream_payload, payload}})
        voice_params_add(params, VOICE_CNX_PARAMETER_BYTES, &length, id, VOICE_VALUE_INTEGER, &value, sizeof value);
    return length;
}

inline void stream_of(voice_stream_info_t *info, uint32_t stream, uint32_t codec, uint32_t payload,
                      uint32_t ptime = 20) {
    memset(info, 0, sizeof *info);
    info->stream = stream;
    info->mode = VOICE_MODE_SEND_RECEIVE;
    info->version = VOICE_CNX_VERSION;
    info->length = media_items(info->params, codec, payload, ptime);
}

inline void connection_of(voice_cnx_info_t *info, uint32_t codec, uint32_t payload, uint32_t ptime = 20) {
    memset(info, 0, sizeof *info);
    info->version = VOICE_CNX_VERSION;
    info->length = media_items(info->params, codec, payload, ptime);
}
