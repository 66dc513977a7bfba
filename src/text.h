// SPDX-License-Identifier: MIT
// Copying and joining texts into fixed fields: always terminated, never past the end, the rest zero-filled.
#ifndef VOICE_TEXT_H
#define VOICE_TEXT_H

#include <string.h> // strnlen, memcpy, memmove, memset, strcmp

#include "libvoice_plugin.h"

namespace voice {

// A null name counts as an empty one.
constexpr const char *or_empty(const char *text) {
    return text ? text : "";
}

inline bool same_name(const char *stored, const char *wanted) {
    return strcmp(stored, or_empty(wanted)) == 0;
}

// At most N - 1 characters survive. The text may be the field itself.
template <size_t N>
void text_copy(char (&field)[N], const char *text) {
    const size_t length = strnlen(or_empty(text), N - 1);
    memmove(field, or_empty(text), length);
    memset(field + length, 0, N - length);
}

// The object path of an endpoint, "plugin.EndPoint.name", or of the object that holds them all. Cut, never overflowing.
class ObjectPath {
public:
    explicit ObjectPath(const char *plugin) {
        append(plugin);
        append(".EndPoint");
    }
    ObjectPath(const char *plugin, const char *endpoint) : ObjectPath(plugin) {
        append(".");
        append(or_empty(endpoint));
    }
    const char *text() const { return text_; }

private:
    void append(const char *part) {
        const size_t length = strnlen(part, sizeof text_ - 1 - used_);
        memcpy(text_ + used_, part, length);
        used_ += length;
    }

    char text_[LIBVOICE_ENDPOINT_PATH_BYTES] = {};
    size_t used_ = 0;
};

} // namespace voice

#endif
