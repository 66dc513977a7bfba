// SPDX-License-Identifier: MIT
// Media of a call: codecs, sockets, and the requests that set them up in both plugins.
#include "media.h"

#include "codecs.h"
#include "console.h"

#include <arpa/inet.h>
#include <errno.h>
#include <initializer_list>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t kAttempts = 4; // another process may take a port between the look and the bind

uint32_t last_context;
constexpr uint32_t kPairsTried = 128; // in one search
uint16_t next_port;                   // where to look for free ports: moves on, so that ports just closed rest a while
int search_error; // why the last search has found none: the address or the process, whichever port; 0: ports are taken

sockaddr_in address_of(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, the_plan.address, &address.sin_addr);
    return address;
}

uint16_t first_even_port() {
    return static_cast<uint16_t>((the_plan.first_port + 1) & ~1);
}

uint32_t port_pairs() {
    return (the_plan.last_port - first_even_port()) / 2u + 1;
}

bool port_is_free(uint16_t port) {
    sockaddr_in address = address_of(port);
    int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool is_free = probe >= 0 && bind(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    search_error = is_free || errno == EADDRINUSE || errno == EACCES ? 0 : errno;
    if (probe >= 0)
        close(probe);
    return is_free;
}

bool port_is_ours(uint16_t port) {
    for (const call &it : calls)
        if (it.used && (it.from.port == port || it.to.port == port))
            return true;
    return false;
}

// Keys that both parties can send and receive as telephone events: the payload type that the caller offers.
void digits_fill(const call *it, uint32_t *params, uint32_t *length) {
    voice_codec_t events;
    if (!media_offers(it->to.who, LIBVOICE_CODEC_TELEPHONE_EVENT, &events) ||
        !media_offers(it->from.who, LIBVOICE_CODEC_TELEPHONE_EVENT, &events))
        return;
    for (uint32_t id : {LIBVOICE_PARAM_sdp_dr_upstream_payload, LIBVOICE_PARAM_sdp_dr_downstream_payload})
        voice_params_add(params, VOICE_CNX_PARAMETER_BYTES, length, id, VOICE_VALUE_INTEGER, &events.payload_type,
                         sizeof events.payload_type);
}

void connection_fill(const call *it, const party *own, const party *far, uint32_t mode, voice_cnx_info_t *info) {
    media_fill_connection(&it->codec, mode, info);
    digits_fill(it, info->params, &info->length);
    sockaddr_in local = address_of(own->port), remote = address_of(far->port);
    voice_connection_set_addresses(info, &local, &remote);
}

void stream_fill(const call *it, const party *own, uint32_t mode, voice_stream_info_t *info) {
    const voice_media_t media = voice_media_of(&it->codec, mode);
    voice_stream_begin(info, own->stream, &media);
    digits_fill(it, info->params, &info->length);
}

// Sets up one party. The sockets, where we open them, go to the plugin; our copies close here.
const char *party_start_media(call *it, party *own, const party *far) {
    line *who = own->who;
    int32_t descriptors[VOICE_STREAM_DESCRIPTORS] = {-1, -1, -1}, *all = descriptors; // media, control, no fax
    if ((who->context != 0 || !libvoice_get_convert_media()) && !media_open_sockets(own->port, far->port, descriptors))
        return "no media sockets";
    who->last_call[own->appearance] = it->id;
    uint32_t result;
    if (who->context != 0) {
        own->stream = own->appearance + 1; // a stream for each appearance of the line, numbered from 1
        voice_stream_info_t info;
        stream_fill(it, own, VOICE_MODE_SEND_RECEIVE, &info);
        result = libvoice_add_stream(who->plugin, who->endpoint, who->context, &info, descriptors, own->appearance);
    } else {
        voice_cnx_info_t info;
        connection_fill(it, own, far, VOICE_MODE_SEND_RECEIVE, &info);
        result = libvoice_create_media(who->endpoint, own->appearance, &info, descriptors[0], descriptors[1],
                                       descriptors[2]);
    }
    voice_descriptors_close(&all, 0, VOICE_STREAM_DESCRIPTORS);
    return result == VOICE_SERVICE_OK ? nullptr : voice_service_strerror(result);
}

void party_stop_media(party *own) {
    line *who = own->who;
    uint32_t stream = own->stream;
    if (own->port == 0)
        return;
    own->port = 0;
    own->stream = 0;
    if (!who->used || !who->reachable)
        return;
    if (stream != 0)
        libvoice_remove_stream(who->plugin, who->context, stream);
    else
        libvoice_destroy_media(who->endpoint, own->appearance);
}

const char *media_open(call *it) {
    const char *wrong = nullptr;
    for (uint32_t attempt = 0; attempt < kAttempts; attempt++) {
        it->from.port = media_take_ports();
        it->to.port = it->from.port == 0 ? 0 : media_take_ports();
        if (it->to.port == 0) {
            it->from.port = 0;
            return media_ports_missing();
        }
        wrong = party_start_media(it, &it->from, &it->to);
        if (wrong == nullptr)
            wrong = party_start_media(it, &it->to, &it->from);
        if (wrong == nullptr)
            return nullptr;
        media_stop(it);
    }
    return wrong;
}

} // namespace

