// SPDX-License-Identifier: MIT
// Where the voice application listens, and the tap there.
#ifndef VOICECTL_CONNECTION_H
#define VOICECTL_CONNECTION_H

#include <memory>
#include <string>
#include <string_view>

#include "kex_tap.h"

namespace voicectl {

struct Address {
    std::string uri;
    const char *origin; // who says so, for errors
};

// The socket of the option --socket, or, when that is empty, where plugins connect: the environment's address or the
// usual one.
Address address_of(const std::string &socket);

// The path in "kex://ipc:[path]"; an address of another form as it is.
std::string_view address_path(std::string_view uri);

// Why there is no connection, by its errno: one printable sentence that says what to do.
std::string connection_problem(const Address &address, int error);

struct CloseTap {
    void operator()(kex_tap_t *tap) const { kex_tap_close(tap); }
};
using Tap = std::unique_ptr<kex_tap_t, CloseTap>;

// Null: not there, and `why` says in one printable sentence what to do.
Tap tap_open(const Address &address, std::string &why);

// Why the application does not admit the tap that the record is from, as a printable sentence; empty: it tells of
// something else, perhaps of another one that is refused.
std::string tap_refusal(const kex_tap_record_t &record);

} // namespace voicectl

#endif
