// SPDX-License-Identifier: MIT
// What signals and events of the measured worlds carry: three words of parameters, as those of a real line do.
#ifndef BENCH_SCALE_RECORD_H
#define BENCH_SCALE_RECORD_H

#include <cstdint>
#include <cstring>

#include "libvoice_plugin.h"

constexpr uint32_t kWords = 3;

template <typename Head>
struct Record {
    Head head;
    uint8_t params[kWords * 12];
};

template <typename Head>
void record_fill(Record<Head> &record, int32_t endpoint, const uint32_t (&words)[kWords]) {
    constexpr uint32_t kNames[kWords] = {LIBVOICE_PARAM_zil_ep_id, LIBVOICE_PARAM_zil_msg_id,
                                         LIBVOICE_PARAM_al_ri_freq};
    uint8_t *cursor = record.params;
    uint32_t remaining = sizeof record.params;
    for (uint32_t i = 0; i < kWords; ++i)
        libvoice_add_param(kNames[i], sizeof words[i], &words[i], &cursor, &remaining);
    record.head.endpoint = endpoint;
    record.head.length = sizeof record.params;
}

// In the order in which they were filled in.
inline void words_read(uint8_t *params, uint32_t length, uint32_t (&words)[kWords]) {
    for (uint32_t &word : words) {
        uint32_t id = 0;
        uint32_t bytes = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &bytes, &value, &params, &length) == LIBVOICE_OK && bytes == sizeof word)
            std::memcpy(&word, value, sizeof word);
    }
}

#endif
