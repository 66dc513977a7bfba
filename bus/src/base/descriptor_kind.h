// SPDX-License-Identifier: MIT
// What a descriptor is of, as far as it says how long its close may take.
#ifndef KEX_DESCRIPTOR_KIND_H
#define KEX_DESCRIPTOR_KIND_H

namespace bus {

// Whether its close is known to return at once. Asks no file system: that could take as long as the close.
bool descriptor_closes_at_once(int fd);
// Of a socket: whether SO_LINGER means anything to it. Not to UDP.
bool descriptor_may_linger(int fd);

} // namespace bus

#endif
