// SPDX-License-Identifier: MIT
// Sound over RTP for simulated telephones and channels.
#include "audio.h"

#include "codecs.h"
#include "g711.h"
#include "kex_host.h"

#include <arpa/inet.h>
#include <errno.h>
#include <initializer_list>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr uint32_t kFrameMs = 20;
constexpr uint32_t kMaxPacket = 1500;
constexpr uint32_t kMaxCatchUp = 10;   // ticks; after a longer stop the time in between is left out
constexpr uint32_t kFirstReport = 125; // ticks: 2.5 s, half the interval (RFC 3550 6.2)
constexpr uint32_t kReportEvery = 250; // ticks: 5 s
constexpr uint32_t kAudios = 64;

kex_t *audio_bus;
audio *audios[kAudios];
uint32_t audio_count;
uint32_t open_sessions;
int ticker = -1;

// ------------------------------------------------------------------------------------------------------------ Codecs

// G.722 passes through: the handset behind this host encodes and decodes, and here it is silent.
bool is_known(uint32_t codec) {
    return codec == LIBVOICE_CODEC_PCMA || codec == LIBVOICE_CODEC_PCMU || codec == LIBVOICE_CODEC_G722;
}

void frame_encode(uint32_t codec, const int16_t *samples, uint8_t *payload) {
    for (uint32_t i = 0; i < kFrameSamples; i++)
        payload[i] = codec == LIBVOICE_CODEC_PCMA   ? g711_alaw_encode(samples[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_encode(samples[i])
                                                    : 0;
}

void frame_decode(uint32_t codec, const uint8_t *payload, uint32_t bytes, int16_t *samples) {
    constexpr int16_t kSilence = 0;
    for (uint32_t i = 0; i < kFrameSamples; i++)
        samples[i] = i >= bytes                     ? kSilence
                     : codec == LIBVOICE_CODEC_PCMA ? g711_alaw_decode(payload[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_decode(payload[i])
                                                    : kSilence;
}

void mix_add(int16_t *mix, const int16_t *samples) {
    for (uint32_t i = 0; i < kFrameSamples; i++) {
        int sum = mix[i] + samples[i];
        mix[i] = static_cast<int16_t>(sum > INT16_MAX ? INT16_MAX : sum < INT16_MIN ? INT16_MIN : sum);
    }
}

// What the simulated line can do; null, or why it cannot.
const char *media_check(const line_media_t *media) {
    static char text[48];
    if (!is_known(media->codec)) {
        snprintf(text, sizeof text, "no %s here", codec_name(media->codec));
        return text;
    }
    return media->ptime_ms == kFrameMs ? nullptr : "packets must last 20 ms";
}

// -------------------------------------------------------------------------------------------------------- Receiving

// Arrival times have the unit of RTP timestamps.
uint32_t rtp_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * kRtpClock +
                                 static_cast<uint64_t>(now.tv_nsec) * kRtpClock / 1000000000);
}

void note_time(uint32_t *seconds, uint32_t *microseconds) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    *seconds = static_cast<uint32_t>(now.tv_sec);
    *microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
}

void packet_receive(media_session *session, const uint8_t *bytes, size_t size) {
    rtp_packet packet;
    const bool good = rtp_read(bytes, size, &packet);
    if (!good || packet.payload_type != session->media.payload_type) {
        session->counts.discarded++;
        if (good)
            rtp_discard(&session->receiver, &packet);
        return;
    }
    rtp_receive(&session->receiver, &packet, rtp_now());
    note_time(&session->counts.last_rx_s, &session->counts.last_rx_us);
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

// ---------------------------------------------------------------------------------------------------------- Sending

void frame_send(media_session *session, const int16_t *samples) {
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
    note_time(&session->counts.last_tx_s, &session->counts.last_tx_us);
}

void report_send(media_session *session) {
    constexpr uint64_t kNtpEpoch = 2208988800; // seconds from 1900 to 1970
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    uint64_t ntp =
        (static_cast<uint64_t>(now.tv_sec) + kNtpEpoch) << 32 | (static_cast<uint64_t>(now.tv_nsec) << 32) / 1000000000;
    uint8_t packet[256];
    uint32_t size =
        rtcp_write_report(&session->sender, &session->receiver, ntp, session->owner->who, packet, sizeof packet);
    if (session->media.control >= 0 && size > 0 &&
        send(session->media.control, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size))
        session->counts.tx_reports++;
}

void audio_tick(audio *sound) {
    int16_t voice[kFrameSamples], heard[kFrameSamples] = {}, in[kSessions][kFrameSamples] = {};
    bool listens = false;
    tone_generator_next(&sound->voice, voice, kFrameSamples);
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &sound->sessions[i];
        if (!session->open || !(session->media.mode & VOICE_MODE_RECEIVE_ONLY))
            continue;
        listens = true;
        if (session->waiting == 0) {
            session->counts.underruns += session->receiver.started;
            continue;
        }
        memcpy(in[i], session->frames[0], sizeof in[i]);
        session->waiting--;
        memmove(session->frames[0], session->frames[1], session->waiting * sizeof session->frames[0]);
        mix_add(heard, in[i]);
    }
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &sound->sessions[i];
        if (!session->open)
            continue;
        if (session->media.mode & VOICE_MODE_SEND_ONLY) {
            int16_t out[kFrameSamples];
            memcpy(out, voice, sizeof out);
            for (uint32_t other = 0; other < kSessions; other++) // a conference: everybody but himself
                if (other != i && session->media.context != 0 &&
                    sound->sessions[other].media.context == session->media.context)
                    mix_add(out, in[other]);
            frame_send(session, out);
        }
        session->ticks++;
        if (session->ticks >= kFirstReport && (session->ticks - kFirstReport) % kReportEvery == 0)
            report_send(session);
    }
    if (!listens || !tone_detector_listen(&sound->detector, heard, kFrameSamples))
        return;
    char name[sizeof sound->heard];
    tone_detector_name(&sound->detector, name, sizeof name);
    bool again = strcmp(name, sound->candidate) == 0; // once may be the edge of a tone
    memcpy(sound->candidate, name, sizeof name);
    if (again && strcmp(name, sound->heard) != 0) {
        memcpy(sound->heard, name, sizeof name);
        sound->hears(sound, name);
    }
}

