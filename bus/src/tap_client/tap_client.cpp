// SPDX-License-Identifier: MIT
// The watching side of a tap (kex_tap.h). The body of a record is drawn in tap.cpp.
#include "base/contract.h"
#include "bus/bus.h"
#include "transport/socket.h"
#include "value/reply.h"
#include "value/wire.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

using namespace bus;

struct kex_tap {
    int fd;
    bool over; // the last record has been handed out
    uint8_t packet[kOutgoingRoom];
    char *texts; // zero-terminated copies for the record that is out
    size_t texts_used;
    reply_t reply;
    variant_t values[kMaxArguments];
    uint32_t value_count;
    const char *names[kMaxArguments];
    const variant_t *arguments[kMaxArguments];
    uint32_t error_codes[kMaxErrors];
    const char *error_descriptions[kMaxErrors];
    const char *error_infos[kMaxErrors];
};

namespace {

// Every text of a packet, each with a zero byte behind it, fits in: none has fewer bytes on the wire.
constexpr size_t kTextRoom = 2 * size_t{kOutgoingRoom};

const char *keep(kex_tap_t *tap, wire::Text text) {
    if (text.length >= kTextRoom - tap->texts_used)
        return "";
    char *copy = tap->texts + tap->texts_used;
    memcpy(copy, text.bytes, text.length);
    copy[text.length] = '\0';
    tap->texts_used += text.length + 1;
    return copy;
}

void let_go(kex_tap_t *tap) {
    for (uint32_t i = 0; i < tap->value_count; i++)
        variant_cleanup(&tap->values[i]);
    tap->value_count = 0;
    reply_clear(&tap->reply);
    tap->texts_used = 0;
}

void read_end(wire::Reader &reader, kex_tap_end_t *end) {
    end->process_id = static_cast<int32_t>(wire::get_word(reader));
    end->connection = wire::get_word(reader);
    wire::Text name = wire::get_text(reader);
    size_t length = name.length < sizeof end->name ? name.length : sizeof end->name - 1;
    memcpy(end->name, name.bytes, length);
    end->name[length] = '\0';
}

bool read_call(kex_tap_t *tap, wire::Reader reader, kex_tap_record_t *record) {
    wire::Call call;
    if (!wire::get_call(reader, call))
        return false;
    record->path = keep(tap, call.path);
    record->function = keep(tap, call.function);
    for (uint32_t i = 0; i < call.count; i++) {
        wire::Reader value = wire::open_at(reader.data, reader.size, call.arguments[i].at, nullptr);
        if (!wire::get_value(value, &tap->values[i]))
            return false;
        tap->value_count = i + 1;
        tap->names[i] = keep(tap, call.arguments[i].name);
        tap->arguments[i] = &tap->values[i];
    }
    record->argument_count = call.count;
    return true;
}

bool read_reply(kex_tap_t *tap, wire::Reader reader, kex_tap_record_t *record) {
    if (!wire::get_reply(reader, &tap->reply))
        return false;
    for (reply_item_t *item = tap->reply.first; item != nullptr; item = item->next) {
        if (item->type == REPLY_ITEM_RETURN_VALUE) {
            tap->names[0] = "";
            tap->arguments[0] = &item->value;
            record->argument_count = 1;
            continue;
        }
        uint32_t i = record->error_count++;
        tap->error_codes[i] = item->code;
        tap->error_descriptions[i] = item->description;
        tap->error_infos[i] = item->info;
    }
    return true;
}

// The packet that passed, inside the record.
bool read_inner(kex_tap_t *tap, const uint8_t *packet, uint32_t size, kex_tap_record_t *record) {
    wire::Head head;
    if (wire::read_head(packet, size, head) != nullptr)
        return false;
    record->serial = head.serial;
    record->flags = head.flags;
    wire::Reader reader = wire::open(packet, size);
    switch (head.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return read_call(tap, reader, record);
    case wire::kReply:
        return read_reply(tap, reader, record);
    case wire::kRefused:
        record->text = keep(tap, wire::get_text(reader));
        return true;
    default:
        return true;
    }
}

bool read_record(kex_tap_t *tap, wire::Reader reader, kex_tap_record_t *record) {
    record->kind = static_cast<int32_t>(wire::get_word(reader));
    record->time_ns = wire::get_long(reader);
    read_end(reader, &record->from);
    read_end(reader, &record->to);
    record->lost = wire::get_word(reader);
    record->text = keep(tap, wire::get_text(reader));
    record->bytes = wire::get_word(reader);
    if (reader.why != nullptr || record->bytes != reader.size - reader.at)
        return false;
    return record->bytes == 0 || read_inner(tap, reader.data + reader.at, record->bytes, record);
}

void prepare(kex_tap_t *tap, kex_tap_record_t *record) {
    *record = {};
    record->path = record->function = record->text = "";
    record->argument_names = tap->names;
    record->arguments = tap->arguments;
    record->error_codes = tap->error_codes;
    record->error_descriptions = tap->error_descriptions;
    record->error_infos = tap->error_infos;
}

ssize_t receive(kex_tap_t *tap) {
    for (;;) {
        ssize_t size = recv(tap->fd, tap->packet, sizeof tap->packet, MSG_DONTWAIT);
        // A reset is reported once, in front of what can still be read.
        if (size >= 0 || (errno != EINTR && errno != ECONNRESET))
            return size;
    }
}

int connect_to(const char *uri) {
    sockaddr_un address;
    int fd = address_from_uri(uri, &address) ? socket_connect(&address) : -1;
    if (fd < 0)
        return -1;
    socket_packet_limit(fd);
    return fd;
}

bool say_hello(kex_tap_t *tap) {
    wire::Writer writer = wire::start(tap->packet, sizeof tap->packet, wire::kTapHello, 0, 0);
    wire::put_text(writer, "tap");
    return send(tap->fd, writer.data, writer.size, MSG_NOSIGNAL) == static_cast<ssize_t>(writer.size);
}

} // namespace

