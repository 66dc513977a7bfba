// SPDX-License-Identifier: MIT
// A file of checks that cannot hold for a binding, with the reason: what its foundation cannot do.
#ifndef CONFORMANCE_EXPECTED_H
#define CONFORMANCE_EXPECTED_H

namespace conformance {

// Lines of an identifier and a reason; empty ones and those that begin with '#' count for nothing.
// False: it cannot be read, names no check, or gives no reason (told on standard error).
bool expected_read(const char *path);
// Why the check is expected to fail; null: it is not.
const char *expected_reason(const char *id);

} // namespace conformance

#endif
