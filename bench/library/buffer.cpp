// SPDX-License-Identifier: MIT
// Writing, walking and searching a parameter buffer of eight items of 4 to 32 bytes.
#include <cstring>

#include "../support/measure.h"
#include "paths.h"
#include "peers.h"

namespace {

constexpr uint32_t kItems = BENCH_ITEMS;
constexpr uint32_t kIds[kItems] = {LIBVOICE_PARAM_zil_ep_id,     LIBVOICE_PARAM_zil_msg_id,
                                   LIBVOICE_PARAM_al_ri_freq,    LIBVOICE_PARAM_al_ri_cad,
                                   LIBVOICE_PARAM_zil_fxs_power, LIBVOICE_PARAM_callsrv_eplineid,
                                   LIBVOICE_PARAM_sdp_ss_pref,   LIBVOICE_PARAM_zil_country};
constexpr uint32_t kLengths[kItems] = {4, 4, 4, 16, 32, 4, 21, 6};

alignas(8) uint8_t values[kItems][BENCH_VALUE_BYTES];
alignas(8) uint8_t buffer[512];
uint32_t used;

// The bytes of values that were taken, so that all answer alike.
template <auto add>
uint64_t add_all() {
    uint8_t *cursor = buffer;
    uint32_t remaining = sizeof buffer;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < kItems; ++i)
        if (add(kIds[i], kLengths[i], values[i], &cursor, &remaining) == 0)
            sum += kLengths[i];
    used = static_cast<uint32_t>(cursor - buffer);
    keep(buffer[0]);
    return sum;
}

template <auto next>
uint64_t walk_all() {
    uint8_t *cursor = buffer;
    uint32_t remaining = used;
    uint64_t sum = 0;
    while (remaining != 0) {
        uint32_t id = 0;
        uint32_t length = 0;
        uint8_t *value = nullptr;
        if (next(&id, &length, &value, &cursor, &remaining) != 0)
            break;
        sum += id + length + value[0];
    }
    return sum;
}

// Each item once, each time from the buffer's beginning.
template <auto find>
uint64_t find_all() {
    uint64_t sum = 0;
    for (const uint32_t id : kIds) {
        uint8_t *cursor = buffer;
        uint32_t remaining = used;
        uint32_t length = 0;
        uint8_t *value = nullptr;
        if (find(id, &length, &value, &cursor, &remaining) == 0)
            sum += id + length + value[0];
    }
    return sum;
}

#ifdef BENCH_ALL_PEERS
uint64_t netlink_add() {
    return mnl_add(kIds, kLengths, values[0]);
}
uint64_t netlink_walk() {
    return mnl_walk(kIds);
}
uint64_t netlink_find() {
    return mnl_find(kIds);
}
#endif

} // namespace

void add_buffer_paths(std::vector<Variant> &variants) {
    for (uint32_t i = 0; i < kItems; ++i)
        memset(values[i], static_cast<int>(i + 1), sizeof values[i]);
    add_all<libvoice_add_param>();
    variants.push_back({"buffer add", kLibrary, add_all<libvoice_add_param>, kItems});
    variants.push_back({"buffer add", "C", add_all<plain_add>, kItems});
    variants.push_back({"buffer walk", kLibrary, walk_all<libvoice_get_current_param>, kItems});
    variants.push_back({"buffer walk", "C", walk_all<plain_next>, kItems});
    variants.push_back({"buffer find", kLibrary, find_all<libvoice_get_param>, kItems});
    variants.push_back({"buffer find", "C", find_all<plain_find>, kItems});
#ifdef BENCH_ALL_PEERS
    netlink_add();
    variants.push_back({"buffer add", "libmnl", netlink_add, kItems});
    variants.push_back({"buffer walk", "libmnl", netlink_walk, kItems});
    variants.push_back({"buffer find", "libmnl", netlink_find, kItems});
#endif
}
