// SPDX-License-Identifier: MIT
// Names of codecs for configuration and output.
#include "codecs.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

namespace {

constexpr uint32_t k10ms = 1u << 0;
constexpr uint32_t k20ms = 1u << 1;
constexpr uint32_t k30ms = 1u << 2;

struct named_codec {
    const char *name;
    voice_codec_t record;
};

constexpr named_codec kCodecs[] = {
    {"PCMA", {LIBVOICE_CODEC_PCMA, 8, k10ms | k20ms | k30ms, 64000}},
    {"PCMU", {LIBVOICE_CODEC_PCMU, 0, k10ms | k20ms | k30ms, 64000}},
    {"G722", {LIBVOICE_CODEC_G722, 9, k10ms | k20ms | k30ms, 64000}},
    {"G729", {LIBVOICE_CODEC_G729, 18, k10ms | k20ms, 8000}},
    {"G726-32", {LIBVOICE_CODEC_G726_32, 98, k20ms, 32000}},
    {"telephone-event", {LIBVOICE_CODEC_TELEPHONE_EVENT, 101, k10ms | k20ms | k30ms, 0}},
    {"CN", {LIBVOICE_CODEC_CN, 13, k10ms | k20ms | k30ms, 0}},
};

} // namespace

const char *codec_name(uint32_t codec) {
    for (const named_codec &row : kCodecs)
        if (row.record.codec == codec)
            return row.name;
    static char texts[4][20];
    static unsigned turn;
    char *text = texts[turn++ % 4];
    snprintf(text, sizeof texts[0], "codec-%u", codec);
    return text;
}

const voice_codec_t *codec_by_name(const char *name) {
    for (const named_codec &row : kCodecs)
        if (strcasecmp(row.name, name) == 0)
            return &row.record;
    return nullptr;
}

int codecs_parse(const char *list, voice_codec_t *codecs, uint32_t room) {
    uint32_t count = 0;
    while (*list != 0) {
        char name[24];
        size_t length = strcspn(list, ",");
        if (length >= sizeof name || count == room)
            return -1;
        memcpy(name, list, length);
        name[length] = 0;
        const voice_codec_t *codec = codec_by_name(name);
        if (codec == nullptr)
            return -1;
        codecs[count++] = *codec;
        list += length + (list[length] == ',');
    }
    return static_cast<int>(count);
}
