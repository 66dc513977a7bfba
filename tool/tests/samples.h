// SPDX-License-Identifier: MIT
// Records and tap records for tests, built byte by byte.
#ifndef VOICECTL_SAMPLES_H
#define VOICECTL_SAMPLES_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <string_view>
#include <vector>

#include "kex_tap.h"
#include "value.h"

namespace voicectl {

// Call setup (ETSI EN 300 659-3): 21 November 11:38, from 101, FXS1, to 102.
constexpr const char *kCallerBlock = "801A010831313231313133380203313031070446585331030331303292";
// Message waiting: lamp on (0x0B), three messages (0x13).
constexpr const char *kWaitingBlock = "82060B01FF130103AA";

inline void put_word(Bytes &bytes, size_t offset, uint32_t word) {
    std::memcpy(bytes.data() + offset, &word, sizeof word);
}

inline void append_word(Bytes &bytes, uint32_t word) {
    bytes.resize(bytes.size() + sizeof word);
    put_word(bytes, bytes.size() - sizeof word, word);
}

inline void add_item(Bytes &parameters, uint32_t id, const Bytes &value) {
    append_word(parameters, id);
    append_word(parameters, static_cast<uint32_t>(value.size()));
    parameters.insert(parameters.end(), value.begin(), value.end());
    parameters.resize((parameters.size() + 3) & ~size_t{3});
}

inline void add_word(Bytes &parameters, uint32_t id, uint32_t word) {
    Bytes value;
    append_word(value, word);
    add_item(parameters, id, value);
}

inline void add_text(Bytes &parameters, uint32_t id, std::string_view text) {
    Bytes value(text.begin(), text.end());
    value.push_back(0);
    add_item(parameters, id, value);
}

inline Bytes with_parameters(Bytes head, const Bytes &parameters) {
    append_word(head, 0xDEADBEEF); // the pointer word, as it stands
    append_word(head, static_cast<uint32_t>(parameters.size()));
    head.insert(head.end(), parameters.begin(), parameters.end());
    return head;
}

// Endpoint, event, line 1, pointer word, length.
inline Bytes event_bytes(int32_t endpoint, uint32_t event, const Bytes &parameters = {}) {
    Bytes head;
    for (const uint32_t word : {static_cast<uint32_t>(endpoint), event, 1u})
        append_word(head, word);
    return with_parameters(head, parameters);
}

// Endpoint, signal, line 1, message 7, flags, pointer word, length.
inline Bytes signal_bytes(int32_t endpoint, uint32_t signal, const Bytes &parameters = {}, uint32_t flags = 0) {
    Bytes head;
    for (const uint32_t word : {static_cast<uint32_t>(endpoint), signal, 1u, 7u, flags})
        append_word(head, word);
    return with_parameters(head, parameters);
}

inline Bytes set_bytes(const Bytes &parameters) {
    return with_parameters({}, parameters);
}

// A tap record with values of its own: kex_tap_record_t only points.
class Sample {
public:
    enum class Direction { in, out }; // in: to the listener

    Sample(int32_t kind, Direction direction, uint32_t connection, const char *process, uint64_t time_ms = 0) {
        kex_tap_end_t peer{.process_id = 1000 + static_cast<int32_t>(connection), .connection = connection, .name = {}};
        std::strncpy(peer.name, process, sizeof peer.name - 1);
        const kex_tap_end_t listener{.process_id = 1000, .connection = 0, .name = "voice_application"};
        record_.kind = kind;
        record_.time_ns = time_ms * 1'000'000;
        record_.from = direction == Direction::in ? peer : listener;
        record_.to = direction == Direction::in ? listener : peer;
        record_.path = record_.function = record_.text = "";
        record_.bytes = 100;
    }
    Sample(const Sample &) = delete;
    Sample &operator=(const Sample &) = delete;
    ~Sample() {
        for (variant_t &value : values_)
            variant_cleanup(&value);
    }

    Sample &call(uint32_t serial, const char *path, const char *function) {
        record_.serial = serial;
        record_.path = path;
        record_.function = function;
        return *this;
    }
    Sample &serial(uint32_t number) {
        record_.serial = number;
        return *this;
    }
    Sample &text(const char *why) {
        record_.text = why;
        return *this;
    }
    Sample &lost(uint32_t count) {
        record_.lost = count;
        return *this;
    }
    variant_t &value(const char *name) {
        names_.push_back(name);
        values_.push_back({});
        return values_.back();
    }
    Sample &with_text(const char *name, const char *text) {
        variant_setChar(&value(name), text);
        return *this;
    }
    Sample &with_bytes(const char *name, const Bytes &bytes) {
        variant_setByteArray(&value(name), bytes.data(), static_cast<uint32_t>(bytes.size()));
        return *this;
    }
    Sample &with_int16(const char *name, int16_t number) {
        variant_setInt16(&value(name), number);
        return *this;
    }
    Sample &with_uint32(const char *name, uint32_t number) {
        variant_setUInt32(&value(name), number);
        return *this;
    }
    Sample &with_bool(const char *name, bool yes) {
        variant_setBool(&value(name), yes ? 1 : 0);
        return *this;
    }
    Sample &with_descriptors(const char *name, const std::vector<int> &descriptors) {
        variant_t &list_value = value(name);
        variant_initialize(&list_value, VARIANT_LIST);
        for (const int descriptor : descriptors) {
            variant_t item{};
            variant_setFd(&item, descriptor);
            variant_list_add(variant_da_list(&list_value), &item);
            variant_cleanup(&item);
        }
        return *this;
    }
    Sample &with_error(uint32_t code, const char *description, const char *info) {
        codes_.push_back(code);
        descriptions_.push_back(description);
        infos_.push_back(info);
        return *this;
    }

    const kex_tap_record_t &record() {
        pointers_.clear();
        for (const variant_t &one : values_)
            pointers_.push_back(&one);
        record_.argument_count = static_cast<uint32_t>(values_.size());
        record_.argument_names = names_.data();
        record_.arguments = pointers_.data();
        record_.error_count = static_cast<uint32_t>(codes_.size());
        record_.error_codes = codes_.data();
        record_.error_descriptions = descriptions_.data();
        record_.error_infos = infos_.data();
        return record_;
    }

private:
    kex_tap_record_t record_{};
    std::vector<const char *> names_;
    std::deque<variant_t> values_;
    std::vector<const variant_t *> pointers_;
    std::vector<uint32_t> codes_;
    std::vector<const char *> descriptions_;
    std::vector<const char *> infos_;
};

} // namespace voicectl

#endif
