// SPDX-License-Identifier: MIT
// What the tests of kex_api_calls.cpp share: requests as the common log shows them, records to send, and both sides set up.
#ifndef KEX_API_CALLS_FIXTURE_H
#define KEX_API_CALLS_FIXTURE_H

#include "voice_test.h"

#include <memory>

namespace voice_test {

constexpr uint32_t kEpId = 0x01FE0003; // LIBVOICE_PARAM_zil_ep_id
constexpr uint32_t kId = 0x02FE000A;
constexpr const char *kService = "VoiceService.VoiceApplication";
constexpr const char *kPath = "FXS.EndPoint.FXS1"; // of the endpoint that all tests have

// What the log says of the one request of a test.
inline std::string made(const char *path, const char *function, unsigned flags) {
    return text("r1 = request_create_executeFunction(\"%s\", \"%s\", 0x%04x)", path, function, flags);
}
inline std::string not_made(const char *path, const char *function, unsigned flags) {
    return text("null = request_create_executeFunction(\"%s\", \"%s\", 0x%04x)", path, function, flags);
}
inline std::string added(const char *name, const Value &value) {
    return text("request_addParameter(r1, \"%s\", ", name) + value.str() + ")";
}
inline std::string sent(const char *peer, int answer = 1) {
    return text("kex_sendRequest(bus, %s, r1) = %d", peer, answer);
}
inline const std::string kDestroyed = "request_destroy(r1)", kWaited = "kex_waitForReply(bus, r1, no limit) = 1";

// Callbacks that the log shows by the names of their fields.
void on_get_done(request_t *request);
void on_init_reply(request_t *request, reply_item_t *item);
void on_exit_reply(request_t *request, reply_item_t *item);

// A record at the end of a heap block: a read past its end shows in the sanitizer. The block begins `at` bytes before
// it; where that is no whole word, a read that expects its words on word boundaries shows too.
template <typename Record>
class Block {
public:
    explicit Block(const std::string &bytes, size_t at = 0) : bytes_(new char[at + bytes.size()]), at_(at) {
        memcpy(bytes_.get() + at, bytes.data(), bytes.size());
    }
    Record *get() { return reinterpret_cast<Record *>(bytes_.get() + at_); }

private:
    std::unique_ptr<char[]> bytes_;
    size_t at_;
};

class Requests : public VoiceTest {
protected:
    Requests() { prepare(); }

    // The plugin FXS with its endpoint FXS1, number 5; this process is a plugin of that name too.
    void prepare() override;

    // Without markers and without the plugin table's own messages.
    static std::vector<std::string> core_log();

    voice_plugin_entry_t *plugin_;
};

#define EXPECT_CORE_LOG(...) EXPECT_LINES(core_log(), __VA_ARGS__)

} // namespace voice_test

#endif
