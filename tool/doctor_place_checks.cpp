// SPDX-License-Identifier: MIT
#include "doctor_findings.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "connection.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kMostPath = 107;

} // namespace

Finding address_check(const Facts &facts) {
    const PlaceFacts &place = facts.place;
    if (place.path.empty())
        return failed(fmt::format("{} is no address", in_quotes(place.uri)),
                      "write ZIL_VOIP_IPC_SOCKET_URI as kex://ipc:[PATH]");
    if (place.path.size() > kMostPath)
        return failed(fmt::format("the path has {} bytes, a socket's has {} at most", place.path.size(), kMostPath),
                      "choose a shorter path");
    return fine(printable(place.uri));
}

Finding variables_check(const Facts &facts) {
    const auto &uri = facts.place.uri_variable;
    const auto &path = facts.place.path_variable;
    const std::string both = "set ZIL_VOIP_IPC_SOCKET=PATH and ZIL_VOIP_IPC_SOCKET_URI=kex://ipc:[PATH], the same path";
    if (!uri && !path)
        return fine("neither ZIL_VOIP_IPC_SOCKET nor ZIL_VOIP_IPC_SOCKET_URI is set, or --socket was given");
    for (const auto &[value, name] :
         {std::pair(uri, "ZIL_VOIP_IPC_SOCKET_URI"), std::pair(path, "ZIL_VOIP_IPC_SOCKET")})
        if (value && value->empty())
            return failed(fmt::format("{} is set and empty", name), both);
    if (!uri || !path)
        return warned(fmt::format("only {} is set: the application and its plugins look at different places",
                                  uri ? "ZIL_VOIP_IPC_SOCKET_URI" : "ZIL_VOIP_IPC_SOCKET"),
                      both);
    if (address_path(*uri) != *path)
        return failed(fmt::format("plugins connect to {}, the application listens at {}", in_quotes(address_path(*uri)),
                                  in_quotes(*path)),
                      both);
    return fine("ZIL_VOIP_IPC_SOCKET and ZIL_VOIP_IPC_SOCKET_URI agree");
}

Finding socket_check(const Facts &facts) {
    const PlaceFacts &place = facts.place;
    const std::string path = printable(place.path);
    switch (place.error) {
    case 0:
        return is_connected(facts) ? fine(fmt::format("{}: {}", path, place.rights)) : not_connected();
    case ENOENT:
        return failed(fmt::format("no socket {}", path),
                      "start voice_application, or set ZIL_VOIP_IPC_SOCKET_URI to where it listens");
    case ECONNREFUSED:
        if (place.exists && !place.is_socket)
            return failed(fmt::format("{} is no socket", path), "remove the file, or use another path");
        return failed(fmt::format("nobody listens on {}: its listener died", path),
                      "start voice_application: it takes a socket over that was left behind");
    case EPROTOTYPE:
    case ENOTSOCK:
        return failed(fmt::format("{} is a socket of another kind: another program listens there", path),
                      "use another path for the bus");
    case EACCES:
    case EPERM:
        return failed(
            fmt::format("no right to connect to {} ({}; its folder {})", path, place.rights, place.folder_rights),
            "start voice_application with the uid in KEX_ALLOW_UIDS, and its socket where the user may enter");
    case EAGAIN:
        return failed(fmt::format("{} takes no more connections: its listener is stopped or busy", path),
                      "ss -xlp names its process; kill -CONT continues one that is stopped, restart one that is busy");
    case ENAMETOOLONG:
    case EINVAL:
        return not_connected(); // the address says why
    default:
        return failed(fmt::format("cannot connect to {}: {}", path, std::strerror(place.error)),
                      "start voice_application anew; see its traces");
    }
}

Finding admission_check(const Facts &facts) {
    if (!is_connected(facts))
        return not_connected();
    if (!facts.bus.refusal.empty())
        return failed(fmt::format("refused: {}", printable(facts.bus.refusal)),
                      "as it says; of versions and byte orders: both sides from one build");
    return facts.bus.answered ? fine("this user is admitted") : not_connected();
}

} // namespace voicectl
