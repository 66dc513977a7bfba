// SPDX-License-Identifier: MIT
// Sound over RTP for simulated telephones and channels.
#include "audio.h"

#include "codecs.h"
#include "console.h"
#include "g711.h"
#include "kex_host.h"
#include "message.h"

#include <arpa/inet.h>
#include <errno.h>
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

void encode(uint32_t codec, const int16_t *samples, uint8_t *payload) {
    for (uint32_t i = 0; i < kFrameSamples; i++)
        payload[i] = codec == LIBVOICE_CODEC_PCMA   ? g711_alaw_encode(samples[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_encode(samples[i])
                                                    : 0;
}

void decode(uint32_t codec, const uint8_t *payload, uint32_t bytes, int16_t *samples) {
    constexpr int16_t kSilence = 0;
    for (uint32_t i = 0; i < kFrameSamples; i++)
        samples[i] = i >= bytes                     ? kSilence
                     : codec == LIBVOICE_CODEC_PCMA ? g711_alaw_decode(payload[i])
                     : codec == LIBVOICE_CODEC_PCMU ? g711_ulaw_decode(payload[i])
                                                    : kSilence;
}

void add_to(int16_t *mix, const int16_t *samples) {
    for (uint32_t i = 0; i < kFrameSamples; i++) {
        int sum = mix[i] + samples[i];
        mix[i] = static_cast<int16_t>(sum > INT16_MAX ? INT16_MAX : sum < INT16_MIN ? INT16_MIN : sum);
    }
}

// ------------------------------------------------------------------------------------------------- Records from
// outside

const char *read_format(uint32_t version, const uint32_t *params, uint32_t length, media_format *format) {
    int32_t mode = VOICE_MODE_SEND_RECEIVE, up = -1, down = -1, up_payload = -1, down_payload = -1, ptime = 0;
    if (version != VOICE_CNX_VERSION)
        return "media record of another version";
    if (length > VOICE_CNX_PARAMETER_BYTES)
        return "media record is longer than its room";
    params_int(params, length, LIBVOICE_PARAM_sdp_stream_mode, &mode);
    if (!params_int(params, length, LIBVOICE_PARAM_sdp_upstream_codec, &up) ||
        !params_int(params, length, LIBVOICE_PARAM_sdp_upstream_payload, &up_payload) ||
        !params_int(params, length, LIBVOICE_PARAM_sdp_upstream_ptime, &ptime) ||
        !params_int(params, length, LIBVOICE_PARAM_sdp_downstream_codec, &down) ||
        !params_int(params, length, LIBVOICE_PARAM_sdp_downstream_payload, &down_payload))
        return "media record lacks codec or packet time";
    if (mode < VOICE_MODE_INACTIVE || mode > VOICE_MODE_SEND_RECEIVE)
        return "unknown stream mode";
    if (up != down || up_payload != down_payload || up_payload < 0 || up_payload > 127)
        return "both directions must have the same codec";
    if (!is_known(static_cast<uint32_t>(up)))
        return refuse("no %s here", codec_name(static_cast<uint32_t>(up)));
    if (ptime != static_cast<int32_t>(kFrameMs))
        return "packets must last 20 ms";
    format->mode = static_cast<uint32_t>(mode);
    format->codec = static_cast<uint32_t>(up);
    format->payload_type = static_cast<uint32_t>(up_payload);
    return nullptr;
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

void take_packet(media_session *session, const uint8_t *bytes, size_t size) {
    rtp_packet packet;
    const bool good = rtp_read(bytes, size, &packet);
    if (!good || packet.payload_type != session->format.payload_type) {
        session->counts.discarded++;
        if (good)
            rtp_discard(&session->receiver, &packet);
        return;
    }
    rtp_receive(&session->receiver, &packet, rtp_now());
    note_time(&session->counts.last_rx_s, &session->counts.last_rx_us);
    if (!(session->format.mode & VOICE_MODE_RECEIVE_ONLY))
        return;
    constexpr uint32_t kRoom = sizeof session->frames / sizeof session->frames[0];
    if (session->waiting == kRoom) {
        session->counts.overruns++;
        return;
    }
    decode(session->format.codec, packet.payload, packet.bytes, session->frames[session->waiting++]);
}

void rtp_readable(int fd, void *userdata) {
    media_session *session = static_cast<media_session *>(userdata);
    uint8_t bytes[kMaxPacket];
    // A port that nobody listens on any more shows here as an error; the next packet may come through again.
    for (int i = 0; i < 16; i++) {
        ssize_t size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && errno != ECONNREFUSED)
            return;
        if (size >= 0)
            take_packet(session, bytes, static_cast<size_t>(size));
    }
}

void rtcp_readable(int fd, void *userdata) {
    media_session *session = static_cast<media_session *>(userdata);
    uint8_t bytes[kMaxPacket];
    for (int i = 0; i < 16; i++) {
        ssize_t size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && errno != ECONNREFUSED)
            return;
        if (size >= 0 && rtcp_is_report(bytes, static_cast<size_t>(size)))
            session->counts.rx_reports++;
    }
}

// ---------------------------------------------------------------------------------------------------------- Sending

void send_frame(media_session *session, const int16_t *samples) {
    uint8_t payload[kFrameSamples], packet[kRtpHeadBytes + kFrameSamples];
    rtp_sender before = session->sender;
    encode(session->format.codec, samples, payload);
    uint32_t size = rtp_write(&session->sender, static_cast<uint8_t>(session->format.payload_type), payload,
                              sizeof payload, kFrameSamples, packet, sizeof packet);
    ssize_t sent = send(session->rtp, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno == ECONNREFUSED) // the error of an earlier packet: this one was not tried
        sent = send(session->rtp, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(size)) {
        session->sender.packets = before.packets; // true counts: what did not leave is not counted
        session->sender.bytes = before.bytes;
        return;
    }
    note_time(&session->counts.last_tx_s, &session->counts.last_tx_us);
}

void send_report(media_session *session) {
    constexpr uint64_t kNtpEpoch = 2208988800; // seconds from 1900 to 1970
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    uint64_t ntp =
        (static_cast<uint64_t>(now.tv_sec) + kNtpEpoch) << 32 | (static_cast<uint64_t>(now.tv_nsec) << 32) / 1000000000;
    uint8_t packet[256];
    uint32_t size =
        rtcp_write_report(&session->sender, &session->receiver, ntp, session->owner->who, packet, sizeof packet);
    if (session->rtcp >= 0 && size > 0 &&
        send(session->rtcp, packet, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size))
        session->counts.tx_reports++;
}

void tick(audio *audio) {
    int16_t voice[kFrameSamples], heard[kFrameSamples] = {}, in[kSessions][kFrameSamples] = {};
    bool listens = false;
    tone_next(&audio->mouth, voice, kFrameSamples);
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &audio->sessions[i];
        if (!session->open || !(session->format.mode & VOICE_MODE_RECEIVE_ONLY))
            continue;
        listens = true;
        if (session->waiting == 0) {
            session->counts.underruns += session->receiver.started;
            continue;
        }
        memcpy(in[i], session->frames[0], sizeof in[i]);
        session->waiting--;
        memmove(session->frames[0], session->frames[1], session->waiting * sizeof session->frames[0]);
        add_to(heard, in[i]);
    }
    for (uint32_t i = 0; i < kSessions; i++) {
        media_session *session = &audio->sessions[i];
        if (!session->open)
            continue;
        if (session->format.mode & VOICE_MODE_SEND_ONLY) {
            int16_t out[kFrameSamples];
            memcpy(out, voice, sizeof out);
            for (uint32_t other = 0; other < kSessions; other++) // a conference: everybody but himself
                if (other != i && session->context != 0 && audio->sessions[other].context == session->context)
                    add_to(out, in[other]);
            send_frame(session, out);
        }
        session->ticks++;
        if (session->ticks >= kFirstReport && (session->ticks - kFirstReport) % kReportEvery == 0)
            send_report(session);
    }
    if (!listens || !ear_listen(&audio->hearing, heard, kFrameSamples))
        return;
    char name[sizeof audio->heard];
    ear_name(&audio->hearing, name, sizeof name);
    bool again = strcmp(name, audio->candidate) == 0; // once may be the edge of a tone
    memcpy(audio->candidate, name, sizeof name);
    if (again && strcmp(name, audio->heard) != 0) {
        memcpy(audio->heard, name, sizeof name);
        audio->hears(audio, name);
    }
}

