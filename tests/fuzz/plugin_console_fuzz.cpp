// SPDX-License-Identifier: MIT
// A plugin's whole life on the fake bus: any commands, while an application comes and goes, calls and time pass as
// other lines say. The first line names the plugin:
//
//     fxs                       or dect, fxo, dsp
//     !register                 the application takes the plugin and says "init"
//     1 off                     a command
//     !signal 1 LIBVOICE_SIGNAL_al_ri 0 10A0...     a signal to line 1: flags, and parameters as hexadecimal digits
//     !set 1 10A0...            parameters for line 1, !get 1 10A0... a question for some
//     !context 7                a conference begins
//     !time 1000                milliseconds pass
//     !close                    the connection closes
//     !exit                     the application asks the plugin to leave
//
// Each command is answered, no answer steers a terminal, and nothing is left at the end.
#include "host.h"
#include "plugin_main.h"

#include "control_client.h"
#include "kex_host.h"
#include "plugin_programs.h"

#include <algorithm>

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;
using fuzz::require;

namespace {

std::string input;
std::string program;
void (*on_terminate)();

std::string bytes_of(const std::string &digits) {
    std::string bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes.push_back(static_cast<char>(strtoul(digits.substr(at, 2).c_str(), nullptr, 16)));
    return bytes;
}

// Words in front of a record's parameters, its pointer word and length included.
Value record_of(std::initializer_list<uint32_t> head, const std::string &params) {
    std::string bytes;
    const auto add = [&bytes](uint32_t word) { bytes.append(reinterpret_cast<const char *>(&word), sizeof word); };
    std::for_each(head.begin(), head.end(), add);
    add(0);
    add(static_cast<uint32_t>(params.size()));
    bytes += params;
    return Value::bytes(bytes.data(), bytes.size());
}

object_t *line_object(uint32_t number) {
    static const std::pair<const char *, const char *> kNames[] = {
        {"fxs", "fxs1.EndPoint.FXS"}, {"dect", "dect1.EndPoint.DECT"}, {"fxo", "fxo1.EndPoint.FXO"}};
    for (const auto &[name, path] : kNames)
        if (program == name && bus().exists(path + std::to_string(number)))
            return bus().object(path + std::to_string(number));
    return nullptr;
}

object_t *plugin_object() {
    return bus().object(plugin_name());
}

void plugin_register() {
    bus().connect_gives(bus().peer("application"));
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    bus().run_for(LIBVOICE_RETRY_MS);
    if (libvoice_get_kex_peer_handler() == nullptr)
        return;
    for (int16_t number = 0; number < 8; ++number)
        bus().answer_next("register_endpoint", Reply().value(Value::i16(number)));
    Call().on(plugin_object()).with("country", Value::chars("DE")).run(__init);
}

void line_call(std::istringstream &words, const std::string &what) {
    uint32_t number = 0, flags = 0;
    std::string name, digits;
    words >> number;
    object_t *line = line_object(number);
    if (line == nullptr)
        return;
    const uint32_t endpoint = number - 1; // as they were given
    Call call;
    call.on(line).from(bus().peer("application"));
    if (what == "!signal" && words >> name) {
        words >> flags >> digits;
        const uint32_t signal = libvoice_str_to_param(name.c_str());
        call.with("signal", record_of({endpoint, signal, 0, 0, flags}, bytes_of(digits))).run(__EndPoint_signal);
    } else if (what == "!set" && words >> digits) {
        call.with("param_set_params", record_of({}, bytes_of(digits))).run(__EndPoint_set);
    } else if (what == "!get" && words >> digits) {
        call.with("param_set_request", record_of({}, bytes_of(digits))).run(__EndPoint_get);
    }
}

void step(const std::string &text) {
    std::istringstream words(text);
    std::string what;
    uint32_t number = 0;
    words >> what;
    if (what == "!register")
        plugin_register();
    else if (what == "!close" && libvoice_get_kex_peer_handler() != nullptr)
        bus().close(libvoice_get_kex_peer_handler());
    else if (what == "!exit")
        Call().on(plugin_object()).with("reason", Value::u32(32)).run(__exit);
    else if (what == "!context" && words >> number)
        Call().on(plugin_object()).with("ctx_id", Value::u32(number)).run(__create_ctx);
    else if (what == "!time" && words >> number && number < 100'000)
        bus().run_for(number);
    else
        line_call(words, what);
}

} // namespace

// In place of host.cpp, which handles the process's signals.
kex_t *host_start(const char *process_name) {
    kex_t *made = kex_create(process_name);
    libvoice_set_kex_handler(made);
    libvoice_set_convert_media(0);
    return made;
}
kex_t *host_bus() {
    return bus().handle();
}
const char *host_control_path() {
    unlink(fuzz::control_path().c_str());
    return fuzz::control_path().c_str();
}
bool host_reads_stdin() {
    return false;
}
void host_terminate() {
    on_terminate();
}
void host_stop() {
    kex_stop(bus().handle());
}
// Made-up names are no files to write, and nobody hears anything here: such commands are for the tests of sound.
std::string without_sound(const std::string &text) {
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);)
        if (line.find("record") == line.npos && line.find("listen") == line.npos && line.find("expect") == line.npos)
            kept += line + "\n";
    return kept;
}
int host_run(void (*terminate)()) {
    on_terminate = terminate;
    std::istringstream lines(without_sound(input));
    std::getline(lines, program);
    fuzz::control_lines_run(lines, step);
    if (peer_t *application = libvoice_get_kex_peer_handler())
        bus().close(application);
    bus().turn();
    return 0;
}
void host_end() {
    kex_destroy(bus().handle());
}
// The options are those of a program without words.
void host_validate_option(int, const char *, const char *) {}
void host_option(int, const char *, const char *) {}

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    input.assign(reinterpret_cast<const char *>(bytes), size);
    bus().reset();
    std::fill(std::begin(endpt_table), std::end(endpt_table), libvoice_endpoint_t());
    std::string name = input.substr(0, input.find('\n'));
    char *words[] = {name.data(), nullptr};
    optind = 0; // begin anew
    require(fuzz::plugin_program(name)(1, words) == 0, "a plugin ends well");
    libvoice_set_kex_peer_handler(nullptr);
    for (const std::string &wrong : bus().check())
        fuzz::fail(wrong);
    return 0;
}
