// SPDX-License-Identifier: MIT
#include "line_fixture.h"

#include "console.h"
#include "host.h"

#include <stdarg.h>

using fake::bus;
using fake::Reply;
using fake::Value;

std::vector<std::string> happened;

// ------------------------------------------------------------------------------------------------- In place of a host

static std::string formatted(const char *format, va_list arguments) {
    char text[1024];
    vsnprintf(text, sizeof text, format, arguments);
    return text;
}

void say(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    happened.push_back("says: " + formatted(format, arguments));
    va_end(arguments);
}

const char *command_error(const char *format, ...) {
    static std::string text;
    va_list arguments;
    va_start(arguments, format);
    text = formatted(format, arguments);
    va_end(arguments);
    return text.c_str();
}

kex_t *host_bus() {
    return bus().handle();
}

void host_stop() {
    happened.push_back("host_stop");
}

void host_terminate() {
    happened.push_back("host_terminate");
}

void answer(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    happened.push_back("answers: " + formatted(format, arguments));
    va_end(arguments);
}

void host_exit(int status) {
    throw process_end{status, ""};
}

void host_usage_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const process_end end = {kExitUsage, formatted(format, arguments)};
    va_end(arguments);
    throw end;
}

void host_fail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const process_end end = {kExitFailure, formatted(format, arguments)};
    va_end(arguments);
    throw end;
}

// ---------------------------------------------------------------------------------------------------------- The driver

namespace {

const char *driver_answer;

void note(void *line, const std::string &what) {
    happened.push_back(static_cast<const char *>(line) + std::string(" ") + what);
}

std::string media_text(uint32_t appearance, const line_media_t *media) {
    return fake::text("%u mode=%u codec=%u payload=%u ptime=%u context=%u stream=%u%s%s", appearance, media->mode,
                      media->codec, media->payload_type, media->ptime_ms, media->context, media->stream,
                      media->media < 0 ? " no media" : "", media->control < 0 ? " no control" : "");
}

std::vector<int32_t> taken[LINE_APPEARANCES];

void take(uint32_t appearance, const line_media_t *media) {
    for (int32_t fd : {media->media, media->control})
        if (fd >= 0)
            taken[appearance].push_back(fd);
}

const char *driver_play(void *line, const line_tone_t *tone) {
    std::string text = fake::text("play %s line=%u", libvoice_param_str(tone->signal), tone->appearance);
    for (uint32_t i = 0; i < tone->count; i++)
        text += fake::text(" %u/%d/%u/%u", tone->list[i].frequency, tone->list[i].level, tone->list[i].on_ms,
                           tone->list[i].off_ms);
    note(line, text);
    return driver_answer;
}

void driver_stop(void *line, uint32_t signal) {
    note(line, fake::text("stop %s", libvoice_param_str(signal)));
}

const char *driver_ring(void *line, const line_ring_t *ring) {
    std::string text = fake::text("ring pattern=%d", ring->pattern);
    for (uint32_t i = 0; i < ring->count; i++)
        text += fake::text(" %u", ring->cadence_ms[i]);
    note(line, text);
    return driver_answer;
}

const char *driver_display(void *line, const line_display_t *shown) {
    if (shown->is_messages)
        note(line, fake::text("display messages=%u lamp=%d", shown->messages, shown->lamp));
    else
        note(line,
             fake::text("display number=%s name=%s called=%s why=%c%s", shown->number, shown->name, shown->called,
                        shown->no_number == 0 ? '-' : shown->no_number, shown->with_ringing ? " with ringing" : ""));
    return driver_answer;
}

const char *driver_seize(void *line) {
    note(line, "seize");
    return driver_answer;
}

const char *driver_release(void *line) {
    note(line, "release");
    return driver_answer;
}

const char *driver_dial(void *line, const char *digits) {
    note(line, std::string("dial ") + digits);
    return driver_answer;
}

const char *driver_flash(void *line) {
    note(line, "flash");
    return driver_answer;
}

const char *driver_open(void *line, uint32_t appearance, const line_media_t *media) {
    note(line, "open " + media_text(appearance, media));
    if (driver_answer == nullptr)
        take(appearance, media);
    return driver_answer;
}

const char *driver_change(void *line, uint32_t appearance, const line_media_t *media) {
    note(line, "change " + media_text(appearance, media));
    if (driver_answer == nullptr)
        take(appearance, media);
    return driver_answer;
}

void driver_close(void *line, uint32_t appearance) {
    note(line, fake::text("close %u", appearance));
    for (int32_t fd : taken[appearance])
        close(fd);
    taken[appearance].clear();
}

bool driver_get(void *line, uint32_t parameter, line_value_t *value) {
    note(line, fake::text("get %s type=%d", libvoice_param_str(parameter), value->type));
    static const uint32_t words[] = {0x11223344};
    value->number = -3;
    value->text = "Study";
    value->bytes = words;
    value->length = sizeof words;
    return parameter != LIBVOICE_PARAM_tdmc_rxgain;
}

bool driver_set(void *line, uint32_t parameter, const line_value_t *value) {
    std::string text = fake::text("set %s ", libvoice_param_str(parameter));
    if (value->type == LINE_VALUE_TEXT)
        text += fake::text("\"%s\"", value->text);
    else if (value->type == LINE_VALUE_BYTES)
        text += fake::text("%u bytes", value->length);
    else
        text += fake::text("%d", value->number);
    note(line, text);
    return parameter != LIBVOICE_PARAM_tdmc_rxgain;
}

const char *driver_signal(void *line, uint32_t signal, const void *, uint32_t length) {
    note(line, fake::text("signal %s of %u bytes", libvoice_param_str(signal), length));
    return driver_answer;
}

void driver_registered(void *line, const char *country) {
    note(line, std::string("registered ") + country);
}

void driver_lost(void *line) {
    note(line, "lost");
}

line_driver_t whole_driver() {
    line_driver_t driver = {};
    driver.play = driver_play;
    driver.stop = driver_stop;
    driver.ring = driver_ring;
    driver.display = driver_display;
    driver.seize = driver_seize;
    driver.release = driver_release;
    driver.dial = driver_dial;
    driver.flash = driver_flash;
    driver.open = driver_open;
    driver.change = driver_change;
    driver.close = driver_close;
    driver.get = driver_get;
    driver.set = driver_set;
    driver.signal = driver_signal;
    driver.registered = driver_registered;
    driver.lost = driver_lost;
    return driver;
}

} // namespace

