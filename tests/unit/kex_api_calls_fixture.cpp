// SPDX-License-Identifier: MIT
#include "kex_api_calls_fixture.h"

namespace voice_test {

void on_get_done(request_t *) {}
void on_init_reply(request_t *, reply_item_t *) {}
void on_exit_reply(request_t *, reply_item_t *) {}

void Requests::prepare() {
    plugin_ = have_plugin(1, "FXS", bus().peer("fxs"));
    have_endpoint(3, "FXS1", 5, plugin_);
    strcpy(_PLUGIN_NAME, "FXS");
    libvoice_set_kex_peer_handler(bus().peer("application"));
    bus().name_function(reinterpret_cast<const void *>(on_get_done), "voice_app_get_done");
    bus().name_function(reinterpret_cast<const void *>(on_init_reply), "voice_app_init_reply");
    bus().name_function(reinterpret_cast<const void *>(on_exit_reply), "voice_app_exit_reply");
    bus().clear_log();
}

std::vector<std::string> Requests::core_log() {
    std::vector<std::string> result;
    for (const std::string &line : bus().log_without_markers())
        if (line.find("@plugin_table: ") == std::string::npos)
            result.push_back(line);
    return result;
}

} // namespace voice_test
