// SPDX-License-Identifier: MIT
// What is said of media.
#include "audio.h"

#include "codecs.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>

const char *audio_text(const audio *sound, uint32_t index) {
    static char text[64];
    const line_media_t *media = &sound->sessions[index].media;
    sockaddr_in local = {}, remote = {};
    socklen_t size = sizeof local;
    getsockname(media->media, reinterpret_cast<sockaddr *>(&local), &size);
    size = sizeof remote;
    getpeername(media->media, reinterpret_cast<sockaddr *>(&remote), &size);
    snprintf(text, sizeof text, "codec=%s ports=%u->%u", codec_name(media->codec), ntohs(local.sin_port),
             ntohs(remote.sin_port));
    return text;
}

const char *audio_begin_text(const audio *sound, uint32_t index) {
    static char text[128];
    const line_media_t *media = &sound->sessions[index].media;
    const char *state = media->mode == VOICE_MODE_INACTIVE ? "on hold" : "talking";
    int used = snprintf(text, sizeof text, "%s line=%u %s", state, index, audio_text(sound, index));
    if (media->context != 0)
        snprintf(text + used, sizeof text - static_cast<size_t>(used), " context=%u stream=%u", media->context,
                 media->stream);
    return text;
}

const char *audio_end_text(uint32_t index, const line_statistics_t *statistics) {
    static char text[256];
    snprintf(text, sizeof text,
             "media ended line=%u tx=%u rx=%u lost=%u discarded=%u jitter=%u rtcp=%u/%u late=%u twice=%u concealed=%u "
             "buffer=%u/%u/%u roundtrip=%u",
             index, statistics->tx_packets, statistics->rx_packets, statistics->lost, statistics->discarded,
             statistics->jitter, statistics->tx_reports, statistics->rx_reports, statistics->late,
             statistics->duplicates, statistics->concealed_ms, statistics->buffer_least_ms, statistics->buffer_mean_ms,
             statistics->buffer_most_ms, statistics->round_trip_ms);
    return text;
}
