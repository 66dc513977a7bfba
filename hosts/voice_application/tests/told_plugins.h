// SPDX-License-Identifier: MIT
// What plugins know of their lines by what the voice application has sent them.
#pragma once

#include "libvoice_plugin.h"
#include "voice_fake/gtest.h"
#include "voice_records.h"

#include <cstring>
#include <map>
#include <set>
#include <string>

namespace application_test {

// What plugins were told, line by line, as they would know it.
class ToldPlugins {
public:
    std::map<std::string, std::string> tones; // by endpoint; none: silence
    std::set<std::string> media;              // "fxs1.EndPoint.FXS1/0", "fxs1#7/1" for a stream
    std::set<std::string> contexts;           // "fxs1#7/"

    // All that was sent since the last time.
    void follow() {
        while (looked_ < fake::bus().requests_made())
            if (const fake::RequestRecord &request = fake::bus().record(++looked_); request.sent)
                take(request);
    }
    // An endpoint, a plugin or a context is gone, and its media with it.
    void forget(const std::string &prefix) {
        for (std::set<std::string> *all : {&media, &contexts})
            all->erase(all->lower_bound(prefix), all->lower_bound(prefix + '\x7f'));
    }

private:
    unsigned looked_ = 0;

    static uint32_t word_of(const std::string &bytes, size_t at) {
        uint32_t value = 0;
        memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    }
    void open(std::set<std::string> &all, const std::string &what) {
        EXPECT_TRUE(all.insert(what).second) << what << " is there already";
    }
    void expect(const std::set<std::string> &all, const std::string &what) {
        EXPECT_EQ(all.count(what), 1u) << what << " is not there";
    }
    void take_signal(const fake::RequestRecord &request) {
        const uint32_t signal = word_of(request.parameter("signal").data, offsetof(voice_signal_t, signal));
        switch (signal) {
        case LIBVOICE_SIGNAL_fxo_of:
        case LIBVOICE_SIGNAL_fxo_on:
        case LIBVOICE_SIGNAL_fxoen_sd:
        case LIBVOICE_SIGNAL_andisp_data:
            return;
        case LIBVOICE_SIGNAL_zil_cancel_all_signals:
            tones.erase(request.path);
            return;
        default:
            tones[request.path] = libvoice_param_str(signal) + strlen("LIBVOICE_SIGNAL_");
        }
    }
    void take(const fake::RequestRecord &request) {
        const std::string &name = request.function;
        const std::string plain = request.path + "/" + std::to_string(request.parameter("ep_line_id").number);
        const std::string context = request.path + "#" + std::to_string(request.parameter("ctx_id").number) + "/";
        const std::string info = request.parameter("stream_info").data;
        const int64_t stream = info.empty() ? request.parameter("stream_id").number : word_of(info, 0);
        if (name == "signal")
            return take_signal(request);
        if (name == "create")
            return open(media, plain);
        if (name == "create_ctx")
            return open(contexts, context);
        if (name == "modify")
            return expect(media, plain);
        if (name == "modify_stream")
            return expect(media, context + std::to_string(stream));
        if (name == "add_stream") {
            expect(contexts, context);
            return open(media, context + std::to_string(stream));
        }
        if (name == "destroy" || name == "remove_stream") {
            const std::string &what = name == "destroy" ? plain : context + std::to_string(stream);
            expect(media, what);
            media.erase(what);
        } else if (name == "destroy_ctx") {
            expect(contexts, context);
            forget(context);
        }
    }
};

} // namespace application_test
