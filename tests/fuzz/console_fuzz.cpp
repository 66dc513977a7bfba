// SPDX-License-Identifier: MIT
// The console of the voice application: any lines from a control connection, while plugins, lines, calls and time come
// and go as other lines say:
//
//     !plugin fxs1              a plugin registers
//     !line fxs1 FXS1 0         one of its endpoints registers, of a type
//     !event 0 LIBVOICE_EVENT_al_of     an event of an endpoint, by its number
//     !time 1000                milliseconds pass
//     !close fxs1               a connection closes
//
// Each command is answered, and no answer breaks a line or steers a terminal.
#include "callbacks.h"
#include "commands.h"
#include "console.h"
#include "host.h"
#include "lines.h"
#include "plan.h"

#include "control_client.h"
#include "kex_host.h"

#include <algorithm>
#include <vector>

using fake::bus;
using fake::Call;
using fake::Value;
using fuzz::require;

// In place of host.cpp, which handles the process's signals.
kex_t *host_bus() {
    return bus().handle();
}
void host_terminate() {
    kex_stop(bus().handle());
}

namespace {

class Application {
public:
    Application() {
        bus().reset();
        std::fill(std::begin(endpt_table), std::end(endpt_table), libvoice_endpoint_t());
        the_plan = plan();
        // An address of the process's own, so that it meets nobody on a port.
        const unsigned own = static_cast<unsigned>(getpid());
        snprintf(the_plan.address, sizeof the_plan.address, "127.%u.%u.%u", 1 + (own >> 16 & 63), own >> 8 & 255,
                 own & 255);
        kex_t *on = kex_create("voice_application");
        libvoice_set_kex_handler(on);
        libvoice_set_convert_media(0);
        require(application_start(on) == nullptr, "the application starts");
        unlink(fuzz::control_path().c_str());
        require(console_start(on, false, fuzz::control_path().c_str(), true, command_run, host_terminate),
                "the console starts");
    }
    ~Application() {
        for (const std::string &plugin : plugins_)
            peer_close(plugin);
        bus().turn();
        console_stop();
        application_end();
        require(bus().live().timers == 0, "no timer is left");
        require(std::none_of(std::begin(lines), std::end(lines), [](const line &one) { return one.used; }),
                "no line is left");
        kex_destroy(bus().handle());
        for (const std::string &wrong : bus().check())
            fuzz::fail(wrong);
    }
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    // What a line that begins with '!' says.
    void step(const std::string &text) {
        std::istringstream words(text);
        std::string what, plugin, name;
        long number = 0;
        words >> what;
        if (what == "!plugin" && words >> plugin)
            plugin_register(plugin);
        else if (what == "!line" && words >> plugin >> name >> number)
            endpoint_register(plugin, name, static_cast<uint16_t>(number));
        else if (what == "!event" && words >> number >> name)
            event(static_cast<int32_t>(number), libvoice_str_to_param(name.c_str()));
        else if (what == "!time" && words >> number && number >= 0 && number < 100'000)
            bus().run_for(static_cast<uint64_t>(number));
        else if (what == "!close" && words >> plugin)
            peer_close(plugin);
    }

private:
    // What was asked of a peer that closes is answered by an error, and then the application hears of it.
    static void peer_close(const std::string &name) {
        peer_t *peer = bus().peer(name);
        for (unsigned id = 1; id <= bus().requests_made(); ++id)
            if (bus().record(id).alive && bus().record(id).sent && bus().record(id).peer == peer)
                bus().complete(bus().request(id), fake::Reply().error(KEX_ERROR_PEER_CLOSED, "Peer closed", ""));
        bus().close(peer);
    }
    void plugin_register(const std::string &name) {
        constexpr size_t kMostPlugins = 12;
        if (plugins_.size() == kMostPlugins)
            return;
        plugins_.push_back(name);
        Call call;
        call.from(bus().peer(name)).on(bus().object(LIBVOICE_APPLICATION_PATH)).named("register_plugin");
        call.with("plugin_name", Value::chars(name)).run(__VoiceService_register_plugin);
    }
    static void endpoint_register(const std::string &plugin, const std::string &name, uint16_t type) {
        voice_codec_t codec = {LIBVOICE_CODEC_PCMA, LIBVOICE_CODEC_PCMA, 1u << 1, 64000};
        Call call;
        call.from(bus().peer(plugin)).on(bus().object(LIBVOICE_APPLICATION_PATH)).named("register_endpoint");
        call.with("plugin_name", Value::chars(plugin)).with("endpoint_name", Value::chars(name));
        call.with("endpoint_path", Value::chars(plugin + ".EndPoint." + name)).with("type", Value::u16(type));
        call.with("codeclist", Value::bytes(&codec, sizeof codec)).run(__VoiceService_register_endpoint);
    }
    static void event(int32_t endpoint, uint32_t identifier) {
        const line *who = line_of_endpoint(endpoint);
        const std::string plugin = who ? who->plugin : "nobody";
        const uint32_t words[] = {static_cast<uint32_t>(endpoint), identifier, 0, 0, 0};
        Call call;
        call.from(bus().peer(plugin)).on(bus().object(LIBVOICE_APPLICATION_PATH)).named("event");
        call.with("plugin_name", Value::chars(plugin)).with("event", Value::bytes(words, sizeof words));
        call.run(__VoiceService_event);
    }

    std::vector<std::string> plugins_;
};

void run(const std::string &input) {
    Application application;
    std::istringstream lines(input);
    fuzz::control_lines_run(lines, [&application](const std::string &line) { application.step(line); });
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    run(std::string(reinterpret_cast<const char *>(bytes), size));
    return 0;
}
