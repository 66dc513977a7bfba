// SPDX-License-Identifier: MIT
// Generated values: what an argument should hold, and what it should not.
#include "values.h"

#include "libvoice_plugin.h"

#include <algorithm>
#include <netinet/in.h>
#include <sys/mman.h>

namespace fuzz {

using fake::Reply;
using fake::Value;

namespace {

std::string as_bytes(const void *record, size_t size) {
    return std::string(static_cast<const char *>(record), size);
}

std::string word(uint32_t value) {
    return as_bytes(&value, sizeof value);
}

Value descriptors(Input &in) {
    constexpr int kClosed = 9999;
    Value list = Value::list({});
    for (uint32_t left = in.below(16); left > 0; --left) {
        const uint32_t which = in.below(8);
        list.items.push_back(which == 6 ? Value::fd(-1) : which == 7 ? Value::fd(kClosed) : Value::fd(file(which)));
    }
    return list;
}

// A head of words and a length word that says what follows, or more, or less.
std::string record(Input &in, size_t head_words) {
    std::string head = word(in.below(40) - 4);
    while (head.size() < 4 * head_words)
        head += word(in.byte());
    const std::string buffer = params(in);
    const uint8_t wrong = in.byte();
    const auto length = static_cast<uint32_t>(buffer.size());
    head += word(wrong < 224 ? length : wrong == 255 ? in.word() : length + wrong - 240);
    return head + buffer;
}

sockaddr_in address(Input &in) {
    sockaddr_in address = {};
    address.sin_family = in.byte() == 255 ? AF_UNIX : AF_INET;
    // Loopback: a run must not bind what others on this machine could use.
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + (in.flag() ? 0 : 1));
    address.sin_port = in.half();
    return address;
}

std::string cnx_info(Input &in) {
    const uint8_t form = in.byte();
    const std::string info(LIBVOICE_CNX_INFO_BYTES, static_cast<char>(in.byte()));
    if (form < 96)
        return info;
    if (form > 224)
        return info.substr(0, in.byte());
    const sockaddr_in local = address(in), remote = address(in);
    const std::string both = as_bytes(&local, sizeof local) + as_bytes(&remote, sizeof remote);
    return info + (form < 200 ? both : both.substr(0, in.below(34)));
}

} // namespace

int file(uint32_t index) {
    static const int files[] = {memfd_create("fuzz", MFD_CLOEXEC), memfd_create("fuzz", MFD_CLOEXEC),
                                memfd_create("fuzz", MFD_CLOEXEC)};
    return files[index % std::size(files)];
}

Value value_of(Input &in, Kind kind) {
    switch (kind) {
    case Kind::text:
        return Value::chars(name(in));
    case Kind::u16:
        return Value::u16(in.half());
    case Kind::u32:
        return Value::u32(in.word());
    case Kind::i32:
        return Value::i32(static_cast<int32_t>(in.word()));
    case Kind::signal:
        return Value::bytes(record(in, sizeof(libvoice_signal_t) / 4 - 1));
    case Kind::event:
        return Value::bytes(record(in, sizeof(libvoice_event_t) / 4 - 1));
    case Kind::set:
        return Value::bytes(record(in, sizeof(libvoice_param_set_t) / 4 - 1));
    case Kind::cnx_info:
        return Value::bytes(cnx_info(in));
    case Kind::stream_info:
        return Value::bytes(std::string(in.flag() ? LIBVOICE_STREAM_INFO_BYTES : in.byte(), 's'));
    case Kind::codecs:
        return Value::bytes(std::string(in.half() % 600, 'c'));
    case Kind::descriptors:
        return descriptors(in);
    }
    return Value();
}

Value any_value(Input &in, int depth) {
    constexpr int kDeepest = 3;
    static constexpr uint32_t kTypes[] = {VARIANT_TEXT, VARIANT_INT16, VARIANT_INT32, VARIANT_UINT16, VARIANT_UINT32,
                                          VARIANT_BOOL, VARIANT_FD,    VARIANT_BYTES, VARIANT_NONE,   VARIANT_LIST};
    switch (const uint32_t type = kTypes[in.below(std::size(kTypes))]) {
    case VARIANT_TEXT:
        return Value::chars(in.text());
    case VARIANT_INT16:
        return Value::i16(static_cast<int16_t>(in.half()));
    case VARIANT_INT32:
        return Value::i32(static_cast<int32_t>(in.word()));
    case VARIANT_UINT16:
        return Value::u16(in.half());
    case VARIANT_UINT32:
        return Value::u32(in.word());
    case VARIANT_BOOL:
        return Value::boolean(in.flag());
    case VARIANT_FD:
        return Value::fd(file(in.byte()));
    case VARIANT_BYTES:
        return Value::bytes(in.text());
    case VARIANT_LIST: {
        Value list = Value::list({});
        for (uint32_t left = depth < kDeepest ? in.below(12) : 0; left > 0; --left)
            list.items.push_back(any_value(in, depth + 1));
        return list;
    }
    default:
        return Value::without_value(type);
    }
}

std::string name(Input &in) {
    static const char *const kNames[] = {
        "fxs1", "fxs2", "dect1", "dsp1", "FXS1", "FXS2", "DECT1", "channel1", "fxs1.EndPoint.FXS1"};
    constexpr uint32_t kForms = 16;
    const uint32_t form = in.below(kForms);
    if (form < std::size(kNames))
        return kNames[form];
    if (form == kForms - 1)
        return std::string(in.half() % 400, 'n'); // longer than any field
    return form == kForms - 2 ? "" : in.text();
}

std::string params(Input &in) {
    if (in.byte() >= 224)
        return in.text();
    std::string buffer;
    for (uint32_t left = in.below(6); left > 0; --left) {
        buffer += word(in.word());
        const std::string value = in.text();
        buffer += word(static_cast<uint32_t>(value.size())) + value + std::string((4 - value.size() % 4) % 4, '\0');
    }
    return buffer;
}

Reply reply(Input &in) {
    if (in.byte() >= 240)
        return Reply::none();
    Reply reply;
    for (uint32_t left = in.below(4); left > 0; --left) {
        if (in.flag()) {
            reply.value(any_value(in));
            continue;
        }
        const uint32_t code = in.word();
        const std::string description = in.text();
        reply.error(code, description, in.text());
    }
    return reply;
}

} // namespace fuzz
