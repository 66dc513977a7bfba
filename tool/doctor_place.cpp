// SPDX-License-Identifier: MIT
#include <cstdlib>

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include "connection.h"
#include "doctor_look.h"
#include "text.h"

namespace voicectl {

namespace {

std::optional<std::string> variable(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::string group_name(gid_t group) {
    const ::group *row = getgrgid(group);
    return row != nullptr ? printable(row->gr_name) : fmt::format("{}", group);
}

std::string user_name(uid_t user) {
    const passwd *row = getpwuid(user);
    return row != nullptr ? printable(row->pw_name) : fmt::format("{}", user);
}

std::string rights_words(const struct stat &found) {
    constexpr mode_t kModeBits = 07777;
    return fmt::format("mode {:04o}, owner {}, group {}", found.st_mode & kModeBits, user_name(found.st_uid),
                       group_name(found.st_gid));
}

} // namespace

PlaceFacts place_look(const std::string &socket) {
    PlaceFacts place;
    place.uri = address_of(socket).uri;
    const std::string_view path = address_path(place.uri);
    if (path.size() != place.uri.size())
        place.path = path;
    if (socket.empty()) {
        place.uri_variable = variable("ZIL_VOIP_IPC_SOCKET_URI");
        place.path_variable = variable("ZIL_VOIP_IPC_SOCKET");
    }
    struct stat found {};
    if (stat(place.path.c_str(), &found) == 0) {
        place.exists = true;
        place.is_socket = S_ISSOCK(found.st_mode);
        place.rights = rights_words(found);
    }
    const size_t slash = place.path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : place.path.substr(0, slash);
    if (stat(folder.c_str(), &found) == 0)
        place.folder_rights = rights_words(found);
    return place;
}

} // namespace voicectl
