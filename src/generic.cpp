// SPDX-License-Identifier: MIT
// The endpoint table, the library's identity, the start of both kinds of process, and the socket pair of a media
// stream.
#include <arpa/inet.h>  // htons, ntohs
#include <errno.h>      // errno
#include <netinet/in.h> // sockaddr_in
#include <string.h>     // strerror, strnlen, memcpy
#include <sys/socket.h> // socket, bind, connect
#include <unistd.h>     // close

#include "libvoice_plugin.h"
#include "lifecycle.h"
#include "text.h"
#include "trace.h"

extern "C" {

libvoice_endpoint_t endpt_table[LIBVOICE_ENDPOINTS];
char _PLUGIN_NAME[LIBVOICE_NAME_BYTES];
char ep_suffix[LIBVOICE_EP_SUFFIX_BYTES];
libvoice_callbacks_t libvoice_registered_callbacks;
libvoice_app_callbacks_t libvoice_app_registered_callbacks;
}

// The longest stem and a two-digit entry number exactly fill an endpoint name.
static_assert(LIBVOICE_EP_SUFFIX_BYTES - 1 + 2 == LIBVOICE_ENDPOINT_NAME_BYTES - 1);

namespace {

using Entry = libvoice_endpoint_t;

// The tests of `used` differ on purpose: most searches accept any mark, one only the mark 1, one looks at free entries
// too.
bool claimed(const Entry &entry) {
    return entry.used != 0;
}
bool unclaimed(const Entry &entry) {
    return entry.used == 0;
}
bool marked_exactly_one(const Entry &entry) {
    return entry.used == 1;
}
bool any_state(const Entry &) {
    return true;
}

using State = bool(const Entry &);

// The first match in index order, or null. There is no clever index beside the table: it has 32 entries.
Entry *entry_find(State *state) {
    for (Entry &entry : endpt_table)
        if (state(entry))
            return &entry;
    return nullptr;
}

Entry *entry_find(State *state, int32_t endpoint) {
    for (Entry &entry : endpt_table)
        if (state(entry) && entry.endpoint == endpoint)
            return &entry;
    return nullptr;
}

Entry *entry_find(State *state, const char *name) {
    for (Entry &entry : endpt_table)
        if (state(entry) && voice::same_name(entry.name, name))
            return &entry;
    return nullptr;
}

int32_t index_of(const Entry *entry) {
    return entry ? static_cast<int32_t>(entry - endpt_table) : -1;
}

void entry_claim(Entry &entry, int32_t endpoint, void *userdata) {
    entry.used = 1;
    entry.endpoint = endpoint;
    entry.userdata = userdata;
}

// The stem and the number. By hand: what snprintf() touches of the C library would be most of what an idle plugin has
// of it, over 100 KiB.
void default_name_write(char *name, int number) {
    static_assert(LIBVOICE_ENDPOINTS < 100);
    const size_t stem = strnlen(ep_suffix, sizeof ep_suffix - 1);
    memcpy(name, ep_suffix, stem);
    name += stem;
    if (number >= 10)
        *name++ = static_cast<char>('0' + number / 10);
    *name++ = static_cast<char>('0' + number % 10);
    *name = '\0';
}

} // namespace

void voice::plugin_endpoints_preset() {
    for (int i = 0; i < LIBVOICE_ENDPOINTS; ++i) {
        Entry &entry = endpt_table[i];
        entry.endpoint = -1;
        entry.used = 0;
        entry.userdata = nullptr;
        default_name_write(entry.name, i + 1);
    }
}

extern "C" {

// ---- Endpoint table

int is_valid_endpoint(int32_t endpoint) {
    return entry_find(marked_exactly_one, endpoint) != nullptr;
}

libvoice_endpoint_t *get_endpt_entry(int32_t endpoint) {
    return entry_find(any_state, endpoint);
}

int libvoice_set_endpoint_userdata_by_name(const char *name, void *userdata) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, name);
    if (!entry) {
        TRACE_LEAVE();
        return 0;
    }
    entry->userdata = userdata;
    TRACE_LEAVE();
    return 1;
}

int libvoice_set_endpoint_userdata_by_endpoint(int32_t endpoint, void *userdata) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, endpoint);
    if (!entry) {
        TRACE_LEAVE();
        return 0;
    }
    entry->userdata = userdata;
    TRACE_LEAVE();
    return 1;
}

int libvoice_set_endpoint(const char *name, int32_t endpoint, void *userdata) {
    TRACE_ENTER();
    Entry *entry = entry_find(unclaimed);
    if (!entry) {
        TRACE_LEAVE();
        return 0;
    }
    entry_claim(*entry, endpoint, userdata);
    voice::text_copy(entry->name, name);
    TRACE_LEAVE();
    return 1;
}

