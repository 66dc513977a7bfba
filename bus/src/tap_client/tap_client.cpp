// SPDX-License-Identifier: MIT
// The watching side of a tap (kex_tap.h).
#include "base/contract.h"
#include "base/list.h"
#include "transport/socket.h"
#include "value/packet.h"
#include "value/tap_record.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

using namespace bus;

struct kex_tap {
    int fd;
    bool over; // the last record has been handed out
    uint8_t bytes[wire::kMaxTapRecord];
    wire::Packet packet; // in the bytes
    uint32_t next;       // the message of it that comes next
    Text message;        // that the record at hand tells of, in the bytes; empty: none
    char *texts;         // zero-terminated copies for the record that is out
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

// Every text of a message, each with a zero byte behind it, fits in: none has fewer bytes on the wire.
constexpr size_t kTextRoom = 2 * size_t{wire::kMaxTapRecord};

const char *text_keep(kex_tap_t *tap, Text text) {
    if (text.length >= kTextRoom - tap->texts_used)
        return "";
    char *copy = tap->texts + tap->texts_used;
    memcpy(copy, text.bytes, text.length);
    copy[text.length] = '\0';
    tap->texts_used += text.length + 1;
    return copy;
}

// Releases what the last record holds.
void record_clear(kex_tap_t *tap) {
    for (uint32_t i = 0; i < tap->value_count; i++)
        variant_cleanup(&tap->values[i]);
    tap->value_count = 0;
    reply_clear(&tap->reply);
    tap->texts_used = 0;
    tap->message = {nullptr, 0};
}

void record_begin(kex_tap_t *tap, kex_tap_record_t *record) {
    *record = {};
    record->path = record->function = record->text = "";
    record->argument_names = tap->names;
    record->arguments = tap->arguments;
    record->error_codes = tap->error_codes;
    record->error_descriptions = tap->error_descriptions;
    record->error_infos = tap->error_infos;
}

void end_fill(kex_tap_end_t *end, const wire::TapEnd &from) {
    end->process_id = from.process_id;
    end->connection = from.connection;
    size_t length = from.name.length < sizeof end->name ? from.name.length : sizeof end->name - 1;
    memcpy(end->name, from.name.bytes, length);
    end->name[length] = '\0';
}

bool call_fill(kex_tap_t *tap, const wire::Message &message, kex_tap_record_t *record) {
    wire::Call call;
    if (!wire::call_read(message, call))
        return false;
    record->path = text_keep(tap, call.path);
    record->function = text_keep(tap, call.function);
    for (uint32_t i = 0; i < call.count; i++) {
        if (!wire::argument_read(message, call.arguments[i], nullptr, &tap->values[i]))
            return false;
        tap->value_count = i + 1;
        tap->names[i] = text_keep(tap, call.arguments[i].name);
        tap->arguments[i] = &tap->values[i];
    }
    record->argument_count = call.count;
    return true;
}

bool reply_fill(kex_tap_t *tap, const wire::Message &message, kex_tap_record_t *record) {
    if (!wire::reply_read(message, nullptr, &tap->reply))
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

// From the message that passed, inside the tap record.
bool message_fill(kex_tap_t *tap, const wire::TapRecord &from, kex_tap_record_t *record) {
    wire::Message message;
    if (wire::message_open(from.message, from.size, message) != nullptr)
        return false;
    record->serial = message.serial;
    record->flags = message.flags;
    switch (message.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return call_fill(tap, message, record);
    case wire::kReply:
    case wire::kMissed:
        return reply_fill(tap, message, record);
    case wire::kRefused:
        record->text = text_keep(tap, wire::refusal_reason(message));
        return true;
    default:
        return true;
    }
}

bool record_fill(kex_tap_t *tap, const wire::Message &message, kex_tap_record_t *record) {
    wire::TapRecord from;
    if (!wire::tap_record_read(message, from))
        return false;
    record->kind = from.kind;
    record->time_ns = from.time;
    end_fill(&record->from, from.from);
    end_fill(&record->to, from.to);
    record->lost = from.lost;
    record->text = text_keep(tap, from.text);
    record->bytes = from.size;
    if (from.size == 0)
        return true;
    if (!message_fill(tap, from, record))
        return false;
    tap->message = {reinterpret_cast<const char *>(from.message), from.size};
    return true;
}

ssize_t packet_receive(kex_tap_t *tap) {
    for (;;) {
        ssize_t size = recv(tap->fd, tap->bytes, sizeof tap->bytes, MSG_DONTWAIT);
        // A reset is reported once, in front of what can still be read.
        if (size >= 0 || (errno != EINTR && errno != ECONNRESET))
            return size;
    }
}

// The next message of the packet at hand, or of the next packet. 1, 0 when there is none now, -1 at the end or where it
// is no packet.
int message_next(kex_tap_t *tap, const wire::Message *&message) {
    if (tap->next == tap->packet.count) {
        const ssize_t size = packet_receive(tap);
        if (size < 0 && errno == EAGAIN)
            return 0;
        tap->next = 0;
        if (size <= 0 || wire::packet_open(tap->bytes, static_cast<uint32_t>(size), tap->packet) != nullptr)
            return -1;
    }
    message = &tap->packet.messages[tap->next++];
    return 1;
}

int tap_connect(const char *uri) {
    sockaddr_un address;
    int fd = address_from_uri(uri, &address) ? socket_connect(&address) : -1;
    if (fd < 0)
        return -1;
    socket_packet_limit(fd);
    return fd;
}

// A listener may have turned the tap away before, or have gone: why is read where records are.
bool tap_hello_send(kex_tap_t *tap) {
    wire::Writer writer = wire::message_begin(tap->bytes, sizeof tap->bytes);
    wire::tap_hello_write(writer, "tap");
    return send(tap->fd, writer.data, writer.size, MSG_NOSIGNAL) >= 0 || errno == EPIPE;
}

} // namespace

kex_tap_t *kex_tap_open(const char *uri, char *why, size_t size) {
    int fd = -1;
    kex_tap_t *tap = nullptr;
    if (uri == nullptr)
        errno = EINVAL;
    else
        fd = tap_connect(uri);
    if (fd >= 0)
        tap = make<kex_tap_t>();
    if (tap != nullptr) {
        tap->fd = fd;
        tap->texts = static_cast<char *>(malloc(kTextRoom));
        if (tap->texts != nullptr && tap_hello_send(tap))
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
    record_clear(tap);
    record_begin(tap, record);
    while (!tap->over) {
        const wire::Message *message;
        const int found = message_next(tap, message);
        if (found == 0)
            return 0;
        if (found < 0)
            break;
        if (message->kind == wire::kTapRecord) {
            if (record_fill(tap, *message, record))
                return 1;
            break;
        }
        if (message->kind == wire::kRefused) {
            // The listener turns the tap itself away: the last that is heard of it.
            record->kind = KEX_TAP_REFUSED;
            record->text = text_keep(tap, wire::refusal_reason(*message));
            record->bytes = message->size;
            tap->message = {reinterpret_cast<const char *>(message->data), message->size};
            tap->over = true;
            return 1;
        }
    }
    tap->over = true;
    return -1;
}

const void *kex_tap_packet(const kex_tap_t *tap, uint32_t *size) {
    const Text message = tap != nullptr ? tap->message : Text{nullptr, 0};
    if (size != nullptr)
        *size = message.length;
    return message.bytes;
}

void kex_tap_close(kex_tap_t *tap) {
    if (tap == nullptr)
        return;
    record_clear(tap);
    close(tap->fd);
    free(tap->texts);
    free(tap);
}
