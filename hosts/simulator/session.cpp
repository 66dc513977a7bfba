// SPDX-License-Identifier: MIT
// RTP and RTCP of one call over its two sockets.
#include "session.h"

#include "clock.h"
#include "codecs.h"
#include "kex_host.h"

#include <errno.h>
#include <initializer_list>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t kMaxPacket = 1500;
constexpr uint32_t kFirstReport = 125; // ticks: 2.5 s, half the interval (RFC 3550 6.2)
constexpr uint32_t kReportEvery = 250; // ticks: 5 s

kex_t *session_bus;

void note_moment(uint32_t *seconds, uint32_t *microseconds) {
    const moment now = moment_of_day();
    *seconds = static_cast<uint32_t>(now.seconds);
    *microseconds = now.nanoseconds / 1000;
}

// -------------------------------------------------------------------------------------------------------- Receiving

void packet_receive(media_session *session, const uint8_t *bytes, size_t size) {
    rtp_packet packet;
    const bool good = rtp_read(bytes, size, &packet);
    if (!good || packet.payload_type != session->media.payload_type) {
        session->counts.discarded++;
        if (good)
            rtp_discard(&session->receiver, &packet);
        return;
    }
    rtp_receive(&session->receiver, &packet, moment_rtp(moment_steady()));
    note_moment(&session->counts.last_rx_s, &session->counts.last_rx_us);
    if (!(session->media.mode & VOICE_MODE_RECEIVE_ONLY))
        return;
    constexpr uint32_t kRoom = sizeof session->frames / sizeof session->frames[0];
    if (session->waiting == kRoom) {
        session->counts.overruns++;
        return;
    }
    frame_decode(session->media.codec, packet.payload, packet.bytes, session->frames[session->waiting++]);
}

void report_receive(media_session *session, const uint8_t *bytes, size_t size) {
    session->counts.rx_reports += rtcp_is_report(bytes, size);
}

// Reads what has arrived. A port that nobody listens on any more shows here as an error; the next packet may come
// through again.
void socket_read(int fd, media_session *session, void (*receive)(media_session *, const uint8_t *, size_t)) {
    uint8_t bytes[kMaxPacket];
    for (int i = 0; i < 16; i++) {
        ssize_t size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && errno != ECONNREFUSED)
            return;
        if (size >= 0)
            receive(session, bytes, static_cast<size_t>(size));
    }
}

void rtp_readable(int fd, void *userdata) {
    socket_read(fd, static_cast<media_session *>(userdata), packet_receive);
}

void rtcp_readable(int fd, void *userdata) {
    socket_read(fd, static_cast<media_session *>(userdata), report_receive);
}

// ---------------------------------------------------------------------------------------------------------- Reports

void session_report(media_session *session) {
    uint8_t packet[256];
    uint32_t size = rtcp_write_report(&session->sender, &session->receiver, moment_ntp(moment_of_day()), session->who,
                                      packet, sizeof packet);
    if (session->media.control >= 0 && size > 0 &&
        send(session->media.control, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size))
        session->counts.tx_reports++;
}

// ---------------------------------------------------------------------------------------------------------- Sockets

void socket_close(int fd) {
    if (fd < 0)
        return;
    kex_unwatch(session_bus, fd);
    close(fd);
}

bool sockets_watch(media_session *session) {
    return kex_watch(session_bus, session->media.media, session, rtp_readable) &&
           (session->media.control < 0 || kex_watch(session_bus, session->media.control, session, rtcp_readable));
}

void sockets_unwatch(const media_session *session) {
    for (int fd : {session->media.media, session->media.control})
        if (fd >= 0)
            kex_unwatch(session_bus, fd);
}

// Anything else that came as a descriptor (a pipe, a socket of another kind) would keep the loop awake once it hangs
// up.
bool is_connected_udp(int fd) {
    int domain = 0, type = 0;
    socklen_t size = sizeof type;
    sockaddr_storage peer;
    socklen_t peer_size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM &&
           getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && (domain == AF_INET || domain == AF_INET6) &&
           getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &peer_size) == 0;
}

