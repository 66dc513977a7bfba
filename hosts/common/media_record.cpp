// SPDX-License-Identifier: MIT
// What the application says of media, from its records.
#include "media_record.h"

namespace {

const char *media_read(uint32_t version, const uint32_t *words, uint32_t length, line_media_t *media) {
    const voice_params_t params = {reinterpret_cast<const uint8_t *>(words), length};
    uint32_t mode = VOICE_MODE_SEND_RECEIVE, up, down, up_payload, down_payload, ptime;
    *media = {};
    media->media = media->control = -1;
    if (version != VOICE_CNX_VERSION)
        return "media record of another version";
    if (length > VOICE_CNX_PARAMETER_BYTES)
        return "media record is longer than its room";
    voice_params_get_u32(params, LIBVOICE_PARAM_sdp_stream_mode, &mode);
    if (!voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_codec, &up) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_payload, &up_payload) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_ptime, &ptime) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_downstream_codec, &down) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_downstream_payload, &down_payload))
        return "media record lacks codec or packet time";
    if (mode > VOICE_MODE_SEND_RECEIVE)
        return "unknown stream mode";
    if (up != down || up_payload != down_payload || up_payload > 127)
        return "both directions must have the same codec";
    media->mode = mode;
    media->codec = up;
    media->payload_type = up_payload;
    media->ptime_ms = ptime;
    return nullptr;
}

} // namespace

const char *media_read_connection(const void *cnx_info, line_media_t *media) {
    const voice_cnx_info_t *info = static_cast<const voice_cnx_info_t *>(cnx_info);
    return media_read(info->version, info->params, info->length, media);
}

const char *media_read_stream(const void *stream_info, line_media_t *media) {
    const voice_stream_info_t *info = static_cast<const voice_stream_info_t *>(stream_info);
    const char *wrong = media_read(info->version, info->params, info->length, media);
    media->stream = info->stream;
    if (wrong == nullptr && info->mode > VOICE_MODE_SEND_RECEIVE)
        wrong = "unknown stream mode";
    if (wrong == nullptr)
        media->mode = info->mode;
    return wrong;
}
