/* SPDX-License-Identifier: MIT */
/* The parameter buffer's paths with netlink attributes, which carry type, length and value just so. */
#include <libmnl/libmnl.h>

#include "peers.h"

static _Alignas(8) char buffer[1024];

uint64_t mnl_add(const uint32_t *ids, const uint32_t *lengths, const uint8_t *values) {
    struct nlmsghdr *message = mnl_nlmsg_put_header(buffer);
    uint64_t sum = 0;
    (void)ids;
    for (uint16_t i = 0; i < BENCH_ITEMS; ++i) {
        mnl_attr_put(message, i, lengths[i], values + i * BENCH_VALUE_BYTES);
        sum += lengths[i];
    }
    return sum;
}

static uint64_t taken(const struct nlattr *attribute, const uint32_t *ids) {
    const uint8_t *value = mnl_attr_get_payload(attribute);
    return (uint64_t)ids[mnl_attr_get_type(attribute)] + mnl_attr_get_payload_len(attribute) + value[0];
}

uint64_t mnl_walk(const uint32_t *ids) {
    const struct nlmsghdr *message = (const struct nlmsghdr *)(const void *)buffer;
    const struct nlattr *attribute;
    uint64_t sum = 0;
    mnl_attr_for_each(attribute, message, 0) sum += taken(attribute, ids);
    return sum;
}

uint64_t mnl_find(const uint32_t *ids) {
    const struct nlmsghdr *message = (const struct nlmsghdr *)(const void *)buffer;
    const struct nlattr *attribute;
    uint64_t sum = 0;
    for (uint16_t i = 0; i < BENCH_ITEMS; ++i)
        mnl_attr_for_each(attribute, message, 0) {
            if (mnl_attr_get_type(attribute) != i)
                continue;
            sum += taken(attribute, ids);
            break;
        }
    return sum;
}
