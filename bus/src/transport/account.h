// SPDX-License-Identifier: MIT
// What is held in memory for one direction of a connection. Everything that is held is counted here and nowhere else,
// with all that its keeping takes (footprint.h).
#ifndef KEX_ACCOUNT_H
#define KEX_ACCOUNT_H

#include <stdint.h>

namespace bus {

struct Account {
    uint32_t messages;
    uint32_t bytes;
    uint32_t descriptors;
};

inline void account_add(Account &account, uint32_t bytes, uint32_t descriptors) {
    account.messages++;
    account.bytes += bytes;
    account.descriptors += descriptors;
}

inline void account_remove(Account &account, uint32_t bytes, uint32_t descriptors) {
    account.messages--;
    account.bytes -= bytes;
    account.descriptors -= descriptors;
}

// Whether `more` may come to what is there without passing the limit.
inline bool account_fits(uint32_t held, uint32_t more, uint32_t limit) {
    return more <= limit && held <= limit - more;
}

} // namespace bus

#endif