void ticker_ready(int fd, void *) {
    uint64_t times = 0;
    if (read(fd, &times, sizeof times) != sizeof times)
        return;
    for (uint64_t i = 0; i < times && i < kMaxCatchUp; i++)
        for (uint32_t k = 0; k < audio_count; k++)
            audio_tick(audios[k]);
}

// The clock stands still while nobody speaks.
bool ticker_run(bool on) {
    if (ticker < 0) {
        ticker = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        if (ticker < 0 || !kex_watch(audio_bus, ticker, nullptr, ticker_ready))
            return false;
    }
    itimerspec period = {};
    if (on)
        period.it_interval.tv_nsec = period.it_value.tv_nsec = kFrameMs * 1000000L;
    return timerfd_settime(ticker, 0, &period, nullptr) == 0;
}

void socket_close(int fd) {
    if (fd < 0)
        return;
    kex_unwatch(audio_bus, fd);
    close(fd);
}

bool sockets_watch(media_session *session) {
    return kex_watch(audio_bus, session->media.media, session, rtp_readable) &&
           (session->media.control < 0 || kex_watch(audio_bus, session->media.control, session, rtcp_readable));
}

void sockets_unwatch(const media_session *session) {
    for (int fd : {session->media.media, session->media.control})
        if (fd >= 0)
            kex_unwatch(audio_bus, fd);
}

// Anything else that came as a descriptor (a pipe, a socket of another kind) would keep the loop awake once it hangs up.
bool is_connected_udp(int fd) {
    int domain = 0, type = 0;
    socklen_t size = sizeof type;
    sockaddr_storage peer;
    socklen_t peer_size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM &&
           getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && (domain == AF_INET || domain == AF_INET6) &&
           getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &peer_size) == 0;
}

void detector_reset(audio *sound) {
    sound->detector.used = 0;
    sound->candidate[0] = 0;
    sound->heard[0] = 0;
}

const char *sockets_check(const line_media_t *media, bool media_needed) {
    if ((media_needed || media->media >= 0) && !is_connected_udp(media->media))
        return "media descriptor is no connected socket";
    if (media->control >= 0 && !is_connected_udp(media->control))
        return "control descriptor is no connected socket";
    return nullptr;
}

} // namespace