// --------------------------------------------------------------------------------------------------------- The fixture

LineTest::LineTest() {
    driver_answer = nullptr;
    driver_ = whole_driver();
    happened.clear();
    for (libvoice_endpoint_t &entry : endpt_table)
        entry = {};
    libvoice_set_kex_handler(bus().handle());
    libvoice_set_pluginname("stub");
    libvoice_set_kex_peer_handler(bus().peer("application"));
    bus().object("stub.EndPoint");
}

void LineTest::TearDown() {
    for (auto &descriptors : taken) {
        for (int32_t fd : descriptors)
            close(fd);
        descriptors.clear();
    }
    line_plugin_end();
    libvoice_set_kex_peer_handler(nullptr);
    BusTest::TearDown();
}

void LineTest::answers(const char *text) {
    driver_answer = text;
}

line_t *LineTest::add(const char *name, const line_driver_t *driver) {
    static char names[LIBVOICE_ENDPOINTS][LIBVOICE_ENDPOINT_NAME_BYTES];
    static unsigned used;
    char *own = names[used++ % LIBVOICE_ENDPOINTS];
    snprintf(own, sizeof names[0], "%s", name);
    return line_add(driver != nullptr ? driver : &driver_, own, VOICE_ENDPOINT_FXS, name, "PCMA,PCMU");
}

void LineTest::init(int32_t endpoint) {
    bus().answer("register_endpoint", Reply().value(Value::i32(endpoint)));
    EXPECT_EQ(callbacks_.voice_plugin_init("DE"), 0) << "any other answer would end the process";
}

std::vector<std::string> LineTest::news() {
    std::vector<std::string> all;
    all.swap(happened);
    return all;
}

// The last event as it travelled: a head of 20 bytes and its parameters.
static std::string last_event() {
    for (unsigned id = bus().requests_made(); id > 0; id--)
        if (bus().record(id).function == "event" && bus().record(id).sent)
            return bus().record(id).parameter("event").data;
    return std::string(20, '\0');
}

static voice_event_t head_of(const std::string &bytes) {
    voice_event_t head;
    memcpy(&head, bytes.data(), sizeof head);
    return head;
}

static voice_params_t params_of(const std::string &bytes) {
    return {reinterpret_cast<const uint8_t *>(bytes.data()) + sizeof(voice_event_t), head_of(bytes).length};
}

std::vector<std::string> LineTest::events() const {
    std::vector<std::string> all;
    for (unsigned id = 1; id <= bus().requests_made(); id++) {
        const fake::RequestRecord &record = bus().record(id);
        if (record.function != "event")
            continue;
        const voice_event_t head = head_of(record.parameter("event").data);
        all.push_back(fake::text("%d %s line=%u", head.endpoint, libvoice_param_str(head.event), head.line));
    }
    return all;
}

bool LineTest::event_int(uint32_t id, int32_t *value) {
    const std::string bytes = last_event();
    voice_item_t item; // of an integer or a boolean
    uint32_t word;
    if (!voice_params_find(params_of(bytes), id, &item) || !voice_item_get_word(&item, voice_id_value_type(id), &word))
        return false;
    *value = static_cast<int32_t>(word);
    return true;
}

std::string LineTest::event_text(uint32_t id) {
    const std::string bytes = last_event();
    char text[300] = "";
    voice_item_t item; // of a data block too
    if (voice_params_find(params_of(bytes), id, &item))
        voice_item_copy_text(&item, voice_id_value_type(id), text, sizeof text);
    return text;
}

void LineTest::fill_descriptors(int32_t *descriptors, int count) {
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++)
        descriptors[i] = i < count ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
}
