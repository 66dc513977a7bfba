// SPDX-License-Identifier: MIT
// What the unit tests of the library share: a fixture that starts each test from a library as loaded, and small makers
// of records, tables and callbacks that write themselves into the common log.
#ifndef VOICE_TEST_H
#define VOICE_TEST_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <gmock/gmock.h>

#include "libvoice_plugin.h"
#include "voice_fake/gtest.h"
#include "voice_fake/memory.h"

namespace voice_test {

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::text;
using fake::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// First base of a table's rows: the row's name, which test output shows in place of its bytes.
struct Named {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const Named &row) { return out << row.name; }
};

// One word in host byte order.
inline std::string word(uint32_t value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof(value));
}

inline uint32_t word_at(const void *bytes, size_t offset) {
    uint32_t value;
    memcpy(&value, static_cast<const char *>(bytes) + offset, sizeof(value));
    return value;
}

// One item of a parameter buffer, laid out by hand.
inline std::string item(uint32_t id, const std::string &value) {
    return word(id) + word(static_cast<uint32_t>(value.size())) + value + std::string((4 - value.size() % 4) % 4, '\0');
}

// A signal, an event and a parameter set as they travel.
inline std::string signal_bytes(int32_t endpoint, const std::string &params, uint32_t pointer = 0x51515151) {
    return word(static_cast<uint32_t>(endpoint)) + word(11) + word(12) + word(13) + word(14) + word(pointer) +
           word(static_cast<uint32_t>(params.size())) + params;
}

inline std::string event_bytes(int32_t endpoint, const std::string &params, uint32_t pointer = 0x51515151) {
    return word(static_cast<uint32_t>(endpoint)) + word(11) + word(12) + word(pointer) +
           word(static_cast<uint32_t>(params.size())) + params;
}

inline std::string set_bytes(const std::string &params, uint32_t pointer = 0x51515151) {
    return word(pointer) + word(static_cast<uint32_t>(params.size())) + params;
}

// The low 32 bits of an address, as the pointer word of a head holds it.
inline uint32_t pointer_word_of(const void *address) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

// The common log with the markers of one function only: those of what it calls are another test's business.
inline std::vector<std::string> log_of(const std::string &function) {
    std::vector<std::string> result;
    for (const std::string &line : bus().log()) {
        const bool marker = line.compare(0, 2, "> ") == 0 || line.compare(0, 2, "< ") == 0;
        if (!marker || line.compare(2, function.size() + 1, function + "@") == 0)
            result.push_back(line);
    }
    return result;
}

// Trace messages of the tested file as the log shows them: what a function says, its entry and its exit marker.
inline std::string said(const char *tag, const std::string &function, const std::string &message) {
    return std::string(tag) + " " + function + "@" TESTED_FILE ": " + message;
}
inline std::string enter(const std::string &function) {
    return "> " + function + "@" TESTED_FILE;
}
inline std::string leave(const std::string &function) {
    return "< " + function + "@" TESTED_FILE;
}

#define EXPECT_LOG_OF(function, ...) EXPECT_LINES(voice_test::log_of(function), __VA_ARGS__)

// The same of its last lines, as many as are expected.
inline void expect_end_of_log(const char *file, int line, const std::string &function,
                              const std::vector<std::string> &expected) {
    const std::vector<std::string> log = log_of(function);
    const size_t count = std::min(expected.size(), log.size());
    fake::expect_lines(file, line, expected, {log.end() - static_cast<ptrdiff_t>(count), log.end()});
}

#define EXPECT_END_OF_LOG_OF(function, ...) voice_test::expect_end_of_log(__FILE__, __LINE__, function, {__VA_ARGS__})

// Fills a table entry as the voice application does when a plugin registers.
inline voice_plugin_entry_t *have_plugin(unsigned index, const char *name, peer_t *peer) {
    voice_plugin_entry_t *entry = &voice_plugin_table[index];
    entry->used = 1;
    strcpy(entry->plugin_name, name);
    entry->peer = peer;
    return entry;
}

inline libvoice_endpoint_t *have_endpoint(unsigned index, const char *name, int32_t number,
                                          voice_plugin_entry_t *plugin = nullptr) {
    libvoice_endpoint_t *entry = &endpt_table[index];
    entry->used = 1;
    strcpy(entry->name, name);
    entry->endpoint = number;
    entry->plugin_table = plugin;
    if (plugin)
        strcpy(entry->endpoint_path, text("%s.EndPoint.%s", plugin->plugin_name, name).c_str());
    return entry;
}

// Starts from a library as it was loaded, with a bus; ends with nothing left: no request, variant, list, descriptor or
// memory block, unless the test has declared it.
class VoiceTest : public fake::BusTest {
protected:
    VoiceTest() { fresh(); }

    // Also between the runs of one test.
    void fresh() {
        bus().reset();
        memset(endpt_table, 0, sizeof(endpt_table));
        memset(voice_plugin_table, 0, sizeof(voice_plugin_table));
        memset(_PLUGIN_NAME, 0, sizeof(_PLUGIN_NAME));
        memset(ep_suffix, 0, sizeof(ep_suffix));
        libvoice_registered_callbacks = libvoice_callbacks_t();
        libvoice_app_registered_callbacks = libvoice_app_callbacks_t();
        libvoice_dsp_registered_callbacks = libvoice_dsp_callbacks_t();
        libvoice_set_convert_media(0);
        libvoice_set_kex_handler(bus().handle());
        libvoice_set_kex_peer_handler(nullptr);
        bus().clear_log();
        blocks_left_ = 0;
        fake::memory_start();
    }

    // What each run of a fixture starts from, called by its constructor.
    virtual void prepare() {}

    void again() {
        fresh();
        prepare();
    }

    // Declares memory blocks that stay, as documented.
    void leaves_memory(unsigned blocks) { blocks_left_ += blocks; }

    // What is wrong at the end of a run.
    std::vector<std::string> settle() {
        std::vector<std::string> wrong = bus().check();
        const std::string memory = fake::memory_check(blocks_left_);
        blocks_left_ = 0;
        if (!memory.empty())
            wrong.push_back(memory);
        return wrong;
    }

    void expect_settled(const std::string &what) {
        for (const std::string &wrong : settle())
            ADD_FAILURE() << what << ": " << wrong;
    }

    void TearDown() override {
        for (const std::string &wrong : settle())
            ADD_FAILURE() << wrong;
    }

private:
    unsigned blocks_left_ = 0;
};

} // namespace voice_test

#endif