void audio_begin(kex_t *bus) {
    audio_bus = bus;
}

void audio_start(audio *sound, const char *who, uint32_t frequency, void (*hears)(const audio *, const char *)) {
    snprintf(sound->who, sizeof sound->who, "%s", who);
    sound->voice.frequency = frequency;
    sound->hears = hears;
    if (audio_count < kAudios)
        audios[audio_count++] = sound;
}

const char *audio_open(audio *sound, uint32_t index, const line_media_t *media) {
    if (index >= kSessions)
        return "no such line";
    if (sound->sessions[index].open)
        return "media is set up already";
    const char *wrong = media_check(media);
    if (wrong == nullptr)
        wrong = sockets_check(media, true);
    if (wrong == nullptr && !ticker_run(true))
        wrong = "no clock";
    if (wrong != nullptr)
        return wrong;
    media_session *session = &sound->sessions[index];
    memset(session, 0, sizeof *session);
    session->owner = sound;
    session->media = *media;
    rtp_sender_start(&session->sender);
    detector_reset(sound);
    if (!sockets_watch(session)) {
        sockets_unwatch(session);
        ticker_run(open_sessions > 0);
        return "media sockets cannot be watched";
    }
    session->open = true;
    open_sessions++;
    return nullptr;
}

const char *audio_change(audio *sound, uint32_t index, const line_media_t *media) {
    if (index >= kSessions || !sound->sessions[index].open)
        return "there is no media to change";
    const char *wrong = media_check(media);
    if (wrong == nullptr)
        wrong = sockets_check(media, false);
    if (wrong != nullptr)
        return wrong;
    media_session *session = &sound->sessions[index];
    line_media_t before = session->media;
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
    detector_reset(sound);
    return nullptr;
}

bool audio_close(audio *sound, uint32_t index, line_statistics_t *statistics) {
    if (index >= kSessions || !sound->sessions[index].open)
        return false;
    media_session *session = &sound->sessions[index];
    rtp_readable(session->media.media, session); // what has arrived before the end counts
    if (statistics != nullptr) {
        *statistics = session->counts;
        statistics->tx_packets = session->sender.packets;
        statistics->tx_bytes = session->sender.bytes;
        statistics->rx_packets = session->receiver.packets;
        statistics->rx_bytes = session->receiver.bytes;
        statistics->lost = rtp_lost(&session->receiver);
        statistics->jitter = rtp_jitter(&session->receiver);
        statistics->peak_jitter = session->receiver.peak_jitter;
    }
    socket_close(session->media.media);
    socket_close(session->media.control);
    session->open = false;
    detector_reset(sound);
    if (--open_sessions == 0)
        ticker_run(false);
    return true;
}

const char *audio_text(const audio *sound, uint32_t index) {
    static char text[64];
    const line_media_t *media = &sound->sessions[index].media;
    sockaddr_in local = {}, remote = {};
    socklen_t size = sizeof local;
    getsockname(media->media, reinterpret_cast<sockaddr *>(&local), &size);
    size = sizeof remote;
    getpeername(media->media, reinterpret_cast<sockaddr *>(&remote), &size);
    snprintf(text, sizeof text, "codec=%s ports=%u->%u", codec_name(media->codec), ntohs(local.sin_port),
             ntohs(remote.sin_port));
    return text;
}

const char *audio_begin_text(const audio *sound, uint32_t index) {
    static char text[128];
    const line_media_t *media = &sound->sessions[index].media;
    const char *state = media->mode == VOICE_MODE_INACTIVE ? "on hold" : "talking";
    int used = snprintf(text, sizeof text, "%s line=%u %s", state, index, audio_text(sound, index));
    if (media->context != 0)
        snprintf(text + used, sizeof text - static_cast<size_t>(used), " context=%u stream=%u", media->context,
                 media->stream);
    return text;
}

const char *audio_end_text(uint32_t index, const line_statistics_t *statistics) {
    static char text[160];
    snprintf(text, sizeof text, "media ended line=%u tx=%u rx=%u lost=%u discarded=%u jitter=%u rtcp=%u/%u", index,
             statistics->tx_packets, statistics->rx_packets, statistics->lost, statistics->discarded,
             statistics->jitter, statistics->tx_reports, statistics->rx_reports);
    return text;
}