const char *sockets_check(const line_media_t *media, bool media_needed) {
    if ((media_needed || media->media >= 0) && !is_connected_udp(media->media))
        return "media descriptor is no connected socket";
    if (media->control >= 0 && !is_connected_udp(media->control))
        return "control descriptor is no connected socket";
    return nullptr;
}

// What the simulated line can do; null, or why it cannot.
const char *media_check(const line_media_t *media) {
    static char text[48];
    if (!frame_codec_is_known(media->codec)) {
        snprintf(text, sizeof text, "no %s here", codec_name(media->codec));
        return text;
    }
    return media->ptime_ms == kFrameMs ? nullptr : "packets must last 20 ms";
}

} // namespace

void session_begin(kex_t *bus) {
    session_bus = bus;
}

const char *session_open(media_session *session, const char *who, const line_media_t *media) {
    const char *wrong = media_check(media);
    if (wrong == nullptr)
        wrong = sockets_check(media, true);
    if (wrong != nullptr)
        return wrong;
    memset(session, 0, sizeof *session);
    session->who = who;
    session->media = *media;
    rtp_sender_start(&session->sender);
    if (!sockets_watch(session)) {
        sockets_unwatch(session);
        return "media sockets cannot be watched";
    }
    session->open = true;
    return nullptr;
}

const char *session_change(media_session *session, const line_media_t *media) {
    const char *wrong = media_check(media);
    if (wrong == nullptr)
        wrong = sockets_check(media, false);
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
        socket_close(before.media);
    if (media->control >= 0)
        socket_close(before.control);
    session->sender.talking = false; // what follows is a new talkspurt
    session->waiting = 0;
    return nullptr;
}

void session_close(media_session *session) {
    rtp_readable(session->media.media, session); // what has arrived before the end counts
    socket_close(session->media.media);
    socket_close(session->media.control);
    session->open = false;
}

line_statistics_t session_statistics(const media_session *session) {
    line_statistics_t statistics = session->counts;
    statistics.tx_packets = session->sender.packets;
    statistics.tx_bytes = session->sender.bytes;
    statistics.rx_packets = session->receiver.packets;
    statistics.rx_bytes = session->receiver.bytes;
    statistics.lost = rtp_lost(&session->receiver);
    statistics.jitter = rtp_jitter(&session->receiver);
    statistics.peak_jitter = session->receiver.peak_jitter;
    return statistics;
}

bool session_receives(const media_session *session) {
    return session->open && (session->media.mode & VOICE_MODE_RECEIVE_ONLY) != 0;
}

bool session_sends(const media_session *session) {
    return session->open && (session->media.mode & VOICE_MODE_SEND_ONLY) != 0;
}

bool session_take(media_session *session, int16_t *samples) {
    if (session->waiting == 0) {
        session->counts.underruns += session->receiver.started;
        return false;
    }
    memcpy(samples, session->frames[0], sizeof session->frames[0]);
    session->waiting--;
    memmove(session->frames[0], session->frames[1], session->waiting * sizeof session->frames[0]);
    return true;
}

void session_send(media_session *session, const int16_t *samples) {
    uint8_t payload[kFrameSamples], packet[kRtpHeadBytes + kFrameSamples];
    rtp_sender before = session->sender;
    frame_encode(session->media.codec, samples, payload);
    uint32_t size = rtp_write(&session->sender, static_cast<uint8_t>(session->media.payload_type), payload,
                              sizeof payload, kFrameSamples, packet, sizeof packet);
    ssize_t sent = send(session->media.media, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno == ECONNREFUSED) // the error of an earlier packet: this one was not tried
        sent = send(session->media.media, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(size)) {
        session->sender.packets = before.packets; // true counts: what did not leave is not counted
        session->sender.bytes = before.bytes;
        return;
    }
    note_moment(&session->counts.last_tx_s, &session->counts.last_tx_us);
}

void session_tick(media_session *session) {
    session->ticks++;
    if (session->ticks >= kFirstReport && (session->ticks - kFirstReport) % kReportEvery == 0)
        session_report(session);
}