// An even port whose neighbour is free too; 0: none found. Others may use the range, so each is tried before it is
// given out. Trying costs system calls: on a machine whose ports are all taken, a call must not hold up all others
// while thousands are tried. The next search goes on behind those.
uint16_t media_take_ports() {
    const uint16_t first = first_even_port();
    if (next_port < first || next_port >= the_plan.last_port)
        next_port = first;
    search_error = 0;
    for (uint32_t tried = 0; tried < port_pairs() && tried < kPairsTried && search_error == 0; tried++) {
        uint16_t port = next_port;
        next_port = port + 3 > the_plan.last_port ? first : static_cast<uint16_t>(port + 2);
        if (!port_is_ours(port) && port_is_free(port) && port_is_free(static_cast<uint16_t>(port + 1)))
            return port;
    }
    return 0;
}

const char *media_ports_missing() {
    if (search_error != 0)
        return command_error("no media at %s: %s", the_plan.address, strerror(search_error));
    return port_pairs() <= kPairsTried ? "no media ports left" : "128 pairs of media ports in a row are taken";
}

bool media_open_sockets(uint16_t local_port, uint16_t remote_port, int32_t *descriptors) {
    sockaddr_in local = address_of(local_port), remote = address_of(remote_port);
    return libvoice_connectMediaSockets(&local, &remote, &descriptors[0], &descriptors[1]);
}

void media_fill_connection(const voice_codec_t *codec, uint32_t mode, voice_cnx_info_t *info) {
    const voice_media_t media = voice_media_of(codec, mode);
    voice_connection_begin(info, &media);
}

bool media_offers(const line *who, uint32_t codec, voice_codec_t *record) {
    const libvoice_endpoint_t *entry = &endpt_table[who->endpoint];
    for (uint32_t i = 0; voice_endpoint_codec(entry, i, record); i++)
        if (record->codec == codec && record->payload_type < 128)
            return true;
    return false;
}

const char *media_choose_codec(const line *from, const line *to, voice_codec_t *codec) {
    const libvoice_endpoint_t *entry = &endpt_table[from->endpoint];
    voice_codec_t offered, taken;
    for (uint32_t i = 0; voice_endpoint_codec(entry, i, &offered); i++) {
        bool allowed = the_plan.codec_count == 0;
        for (uint32_t k = 0; k < the_plan.codec_count; k++)
            allowed = allowed || the_plan.codecs[k] == offered.codec;
        if (!allowed || !voice_codec_is_audio(offered.codec) || !media_offers(from, offered.codec, &offered) ||
            !media_offers(to, offered.codec, &taken))
            continue;
        *codec = offered;
        return nullptr;
    }
    return "no common codec";
}

const char *media_start(call *it) {
    it->from.media_failures = it->to.media_failures = 0;
    return media_open(it);
}

// Each party's failures count for themselves: when both fail, the second one's report arrives after the next attempt
// has been made, which it ends too. Nothing tells it from a failure of that attempt, since "create" has no answer.
bool media_try_other_ports(call *it, party *failed) {
    if (!libvoice_get_convert_media() || it->from.port == 0 || ++failed->media_failures == kAttempts)
        return false;
    media_stop(it);
    return media_open(it) == nullptr;
}

void media_stop(call *it) {
    party_stop_media(&it->from);
    party_stop_media(&it->to);
}

const char *media_change(call *it, uint32_t mode) {
    if (it->from.port == 0 || it->to.port == 0)
        return mode == VOICE_MODE_INACTIVE ? nullptr : media_start(it);
    if (libvoice_get_convert_media()) {
        // There is no "modify" in this form: a plugin would reject it for want of descriptors.
        media_stop(it);
        return mode == VOICE_MODE_INACTIVE ? nullptr : media_start(it);
    }
    const char *wrong = nullptr;
    for (party *own : {&it->from, &it->to}) {
        const party *far = own == &it->from ? &it->to : &it->from;
        line *who = own->who;
        uint32_t result;
        if (!who->reachable)
            continue;
        if (own->stream != 0) {
            voice_stream_info_t info;
            stream_fill(it, own, mode, &info);
            result = libvoice_modify_stream(who->plugin, who->context, &info);
        } else {
            voice_cnx_info_t info;
            connection_fill(it, own, far, mode, &info);
            result = libvoice_modify_media(who->endpoint, own->appearance, &info, -1, -1, -1); // the sockets stay
        }
        if (result != VOICE_SERVICE_OK)
            wrong = voice_service_strerror(result);
    }
    return wrong;
}

const char *media_join(line *who) {
    for (call *it : who->calls)
        media_stop(it); // what follows comes after it in the plugin's queue
    who->context = ++last_context;
    uint32_t result = libvoice_create_ctx(who->plugin, who->context);
    if (result != VOICE_SERVICE_OK) {
        who->context = 0;
        return voice_service_strerror(result);
    }
    for (call *it : who->calls) {
        const char *wrong = media_start(it);
        if (wrong != nullptr)
            return wrong;
    }
    return nullptr;
}

void media_leave(line *who) {
    if (who->reachable)
        libvoice_destroy_ctx(who->plugin, who->context);
    say("conference %u ended", who->context);
    who->context = 0;
}