void ticked(int fd, void *) {
    uint64_t times = 0;
    if (read(fd, &times, sizeof times) != sizeof times)
        return;
    for (uint64_t i = 0; i < times && i < kMaxCatchUp; i++)
        for (uint32_t k = 0; k < audio_count; k++)
            tick(audios[k]);
}

// The clock stands still while nobody speaks.
bool run_ticker(bool on) {
    if (ticker < 0) {
        ticker = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        if (ticker < 0 || !kex_watch(audio_bus, ticker, nullptr, ticked))
            return false;
    }
    itimerspec period = {};
    if (on)
        period.it_interval.tv_nsec = period.it_value.tv_nsec = kFrameMs * 1000000L;
    return timerfd_settime(ticker, 0, &period, nullptr) == 0;
}

void close_socket(int fd) {
    if (fd < 0)
        return;
    kex_unwatch(audio_bus, fd);
    close(fd);
}

const char *watch_sockets(media_session *session) {
    bool watched = kex_watch(audio_bus, session->rtp, session, rtp_readable) &&
                   (session->rtcp < 0 || kex_watch(audio_bus, session->rtcp, session, rtcp_readable));
    return watched ? nullptr : "media sockets cannot be watched";
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

void reset_hearing(audio *audio) {
    audio->hearing.used = 0;
    audio->candidate[0] = 0;
    audio->heard[0] = 0;
}

} // namespace

