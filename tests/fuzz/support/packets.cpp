// SPDX-License-Identifier: MIT
// Generated packets, and what is done with a bus that gets them.
#include "packets.h"

#include "messages.h"
#include "require.h"

#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

using support::Packet;
using support::RawKind;

namespace {

constexpr size_t kMostDescriptors = 70; // more than a message may have

int file() {
    static const int descriptor = memfd_create("fuzz", MFD_CLOEXEC);
    return descriptor;
}

std::string word_of(Input &in) {
    static const char *const kWords[] = {"Probe", "take", "call_back", "leave", "wait",  "kex", "list",
                                         "text",  "u16",  "u32",       "i32",   "bytes", ""};
    constexpr uint32_t kForms = 16;
    const uint32_t form = in.below(kForms);
    if (form < std::size(kWords))
        return kWords[form];
    return form == kForms - 1 ? std::string(in.half(), 'w') : in.text();
}

void value_add(Input &in, Packet &to, size_t &descriptors, int depth = 0) {
    constexpr int kDeepest = 6; // deeper than a list may stand
    static constexpr uint8_t kTypes[] = {VARIANT_TEXT, VARIANT_INT16, VARIANT_INT32, VARIANT_UINT16, VARIANT_UINT32,
                                         VARIANT_BOOL, VARIANT_LIST,  VARIANT_FD,    VARIANT_BYTES,  VARIANT_NONE};
    const uint8_t which = in.byte();
    const uint8_t type = which < 250 ? kTypes[which % std::size(kTypes)] : in.byte();
    to.byte(type);
    if (number_add(in, to, type))
        return;
    switch (type) {
    case VARIANT_TEXT:
    case VARIANT_BYTES:
        to.text(in.text());
        return;
    case VARIANT_BOOL:
        to.byte(in.below(20) == 19 ? 2 : in.flag());
        return;
    case VARIANT_LIST: {
        const uint32_t count = depth < kDeepest ? in.below(8) : 0;
        to.word(count);
        for (uint32_t i = 0; i < count; ++i)
            value_add(in, to, descriptors, depth + 1);
        return;
    }
    case VARIANT_FD:
        if (in.byte() >= 240)
            to.word(in.byte()).word(in.byte());
        else if (in.below(4) == 3)
            to.word(UINT32_MAX).word(UINT32_MAX);
        else
            to.word(static_cast<uint32_t>(descriptors++)).word(in.byte());
        return;
    default:
        return;
    }
}

void call_add(Input &in, Packet &to, size_t &descriptors) {
    to.text(in.below(4) == 3 ? word_of(in) : "Probe").text(word_of(in));
    const uint8_t count = in.byte() >= 250 ? in.byte() : static_cast<uint8_t>(in.below(7));
    to.byte(count);
    for (unsigned i = 0; i < count; ++i) {
        to.text(word_of(in));
        value_add(in, to, descriptors);
    }
}

void end_add(Input &in, Packet &to) {
    to.word(in.byte()).word(in.below(4)).text(in.text());
}

void tap_record_add(Input &in, Packet &to, const std::vector<uint32_t> &serials) {
    to.word(in.below(12)).word(in.word()).word(in.byte());
    end_add(in, to);
    end_add(in, to);
    to.word(in.byte()).text(in.text());
    const std::string inner = in.below(4) == 3 ? "" : packet(in, serials).bytes;
    to.word(static_cast<uint32_t>(inner.size())).raw(inner);
}

// A few bytes changed, the end cut off, or something behind it.
void bytes_change(Input &in, std::string &bytes) {
    for (uint32_t left = in.below(4); left > 0 && !bytes.empty(); --left)
        bytes[in.half() % bytes.size()] = static_cast<char>(in.byte());
    const uint32_t end = in.below(4);
    if (end == 1)
        bytes.resize(bytes.size() - in.half() % (bytes.size() + 1));
    if (end == 2)
        bytes += in.text();
}

} // namespace

GeneratedPacket packet_of_kind(Input &in, uint8_t kind, uint32_t serial) {
    Packet made(kind, serial, in.byte() >= 240 ? in.word() : 0x8001);
    size_t descriptors = 0;
    switch (kind) {
    case RawKind::kHello:
    case RawKind::kRefused:
    case RawKind::kTapHello:
        made.text(in.text());
        break;
    case RawKind::kCall:
    case RawKind::kOneWayCall:
        call_add(in, made, descriptors);
        break;
    case RawKind::kReply:
    case RawKind::kMissed:
        reply_add(in, made, [&] { value_add(in, made, descriptors); });
        break;
    case RawKind::kTapRecord:
        tap_record_add(in, made, {serial});
        break;
    default:
        break;
    }
    descriptors = std::min(descriptors, kMostDescriptors);
    return {made.descriptors(static_cast<uint32_t>(descriptors)).bytes(), std::vector<int>(descriptors, file())};
}

