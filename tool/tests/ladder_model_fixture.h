// SPDX-License-Identifier: MIT
// Tap records go in; a ladder comes out.
#ifndef VOICECTL_LADDER_MODEL_FIXTURE_H
#define VOICECTL_LADDER_MODEL_FIXTURE_H

#include <string>

#include <gtest/gtest.h>

#include "ladder_feed.h"
#include "ladder_model.h"
#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

using Kind = LadderRow::Kind;
constexpr auto kIn = Sample::Direction::in;
constexpr auto kOut = Sample::Direction::out;
constexpr const char *kService = "VoiceService.VoiceApplication";

class LadderModelTest : public testing::Test {
protected:
    void take(Sample &sample) { feed.take(sample.record()); }
    void take(Sample &&sample) { feed.take(sample.record()); }

    // Plugin "fxs_a" on connection 1 with endpoint FXS1, number 4, at 1 s.
    void register_line(uint32_t connection = 1, const char *plugin = "fxs_a", const char *endpoint = "FXS1",
                       int16_t number = 4) {
        take(Sample(KEX_TAP_CALL, kIn, connection, "fxs_plugin", 1000)
                 .call(1, kService, "register_plugin")
                 .with_text("plugin_name", plugin));
        take(Sample(KEX_TAP_REPLY, kOut, connection, "fxs_plugin", 1001).serial(1).with_bool("", true));
        take(Sample(KEX_TAP_CALL, kIn, connection, "fxs_plugin", 1002)
                 .call(2, kService, "register_endpoint")
                 .with_text("plugin_name", plugin)
                 .with_text("endpoint_name", endpoint));
        take(Sample(KEX_TAP_REPLY, kOut, connection, "fxs_plugin", 1003).serial(2).with_int16("", number));
    }
    void event(int32_t endpoint, uint64_t time_ms, uint32_t connection = 1) {
        take(Sample(KEX_TAP_ONE_WAY_CALL, kIn, connection, "fxs_plugin", time_ms)
                 .call(9, kService, "event")
                 .with_bytes("event", event_bytes(endpoint, LIBVOICE_EVENT_al_of)));
    }

    std::string lanes(const LadderModel &ladder) {
        std::string names;
        for (const Lane &lane : ladder.lanes)
            names += (names.empty() ? "" : " ") + lane.name;
        return names;
    }
    std::string lane(const LadderModel &ladder, int at) {
        return at < 0 ? "" : ladder.lanes.at(static_cast<size_t>(at)).name;
    }

    LadderFeed feed{Filter()};
};

} // namespace voicectl

#endif