kex_tap_t *kex_tap_open(const char *uri, char *why, size_t size) {
    int fd = -1;
    kex_tap_t *tap = nullptr;
    if (uri == nullptr)
        errno = EINVAL;
    else
        fd = connect_to(uri);
    if (fd >= 0)
        tap = make<kex_tap_t>();
    if (tap != nullptr) {
        tap->fd = fd;
        tap->texts = static_cast<char *>(malloc(kTextRoom));
        if (tap->texts != nullptr && say_hello(tap))
            return tap;
    }
    int error = errno;
    if (why != nullptr && size > 0)
        snprintf(why, size, "cannot tap '%s': %s", uri != nullptr ? uri : "", strerror(error));
    if (fd >= 0)
        close(fd);
    if (tap != nullptr)
        free(tap->texts);
    free(tap);
    errno = error;
    return nullptr;
}

int kex_tap_descriptor(const kex_tap_t *tap) {
    return tap != nullptr ? tap->fd : -1;
}

int kex_tap_next(kex_tap_t *tap, kex_tap_record_t *record) {
    if (tap == nullptr || record == nullptr)
        return -1;
    let_go(tap);
    prepare(tap, record);
    while (!tap->over) {
        ssize_t size = receive(tap);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return 0;
        wire::Head head;
        uint32_t length = size > 0 ? static_cast<uint32_t>(size) : 0;
        if (length == 0 || wire::read_head(tap->packet, length, head) != nullptr)
            break;
        wire::Reader reader = wire::open(tap->packet, length);
        if (head.kind == wire::kTapRecord) {
            if (read_record(tap, reader, record))
                return 1;
            break;
        }
        if (head.kind == wire::kRefused) {
            // The listener turns the tap itself away: the last that is heard of it.
            record->kind = KEX_TAP_REFUSED;
            record->text = keep(tap, wire::get_text(reader));
            record->bytes = length;
            tap->over = true;
            return 1;
        }
    }
    tap->over = true;
    return -1;
}

void kex_tap_close(kex_tap_t *tap) {
    if (tap == nullptr)
        return;
    let_go(tap);
    close(tap->fd);
    free(tap->texts);
    free(tap);
}
