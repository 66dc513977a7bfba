// SPDX-License-Identifier: MIT
// RTP and RTCP of one call over its two sockets.
#include "session.h"

#include "clock.h"
#include "codecs.h"
#include "kex_host.h"
#include "media_file.h"
#include "media_socket.h"

#include <arpa/inet.h>
#include <initializer_list>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

namespace {

constexpr uint32_t kFirstReport = 250; // steps: 2.5 s, half the interval (RFC 3550 6.2)
constexpr uint32_t kReportEvery = 500; // steps: 5 s
constexpr uint64_t kSecondNs = 1000000000;
constexpr uint64_t kSampleNs = kSecondNs / kSampleRate;

kex_t *session_bus;
char session_host[32];

void moment_note(uint32_t *seconds, uint32_t *microseconds) {
    const moment now = moment_of_day();
    *seconds = static_cast<uint32_t>(now.seconds);
    *microseconds = now.nanoseconds / 1000;
}

// By the sampling clock from its begin on: the clock of the day may be set meanwhile.
uint64_t session_ntp(const media_session *session, uint64_t moment) {
    const uint64_t since = moment > session->opened ? moment - session->opened : 0;
    return session->opened_ntp + ((since / kSecondNs << 32) | (since % kSecondNs << 32) / kSecondNs);
}

void packet_note(const media_session *session, bool control, bool sent, uint64_t age, const uint8_t *bytes,
                 size_t size) {
    const int socket = control ? session->media.control : session->media.media;
    const media_file_packet packet = {socket, session->who, session_host, control, sent, age};
    media_file_add(&packet, bytes, size);
}

// -------------------------------------------------------------------------------------------------------- Receiving

void packet_hear(media_session *session, const rtp_packet *packet, uint64_t arrival) {
    int16_t samples[kMostPayload];
    frame_decode(session->media.codec, packet->payload, packet->bytes, samples);
    jitter_buffer_put(&session->buffer, session->settings, packet->timestamp, samples, packet->bytes, arrival);
}

void packet_receive(void *userdata, const uint8_t *bytes, size_t size, uint64_t age) {
    media_session *session = static_cast<media_session *>(userdata);
    packet_note(session, false, false, age, bytes, size);
    rtp_packet packet;
    const bool good = rtp_read(bytes, size, &packet);
    if (!good || packet.payload_type != session->media.payload_type || !frame_size_is_known(packet.bytes)) {
        session->counts.discarded++;
        if (good)
            rtp_discard(&session->receiver, &packet);
        return;
    }
    const uint64_t arrival = sampling_clock_before(age) / kSampleNs;
    const rtp_place place = rtp_receive(&session->receiver, &packet, static_cast<uint32_t>(arrival));
    if (place == RTP_DOUBTFUL) {
        session->counts.discarded++;
        return;
    }
    moment_note(&session->counts.last_rx_s, &session->counts.last_rx_us);
    if (place == RTP_TWICE || !(session->media.mode & VOICE_MODE_RECEIVE_ONLY))
        return;
    if (place == RTP_ANEW)
        jitter_buffer_restart(&session->buffer, sampling_clock_position());
    packet_hear(session, &packet, arrival);
}

void report_receive(void *userdata, const uint8_t *bytes, size_t size, uint64_t age) {
    media_session *session = static_cast<media_session *>(userdata);
    packet_note(session, true, false, age, bytes, size);
    const uint64_t came = session_ntp(session, sampling_clock_before(age));
    session->counts.rx_reports += rtcp_read(&session->far_end, session->sender.ssrc, came, bytes, size);
}

// Time first: a packet is to meet the buffer as it stands at this moment.
void rtp_readable(int fd, void *userdata) {
    sampling_clock_advance();
    media_socket_read(session_bus, fd, userdata, packet_receive);
}

void rtcp_readable(int fd, void *userdata) {
    media_socket_read(session_bus, fd, userdata, report_receive);
}

// ---------------------------------------------------------------------------------------------------------- Reports

// RFC 3550 6.5.1: user and host, by its address. Two ends of a call never share both.
void name_write(const media_session *session, char *name, size_t size) {
    sockaddr_storage own = {};
    socklen_t length = sizeof own;
    char address[INET6_ADDRSTRLEN] = "";
    getsockname(session->media.media, reinterpret_cast<sockaddr *>(&own), &length);
    const void *bytes = own.ss_family == AF_INET6
                            ? static_cast<const void *>(&reinterpret_cast<sockaddr_in6 *>(&own)->sin6_addr)
                            : &reinterpret_cast<sockaddr_in *>(&own)->sin_addr;
    inet_ntop(own.ss_family, bytes, address, sizeof address);
    snprintf(name, size, "%s.%s@%s", session->who, session_host, address);
}

// A sender report is for who has sent since the report before the last (RFC 3550 6.4).
void session_report(media_session *session, bool leaves) {
    uint8_t packet[256];
    char name[128];
    if (session->media.control < 0)
        return;
    name_write(session, name, sizeof name);
    const rtcp_report report = {&session->sender,
                                &session->receiver,
                                &session->far_end,
                                session->sender.packets != session->reported[1],
                                session_ntp(session, sampling_clock_nanoseconds()),
                                rtp_time(&session->sender, sampling_clock_now()),
                                name,
                                leaves};
    session->reported[1] = session->reported[0];
    session->reported[0] = session->sender.packets;
    const uint32_t size = rtcp_write(&report, packet, sizeof packet);
    if (size == 0 || !media_socket_send(session->media.control, packet, size))
        return;
    session->counts.tx_reports++;
    packet_note(session, true, true, 0, packet, size);
}

// ---------------------------------------------------------------------------------------------------------- Sockets

bool sockets_watch(media_session *session) {
    media_socket_begin(session->media.media);
    if (session->media.control >= 0)
        media_socket_begin(session->media.control);
    return kex_watch(session_bus, session->media.media, session, rtp_readable) &&
           (session->media.control < 0 || kex_watch(session_bus, session->media.control, session, rtcp_readable));
}

void sockets_unwatch(const media_session *session) {
    for (int fd : {session->media.media, session->media.control})
        if (fd >= 0)
            kex_unwatch(session_bus, fd);
}

// What the simulated line can do; null, or why it cannot.
const char *media_check(const line_media_t *media, bool socket_needed) {
    static char text[48];
    if (!frame_codec_is_known(media->codec)) {
        snprintf(text, sizeof text, "no %s here", codec_name(media->codec));
        return text;
    }
    if (!frame_ptime_is_known(media->ptime_ms))
        return "packets must last 10, 20 or 30 ms";
    if ((socket_needed || media->media >= 0) && !media_socket_is_usable(media->media))
        return "media descriptor is no connected socket";
    if (media->control >= 0 && !media_socket_is_usable(media->control))
        return "control descriptor is no connected socket";
    return nullptr;
}

} // namespace