int libvoice_set_endpoint_by_name(const char *name, int32_t endpoint, void *userdata) {
    TRACE_ENTER();
    Entry *entry = entry_find(unclaimed, name);
    if (!entry) {
        TRACE_LEAVE();
        return 0;
    }
    entry_claim(*entry, endpoint, userdata);
    TRACE_LEAVE();
    return 1;
}

int32_t libvoice_get_endpoint_index_by_name(const char *name) {
    TRACE_ENTER();
    const int32_t index = index_of(entry_find(claimed, name));
    if (index < 0) {
        TRACE_LEAVE();
        return -1;
    }
    TRACE_LEAVE();
    return index;
}

int32_t libvoice_get_endpoint_by_name(const char *name) {
    TRACE_ENTER();
    const Entry *entry = entry_find(claimed, name);
    if (!entry) {
        TRACE_LEAVE();
        return -1;
    }
    TRACE_LEAVE();
    return entry->endpoint;
}

int32_t libvoice_get_endpoint_index_by_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    const int32_t index = index_of(entry_find(claimed, endpoint));
    if (index < 0) {
        TRACE_LEAVE();
        return -1;
    }
    TRACE_LEAVE();
    return index;
}

char *libvoice_get_name_by_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, endpoint);
    if (!entry) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry->name;
}

char *libvoice_get_endpoint_name(int32_t endpoint) {
    Entry *entry = entry_find(claimed, endpoint);
    return entry ? entry->name : nullptr;
}

char *libvoice_get_endpoint_path(int32_t endpoint) {
    Entry *entry = entry_find(claimed, endpoint);
    return entry ? entry->endpoint_path : nullptr;
}

char *libvoice_get_endpoint_path_by_name(const char *name) {
    Entry *entry = libvoice_get_endpoint_entry_by_name(name);
    return entry ? entry->endpoint_path : nullptr;
}

peer_t *libvoice_get_endpoint_peer(int32_t endpoint) {
    const Entry *entry = entry_find(claimed, endpoint);
    return entry && entry->plugin_table ? entry->plugin_table->peer : nullptr;
}

char *libvoice_get_plugin_name_by_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    const Entry *entry = libvoice_get_endpoint_entry_by_endpoint(endpoint);
    if (!entry || !entry->plugin_table) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry->plugin_table->plugin_name;
}

libvoice_endpoint_t *libvoice_get_next_free_endpoint() {
    TRACE_ENTER();
    Entry *entry = entry_find(unclaimed);
    if (!entry) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry;
}

char *libvoice_get_next_free_endpoint_name() {
    TRACE_ENTER();
    Entry *entry = libvoice_get_next_free_endpoint();
    if (!entry) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry->name;
}

libvoice_endpoint_t *libvoice_get_endpoint_entry_by_name(const char *name) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, name);
    if (!entry) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry;
}

libvoice_endpoint_t *libvoice_get_endpoint_entry_by_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, endpoint);
    if (!entry) {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_LEAVE();
    return entry;
}

void libvoice_delete_endpoint_entry(libvoice_endpoint_t *entry) {
    TRACE_ENTER();
    if (!entry) {
        TRACE_LEAVE();
        return;
    }
    entry->used = 0; // all else stays: a released entry keeps its name, and the callback sees what it was
    if (libvoice_app_registered_callbacks.voice_app_endpoint_deleted)
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted(entry);
    TRACE_LEAVE();
}

int32_t libvoice_delete_endpoint_entry_by_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    Entry *entry = entry_find(claimed, endpoint);
    if (!entry) {
        TRACE_LEAVE();
        return -1;
    }
    libvoice_delete_endpoint_entry(entry);
    TRACE_LEAVE();
    return index_of(entry);
}

int32_t libvoice_delete_endpoint_entry_by_name(const char *name) {
    // Kept: an unknown name has the number -1, under which an entry without a number yet is found.
    return libvoice_delete_endpoint_entry_by_endpoint(libvoice_get_endpoint_by_name(name));
}

