// SPDX-License-Identifier: MIT
// Tap records go in; rows of the long ladder come out.
#ifndef VOICECTL_LADDER_FIXTURE_H
#define VOICECTL_LADDER_FIXTURE_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "libvoice_plugin.h"
#include "samples.h"
#include "show.h"
#include "traffic.h"

namespace voicectl {

constexpr auto in = Sample::Direction::in;
constexpr auto out = Sample::Direction::out;
constexpr const char *kApplication = "VoiceService.VoiceApplication";
constexpr uint64_t kMs = 1'000'000;
constexpr Form kFull{.full = true};

class Ladder : public testing::Test {
protected:
    Ladder() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    static std::string line(const std::optional<Step> &step) { return step ? ladder_line(*step, kFull) : "nothing"; }
    std::string line(Sample &sample) { return line(traffic.next(sample.record())); }
    std::string line(Sample &&sample) { return line(sample); }

    // A plugin "fxs_a" on connection 1 whose endpoint FXS1 has number 4.
    void register_line() {
        line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                 .call(1, kApplication, "register_plugin")
                 .with_text("plugin_name", "fxs_a"));
        line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                 .call(2, kApplication, "register_endpoint")
                 .with_text("plugin_name", "fxs_a")
                 .with_text("endpoint_name", "FXS1"));
        line(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin").serial(2).with_int16("", 4));
    }

    // Endpoint FXS1 of process "x" is refused: the reply, 1 ms after the call.
    std::optional<Step> endpoint_refused() {
        traffic.next(Sample(KEX_TAP_CALL, in, 1, "x", 10)
                         .call(1, kApplication, "register_endpoint")
                         .with_text("endpoint_name", "FXS1")
                         .record());
        return traffic.next(Sample(KEX_TAP_REPLY, out, 1, "x", 11)
                                .serial(1)
                                .with_error(196638, "Missing 'type' parameter.", "type")
                                .with_bool("", false)
                                .record());
    }

    Traffic traffic;
};

} // namespace voicectl

#endif