void session_begin(kex_t *bus, const char *host) {
    session_bus = bus;
    snprintf(session_host, sizeof session_host, "%s", host);
    media_file_begin();
}

const char *session_open(media_session *session, const char *who, const jitter_settings *settings,
                         const line_media_t *media) {
    const char *wrong = media_check(media, true);
    if (wrong != nullptr)
        return wrong;
    memset(session, 0, sizeof *session);
    session->who = who;
    session->settings = settings;
    session->media = *media;
    session->opened = sampling_clock_nanoseconds();
    session->opened_ntp = moment_ntp(moment_of_day());
    rtp_sender_start(&session->sender);
    jitter_buffer_restart(&session->buffer, sampling_clock_position());
    if (!sockets_watch(session)) {
        sockets_unwatch(session);
        return "media sockets cannot be watched";
    }
    session->open = true;
    return nullptr;
}

const char *session_change(media_session *session, const line_media_t *media) {
    const char *wrong = media_check(media, false);
    if (wrong != nullptr)
        return wrong;
    const line_media_t before = session->media;
    session->media = *media;
    session->media.context = before.context;
    session->media.stream = before.stream;
    if (media->media < 0)
        session->media.media = before.media;
    if (media->control < 0)
        session->media.control = before.control;
    if (!sockets_watch(session)) {
        sockets_unwatch(session);
        session->media = before;
        sockets_watch(session);
        return "media sockets cannot be watched";
    }
    if (media->media >= 0)
        media_socket_close(session_bus, before.media);
    if (media->control >= 0)
        media_socket_close(session_bus, before.control);
    session_skip(session);
    // What waits is of the old codec, or of before the hold, and what follows is its own beginning.
    const bool resumes = (media->mode & ~before.mode & VOICE_MODE_RECEIVE_ONLY) != 0;
    if (media->codec != before.codec || resumes)
        jitter_buffer_restart(&session->buffer, sampling_clock_position());
    return nullptr;
}

void session_close(media_session *session) {
    rtp_readable(session->media.media, session);                       // what has arrived before the end counts
    if (session->sender.packets > 0 || session->counts.tx_reports > 0) // RFC 3550 6.3.7: nobody knows the others
        session_report(session, true);
    media_socket_close(session_bus, session->media.media);
    media_socket_close(session_bus, session->media.control);
    session->open = false;
}

bool session_receives(const media_session *session) {
    return session->open && (session->media.mode & VOICE_MODE_RECEIVE_ONLY) != 0;
}

bool session_sends(const media_session *session) {
    return session->open && (session->media.mode & VOICE_MODE_SEND_ONLY) != 0;
}

void session_take(media_session *session, uint64_t position, int16_t *samples) {
    jitter_buffer_take(&session->buffer, position, samples);
}

void session_send(media_session *session, uint64_t position, const int16_t *samples) {
    if (session->filled == 0)
        session->first = position;
    memcpy(session->packet + session->filled, samples, kStepSamples * sizeof *samples);
    session->filled += kStepSamples;
    if (session->filled < session->media.ptime_ms * (kSampleRate / 1000))
        return;
    uint8_t payload[kMostPayload], packet[kRtpHeadBytes + kMostPayload];
    const rtp_sender before = session->sender;
    frame_encode(session->media.codec, session->packet, session->filled, payload);
    const uint32_t size = rtp_write(&session->sender, static_cast<uint8_t>(session->media.payload_type), session->first,
                                    payload, session->filled, packet, sizeof packet);
    session->filled = 0;
    if (!media_socket_send(session->media.media, packet, size)) {
        session->sender.packets = before.packets; // true counts: what did not leave is not counted
        session->sender.bytes = before.bytes;
        return;
    }
    moment_note(&session->counts.last_tx_s, &session->counts.last_tx_us);
    packet_note(session, false, true, 0, packet, size);
}

void session_skip(media_session *session) {
    session->sender.talking = false; // what follows is a new talkspurt
    session->filled = 0;
}

void session_tick(media_session *session) {
    session->steps++;
    if (session->steps >= kFirstReport && (session->steps - kFirstReport) % kReportEvery == 0)
        session_report(session, false);
}
