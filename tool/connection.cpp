// SPDX-License-Identifier: MIT
// Where the voice application listens, and the tap there.
#include "connection.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr std::string_view kStem = "kex://ipc:[";
constexpr const char *kVariable = "ZIL_VOIP_IPC_SOCKET_URI";

std::string reason(int error, const std::string &path) {
    switch (error) {
    case ENOENT:
        return fmt::format("no socket {}: is voice_application running?", path);
    case ECONNREFUSED:
        return fmt::format("nobody listens on {}: is voice_application running?", path);
    case EACCES:
        return fmt::format("no right to connect to {}: voice_application lets users in by KEX_ALLOW_UIDS", path);
    case EPROTOTYPE:
    case ENOTSOCK:
        return fmt::format("{} is not the socket of a voice application", path);
    case EAGAIN:
        return fmt::format("{} takes no more connections: its listener is stopped or busy", path);
    default:
        return fmt::format("cannot connect to {}: {}", path, std::strerror(error));
    }
}

} // namespace

std::string_view address_path(std::string_view uri) {
    if (!uri.starts_with(kStem) || !uri.ends_with("]"))
        return uri;
    return uri.substr(kStem.size(), uri.size() - kStem.size() - 1);
}

Address address_of(const std::string &socket) {
    if (!socket.empty())
        return {fmt::format("{}{}]", kStem, socket), "the path is that of --socket"};
    if (std::getenv(kVariable) != nullptr)
        return {libvoice_get_ipc_socket_uri(), "the path is that of ZIL_VOIP_IPC_SOCKET_URI; --socket gives another"};
    return {libvoice_get_ipc_socket_uri(),
            "the path is the usual one; --socket or ZIL_VOIP_IPC_SOCKET_URI give another"};
}

std::string connection_problem(const Address &address, int error) {
    const std::string_view path = address_path(address.uri);
    // No bus has an address of another form.
    if (path.size() == address.uri.size())
        return fmt::format("'{}' is no address: it is written kex://ipc:[PATH] ({})", printable(address.uri),
                           address.origin);
    return fmt::format("{} ({})", reason(error, printable(path)), address.origin);
}

Tap tap_open(const Address &address, std::string &why) {
    Tap tap(kex_tap_open(address.uri.c_str(), nullptr, 0));
    if (tap == nullptr)
        why = connection_problem(address, errno);
    return tap;
}

std::string tap_refusal(const kex_tap_record_t &record) {
    // Whoever else is refused has a connection.
    if (record.kind != KEX_TAP_REFUSED || record.from.connection != 0 || record.to.connection != 0)
        return "";
    return fmt::format("the voice application does not admit this tap: {}", printable(record.text));
}

} // namespace voicectl