const char *media_read_connection(const void *cnx_info, media_format *format) {
    // The library hands out at least 704 readable bytes, on a word boundary of the block that arrived.
    const voice_cnx_info_t *info = static_cast<const voice_cnx_info_t *>(cnx_info);
    return read_format(info->version, info->params, info->length, format);
}

const char *media_read_stream(const void *stream_info, media_format *format, uint32_t *stream) {
    const voice_stream_info_t *info = static_cast<const voice_stream_info_t *>(stream_info);
    *stream = info->stream;
    const char *wrong = read_format(info->version, info->params, info->length, format);
    if (wrong == nullptr && info->mode > VOICE_MODE_SEND_RECEIVE)
        wrong = "unknown stream mode";
    if (wrong == nullptr)
        format->mode = info->mode;
    return wrong;
}

void audio_begin(kex_t *bus) {
    audio_bus = bus;
}

void audio_start(audio *audio, const char *who, uint32_t frequency, void (*hears)(struct audio *, const char *)) {
    snprintf(audio->who, sizeof audio->who, "%s", who);
    audio->mouth.frequency = frequency;
    audio->hears = hears;
    if (audio_count < kAudios)
        audios[audio_count++] = audio;
}

const char *audio_open(audio *audio, uint32_t index, const media_format *format, int rtp, int rtcp, uint32_t context,
                       uint32_t stream) {
    const char *wrong = nullptr;
    if (index >= kSessions)
        wrong = "no such line";
    else if (audio->sessions[index].open)
        wrong = "media is set up already";
    else if (rtp < 0 || !is_connected_udp(rtp))
        wrong = "media descriptor is no connected socket";
    else if (rtcp >= 0 && !is_connected_udp(rtcp))
        wrong = "control descriptor is no connected socket";
    else if (!run_ticker(true))
        wrong = "no clock";
    if (wrong != nullptr) {
        if (rtp >= 0)
            close(rtp);
        if (rtcp >= 0)
            close(rtcp);
        return wrong;
    }
    media_session *session = &audio->sessions[index];
    memset(session, 0, sizeof *session);
    session->owner = audio;
    session->rtp = rtp;
    session->rtcp = rtcp;
    session->format = *format;
    session->context = context;
    session->stream = stream;
    rtp_sender_start(&session->sender);
    session->open = true;
    open_sessions++;
    reset_hearing(audio);
    wrong = watch_sockets(session);
    if (wrong != nullptr)
        audio_close(audio, index, nullptr);
    return wrong;
}

const char *audio_change(audio *audio, uint32_t index, const media_format *format, int rtp, int rtcp) {
    media_session *session = index < kSessions ? &audio->sessions[index] : nullptr;
    const char *wrong = nullptr;
    if (session == nullptr || !session->open)
        wrong = "there is no media to change";
    else if (rtp >= 0 && !is_connected_udp(rtp))
        wrong = "media descriptor is no connected socket";
    else if (rtcp >= 0 && !is_connected_udp(rtcp))
        wrong = "control descriptor is no connected socket";
    if (wrong != nullptr) {
        if (rtp >= 0)
            close(rtp);
        if (rtcp >= 0)
            close(rtcp);
        return wrong;
    }
    if (rtp >= 0) {
        close_socket(session->rtp);
        session->rtp = rtp;
    }
    if (rtcp >= 0) {
        close_socket(session->rtcp);
        session->rtcp = rtcp;
    }
    session->format = *format;
    session->sender.talking = false; // what follows is a new talkspurt
    session->waiting = 0;
    reset_hearing(audio);
    return rtp >= 0 || rtcp >= 0 ? watch_sockets(session) : nullptr;
}

bool audio_close(audio *audio, uint32_t index, media_statistics *statistics) {
    if (index >= kSessions || !audio->sessions[index].open)
        return false;
    media_session *session = &audio->sessions[index];
    rtp_readable(session->rtp, session); // what has arrived before the end counts
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
    close_socket(session->rtp);
    close_socket(session->rtcp);
    session->open = false;
    session->context = 0;
    reset_hearing(audio);
    if (--open_sessions == 0)
        run_ticker(false);
    return true;
}

const char *audio_text(const audio *audio, uint32_t index) {
    static char text[80];
    const media_session *session = &audio->sessions[index];
    sockaddr_in local = {}, remote = {};
    socklen_t size = sizeof local;
    getsockname(session->rtp, reinterpret_cast<sockaddr *>(&local), &size);
    size = sizeof remote;
    getpeername(session->rtp, reinterpret_cast<sockaddr *>(&remote), &size);
    snprintf(text, sizeof text, "codec=%s ports=%u->%u", codec_name(session->format.codec), ntohs(local.sin_port),
             ntohs(remote.sin_port));
    return text;
}

const char *media_statistics_text(const media_statistics *statistics) {
    static char text[160];
    snprintf(text, sizeof text, "tx=%u rx=%u lost=%u discarded=%u jitter=%u rtcp=%u/%u", statistics->tx_packets,
             statistics->rx_packets, statistics->lost, statistics->discarded, statistics->jitter,
             statistics->tx_reports, statistics->rx_reports);
    return text;
}