namespace {

uint32_t serial_of(Input &in, const std::vector<uint32_t> &serials) {
    const bool answers = !serials.empty() && in.byte() < 224;
    return answers ? serials[in.byte() % serials.size()] : in.byte();
}

// What a message says of its size, or of its descriptors, changed.
void head_change(Input &in, std::string &message) {
    constexpr uint32_t kSizeAt = 12;
    constexpr uint32_t kDescriptorsAt = 16;
    const size_t at = in.flag() ? kSizeAt : kDescriptorsAt;
    const uint32_t form = in.below(4);
    uint32_t word = 0;
    memcpy(&word, message.data() + at, sizeof word);
    word = form == 0 ? in.word() : form == 1 ? word + 1 : form == 2 ? word - 1 : in.byte();
    memcpy(message.data() + at, &word, sizeof word);
}

// A packet of some messages.
GeneratedPacket several(Input &in, const std::vector<uint32_t> &serials) {
    GeneratedPacket made;
    for (uint32_t left = 1 + in.below(5); left > 0; --left) {
        const uint8_t how = in.byte();
        GeneratedPacket one = packet_of_kind(in, how % 10, serial_of(in, serials));
        if (how >= 224)
            head_change(in, one.bytes);
        const uint32_t times = how % 32 == 31 ? 1 + in.below(70) : 1; // more than a packet may have
        for (uint32_t i = 0; i < times; ++i) {
            made.bytes += one.bytes;
            made.descriptors.insert(made.descriptors.end(), one.descriptors.begin(), one.descriptors.end());
        }
    }
    constexpr size_t kMostOfTheKernel = 253;
    made.descriptors.resize(std::min(made.descriptors.size(), kMostOfTheKernel));
    return made;
}

} // namespace

GeneratedPacket packet(Input &in, const std::vector<uint32_t> &serials) {
    const uint8_t how = in.byte();
    if (how >= 240)
        return {in.text(), std::vector<int>(in.below(4), file())};
    const auto kind = static_cast<uint8_t>(how % 10);
    GeneratedPacket made = kind == 0 ? several(in, serials) : packet_of_kind(in, kind, serial_of(in, serials));
    if (how >= 160)
        bytes_change(in, made.bytes);
    if (how >= 220)
        made.descriptors.resize(in.below(kMostDescriptors), file());
    return made;
}

// ------------------------------------------------------------------------------------------------------------ The bus

const std::string &socket_path() {
    static const std::string path = [] {
        const char *folder = getenv("TMPDIR");
        const std::string own = std::string(folder ? folder : "/tmp") + "/kex-fuzz-" + std::to_string(getpid());
        return own;
    }();
    static const bool registered = atexit([] {
                                       unlink(socket_path().c_str());
                                       unlink((socket_path() + ".lock").c_str());
                                   }) == 0;
    require(registered, "the socket's file is taken away at the end");
    return path;
}

std::string socket_uri() {
    return "kex://ipc:[" + socket_path() + "]";
}

void sent_check(const std::string &message) {
    const std::string head = Packet(0).bytes();
    require(message.size() >= head.size() && message.compare(0, 3, head, 0, 3) == 0, "what the bus sends has its head");
    require(support::messages_of(message).size() == 1, "what the bus sends is as long as it says");
    const uint8_t kind = support::kind_of(message);
    require(kind >= RawKind::kHello && kind <= RawKind::kMissed, "what the bus sends is of a known kind");
}

void messages_take(support::RawPeer &peer, std::vector<uint32_t> &serials) {
    constexpr size_t kMostSerials = 16;
    for (const std::string &message : peer.receive_all()) {
        sent_check(message);
        if (support::kind_of(message) == RawKind::kCall && serials.size() < kMostSerials)
            serials.push_back(support::serial_of(message));
    }
}

void bus_settle(kex_t *bus) {
    constexpr int kMostTurns = 1000;
    pollfd descriptor = {kex_pollDescriptor(bus), POLLIN, 0};
    for (int i = 0; i < kMostTurns; ++i) {
        kex_dispatch(bus);
        if (poll(&descriptor, 1, 0) <= 0)
            return;
    }
    fail("the bus does not come to rest");
}

size_t descriptors_open() {
    file(); // the process's own is counted from the first time on
    DIR *folder = opendir("/proc/self/fd");
    require(folder != nullptr, "/proc is there");
    size_t count = 0;
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

void descriptors_settle(size_t before) {
    constexpr int kMostLooks = 20000;
    for (int i = 0; i < kMostLooks; ++i) {
        if (descriptors_open() == before)
            return;
        usleep(100);
    }
    fail("every descriptor is closed");
}

} // namespace fuzz