void libvoice_print_endpoints(int32_t only_used) {
    for (int i = 0; i < LIBVOICE_ENDPOINTS; ++i) {
        Entry &e = endpt_table[i];
        if (only_used && !claimed(e))
            continue;
        // Eleven messages in a row, one source line each: readers of the dump know a field by its line number as well.
        // clang-format off
        TRACE_INFO("endpt_table[%d]                \t%p", i, static_cast<void *>(&e));
        TRACE_INFO("endpt_table[%d].used           \t%d", i, static_cast<int>(e.used));
        TRACE_INFO("endpt_table[%d].name           \t%s", i, e.name);
        TRACE_INFO("endpt_table[%d].endpoint       \t%d", i, e.endpoint);
        TRACE_INFO("endpt_table[%d].userdata       \t%p", i, e.userdata);
        TRACE_INFO("endpt_table[%d].type           \t%d", i, e.type);
        TRACE_INFO("endpt_table[%d].encaps_capab   \t%lu", i, static_cast<unsigned long>(e.encaps_capab));
        TRACE_INFO("endpt_table[%d].num_of_codecs  \t%lu", i, static_cast<unsigned long>(e.num_of_codecs));
        TRACE_INFO("endpt_table[%d].codec_list     \t%p", i, static_cast<void *>(e.codec_list));
        TRACE_INFO("endpt_table[%d].endpoint_path  \t%s", i, e.endpoint_path);
        TRACE_INFO("endpt_table[%d].plugin_table   \t%p", i, static_cast<void *>(e.plugin_table));
        // clang-format on
    }
}

uint32_t get_new_msg_id() {
    static uint32_t next;
    return next++;
}

// ---- Identity

void libvoice_set_pluginname(const char *name) {
    TRACE_ENTER();
    TRACE_INFO("Setting plugin name to %s.", voice::shown(name));
    voice::text_copy(_PLUGIN_NAME, name);
    TRACE_LEAVE();
}

char *libvoice_get_pluginname() {
    TRACE_ENTER();
    TRACE_LEAVE();
    return _PLUGIN_NAME;
}

void libvoice_set_ep_suffix(const char *stem) {
    TRACE_INFO("Setting ep_suffix to %s.", voice::shown(stem));
    voice::text_copy(ep_suffix, stem);
}

char *libvoice_get_ep_suffix() {
    TRACE_ENTER();
    TRACE_LEAVE();
    return ep_suffix;
}

// ---- Start of a process

void libvoice_init(libvoice_callbacks_t callbacks) {
    TRACE_INFO("init is called");
    voice::plugin_endpoints_preset();
    libvoice_registered_callbacks = callbacks;
    libvoice_register_datamodel_cb();
}

void libvoice_app_init(libvoice_app_callbacks_t callbacks) {
    TRACE_INFO("init is called");
    // On this side an entry's number is its index.
    for (int32_t i = 0; i < LIBVOICE_ENDPOINTS; ++i) {
        endpt_table[i].endpoint = i;
        endpt_table[i].used = 0;
    }
    libvoice_app_registered_callbacks = callbacks;
}

// ---- Media sockets
} // extern "C"

namespace {

// One socket of a pair. It is closed unless handed out.
class UdpSocket {
public:
    UdpSocket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)) {}
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;
    ~UdpSocket() {
        if (fd_ >= 0)
            close(fd_);
    }

    bool created() const { return fd_ >= 0; }
    bool bind_to(const sockaddr_in &address) const {
        return bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    bool connect_to(const sockaddr_in &address) const {
        return connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    int32_t hand_out() {
        const int32_t fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

// An address of the host's, which may stand at any place in a record.
sockaddr_in address_at(const void *place) {
    sockaddr_in address;
    memcpy(&address, place, sizeof address);
    return address;
}

// The next port up, where the control flow is; it wraps after 65535.
sockaddr_in neighbour(sockaddr_in address) {
    address.sin_port = htons(static_cast<uint16_t>(ntohs(address.sin_port) + 1));
    return address;
}

} // namespace

extern "C" {

int libvoice_connectMediaSockets(const struct sockaddr_in *local, const struct sockaddr_in *remote, int32_t *stream,
                                 int32_t *control) {
    if (!local || !remote || !stream || !control) {
        TRACE_ERROR("failed to create local socket - %s", strerror(EINVAL));
        return 0;
    }
    UdpSocket media;
    UdpSocket media_control;
    if (!media.created() || !media_control.created()) {
        TRACE_ERROR("failed to create local socket - %s", strerror(errno));
        return 0;
    }
    const sockaddr_in from = address_at(local);
    const sockaddr_in to = address_at(remote);
    // Both are tried before a failure is reported: the trace message shows the error of the last one that failed.
    const bool bound = media.bind_to(from);
    if (!media_control.bind_to(neighbour(from)) || !bound) {
        TRACE_ERROR("failed to bind to local socket - %s", strerror(errno));
        return 0;
    }
    const bool connected = media.connect_to(to);
    if (!media_control.connect_to(neighbour(to)) || !connected) {
        TRACE_ERROR("failed to connect to local socket to remote address - %s", strerror(errno));
        return 0;
    }
    *stream = media.hand_out();
    *control = media_control.hand_out();
    return 1;
}
}
