// SPDX-License-Identifier: MIT
// What the tests of media share: telephones of a plugin that talk, and what was sent to it of that.
#pragma once

#include "application.h"
#include "media.h"

#include <gmock/gmock.h>

namespace application_test {

class Media : public ApplicationTest {
protected:
    Media() { app().register_plugin("fxs1"); }

    int32_t telephone(const char *name, std::initializer_list<voice_codec_t> codecs = {kPcma, kPcmu}) {
        return app().register_endpoint("fxs1", name, VOICE_ENDPOINT_FXS, codecs);
    }
    void talk(int32_t from, int32_t to) {
        app().event(from, LIBVOICE_EVENT_al_of);
        app().dial(from, line_of_endpoint(to)->number);
        app().event(to, LIBVOICE_EVENT_al_of);
    }
    static const fake::RequestRecord &last(const char *function) {
        unsigned id = fake::bus().requests_made();
        while (id > 0 && fake::bus().record(id).function != function)
            id--;
        return fake::bus().record(id);
    }
};

inline std::string items(uint32_t mode, const voice_codec_t &codec) {
    return item(LIBVOICE_PARAM_sdp_stream_mode, word(mode)) +
           item(LIBVOICE_PARAM_sdp_upstream_codec, word(codec.codec)) +
           item(LIBVOICE_PARAM_sdp_upstream_ptime, word(20)) +
           item(LIBVOICE_PARAM_sdp_upstream_payload, word(codec.payload_type)) +
           item(LIBVOICE_PARAM_sdp_downstream_codec, word(codec.codec)) +
           item(LIBVOICE_PARAM_sdp_downstream_ptime, word(20)) +
           item(LIBVOICE_PARAM_sdp_downstream_payload, word(codec.payload_type));
}

} // namespace application_test
