// SPDX-License-Identifier: MIT
// The voice application on the fake bus.
#include "application.h"

#include "callbacks.h"
#include "host.h"
#include "local_sockets.h"
#include "plan.h"

#include <cstdio>
#include <cstring>
#include <regex>

namespace application_test {

using fake::Call;
using fake::text;

const voice_codec_t kPcma = {LIBVOICE_CODEC_PCMA, 8, 1u << 1, 64000};
const voice_codec_t kPcmu = {LIBVOICE_CODEC_PCMU, 0, 1u << 1, 64000};
const voice_codec_t kG722 = {LIBVOICE_CODEC_G722, 9, 1u << 1, 64000};

namespace {

uint32_t word_at(const std::string &bytes, size_t offset) {
    uint32_t value = 0;
    if (offset + sizeof value <= bytes.size())
        memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

std::string bytes_of(const Value &value) {
    return value.data;
}

// The bytes of an item in a parameter buffer.
std::string value_of(const std::string &params, uint32_t id) {
    size_t at = 0;
    while (at + 8 <= params.size()) {
        const uint32_t length = word_at(params, at + 4);
        if (word_at(params, at) == id)
            return params.substr(at + 8, length);
        at += 8 + (length + 3) / 4 * 4;
    }
    return "";
}

std::string signal_text(const std::string &bytes) {
    const uint32_t signal = word_at(bytes, offsetof(voice_signal_t, signal));
    if (signal == LIBVOICE_SIGNAL_zil_cancel_all_signals)
        return "silence";
    std::string name = libvoice_param_str(signal);
    const std::string prefix = "LIBVOICE_SIGNAL_";
    name = name.substr(name.compare(0, prefix.size(), prefix) == 0 ? prefix.size() : 0);
    if (signal == LIBVOICE_SIGNAL_fxoen_sd)
        name += " " + std::string(value_of(bytes.substr(sizeof(voice_signal_t)), LIBVOICE_PARAM_fxoen_sd_ds).c_str());
    return name;
}

std::string mode_text(const std::string &params) {
    const std::string mode = value_of(params, LIBVOICE_PARAM_sdp_stream_mode);
    switch (mode.size() == 4 ? word_at(mode, 0) : UINT32_MAX) {
    case VOICE_MODE_INACTIVE:
        return " inactive";
    case VOICE_MODE_SEND_RECEIVE:
        return " both";
    default:
        return " ?";
    }
}

std::string appearance_text(const fake::RequestRecord &request) {
    const int64_t appearance = request.parameter("ep_line_id").number;
    return appearance == 0 ? "" : text("/%d", static_cast<int>(appearance));
}

std::string request_text(const fake::RequestRecord &request) {
    const std::string &name = request.function;
    if (name == "signal")
        return signal_text(bytes_of(request.parameter("signal")));
    if (name == "modify")
        return name + appearance_text(request) +
               mode_text(bytes_of(request.parameter("cnx_info")).substr(offsetof(voice_cnx_info_t, params)));
    if (name == "create" || name == "destroy")
        return name + appearance_text(request);
    if (name == "add_stream" || name == "modify_stream") {
        const std::string info = bytes_of(request.parameter("stream_info"));
        return name + text(" %u", word_at(info, offsetof(voice_stream_info_t, stream))) +
               (name == "add_stream" ? "" : mode_text(info.substr(offsetof(voice_stream_info_t, params))));
    }
    if (name == "remove_stream")
        return name + text(" %d", static_cast<int>(request.parameter("stream_id").number));
    return name;
}

} // namespace

std::string word(uint32_t value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

std::string item(uint32_t id, const std::string &value) {
    return word(id) + word(static_cast<uint32_t>(value.size())) + value + std::string((4 - value.size() % 4) % 4, '\0');
}

Application::Application() {
    bus().reset();
    memset(endpt_table, 0, sizeof endpt_table);
    memset(static_cast<void *>(lines), 0, sizeof lines);
    the_plan = plan();
    strcpy(the_plan.address, voice_test::own_host().c_str()); // tests run side by side
    EXPECT_STREQ(application_start(host_start("voice_application")), nullptr);
    testing::internal::CaptureStdout();
}

Application::~Application() {
    for (const std::string &name : plugins_)
        close(name);
    application_end();
    output_ += testing::internal::GetCapturedStdout();
    if (testing::Test::HasFailure()) // what went wrong was captured too
        fputs(output_.c_str(), stdout);
    EXPECT_EQ(bus().live().timers, 0u) << "timers are left";
    libvoice_set_convert_media(0);
    host_end();
}

void Application::register_plugin(const std::string &name) {
    Call call;
    call.from(bus().peer(name)).on(bus().object(LIBVOICE_APPLICATION_PATH)).with("plugin_name", Value::chars(name));
    EXPECT_EQ(call.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE) << name;
    plugins_.push_back(name);
    labels_[name] = name;
    bus().advance(0);
    sent();
}

int32_t Application::register_endpoint(const std::string &plugin, const std::string &name, int32_t type,
                                       std::initializer_list<voice_codec_t> codecs, const std::string &label) {
    const std::string path = plugin + ".EndPoint." + name;
    std::string records;
    for (const voice_codec_t &codec : codecs)
        records.append(reinterpret_cast<const char *>(&codec), sizeof codec);
    Call call;
    call.from(bus().peer(plugin)).with("plugin_name", Value::chars(plugin)).with("endpoint_name", Value::chars(name));
    call.with("endpoint_path", Value::chars(path)).with("type", Value::u16(static_cast<uint16_t>(type)));
    call.with("codeclist", Value::bytes(records));
    labels_[path] = label.empty() ? name : label;
    if (call.run(__VoiceService_register_endpoint) != KEX_FUNCTION_DONE)
        return -1;
    return static_cast<int32_t>(call.returned().number);
}

void Application::deregister_endpoint(int32_t endpoint) {
    Call().with("endpoint", Value::u16(static_cast<uint16_t>(endpoint))).run(__VoiceService_deregister_endpoint);
}

void Application::event(int32_t endpoint, uint32_t event, const std::string &params, uint32_t appearance) {
    const line *who = line_of_endpoint(endpoint);
    const char *plugin = who != nullptr ? who->plugin : "nobody";
    const std::string bytes = word(static_cast<uint32_t>(endpoint)) + word(event) + word(appearance) + word(0) +
                              word(static_cast<uint32_t>(params.size())) + params;
    Call call;
    call.from(bus().peer(plugin)).with("plugin_name", Value::chars(plugin)).with("event", Value::bytes(bytes));
    call.run(__VoiceService_event);
}

void Application::close(const std::string &plugin) {
    bus().close(bus().peer(plugin));
}

void Application::dial(int32_t endpoint, const std::string &digits) {
    static const std::map<char, uint32_t> events = {
        {'0', LIBVOICE_EVENT_dd_d0}, {'1', LIBVOICE_EVENT_dd_d1}, {'2', LIBVOICE_EVENT_dd_d2},
        {'3', LIBVOICE_EVENT_dd_d3}, {'4', LIBVOICE_EVENT_dd_d4}, {'5', LIBVOICE_EVENT_dd_d5},
        {'6', LIBVOICE_EVENT_dd_d6}, {'7', LIBVOICE_EVENT_dd_d7}, {'8', LIBVOICE_EVENT_dd_d8},
        {'9', LIBVOICE_EVENT_dd_d9}, {'*', LIBVOICE_EVENT_dd_ds}, {'#', LIBVOICE_EVENT_dd_do},
    };
    for (const char digit : digits)
        event(endpoint, events.at(digit));
}

std::string Application::label_of(const std::string &path) const {
    const auto found = labels_.find(path);
    return found == labels_.end() ? path : found->second;
}

std::string Application::sent() {
    std::map<std::string, std::string> of;
    while (looked_ < bus().requests_made()) {
        const fake::RequestRecord &request = bus().record(++looked_);
        if (!request.sent)
            continue;
        std::string &list = of[label_of(request.path)];
        list += (list.empty() ? "" : ", ") + request_text(request);
    }
    std::string result;
    for (const auto &[label, list] : of)
        result += (result.empty() ? "" : " | ") + label + ": " + list;
    return result;
}

std::string Application::params_of_signal(uint32_t signal) {
    for (unsigned id = bus().requests_made(); id > 0; --id) {
        const fake::RequestRecord &request = bus().record(id);
        const std::string bytes = request.parameter("signal").data;
        if (request.function == "signal" && word_at(bytes, offsetof(voice_signal_t, signal)) == signal)
            return bytes.substr(sizeof(voice_signal_t));
    }
    return "";
}

std::vector<std::string> Application::said() {
    std::string output = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    output_ += output;
    output = std::regex_replace(output, std::regex("(^|\n)(call|conference|stats call=)( ?)[0-9]+"), "$1$2$3N");
    std::vector<std::string> result;
    size_t at = 0;
    for (size_t end; (end = output.find('\n', at)) != std::string::npos; at = end + 1)
        result.push_back(output.substr(at, end - at));
    return result;
}

std::string Application::state(int32_t endpoint) {
    const line *who = line_of_endpoint(endpoint);
    return who != nullptr ? line_state_name(who->state) : "gone";
}

} // namespace application_test
