// SPDX-License-Identifier: MIT
// Values in the words of the field: names for numbers, units, caller display. All texts are fit for a terminal.
#include "words.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "codec_names.h"
#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kShownBytes = 8; // a longer byte array shows as its size

// What an item's value stands for, where its type does not say it.
enum class Form { number, times, display, tones, codec, mode, endpoint_type, cause, handset, gain };

struct Row {
    uint32_t id;
    Form form;
    const char *unit = "";
    const char *label = nullptr; // in front of the value instead of the vocabulary's meaning; "": none is needed
};

// Units as the packages' descriptions give them.
constexpr Row kRows[] = {
    {LIBVOICE_PARAM_al_ri_cad, Form::times, "ms", "cadence"},
    {LIBVOICE_PARAM_al_ri_freq, Form::number, "Hz", ""},
    {LIBVOICE_PARAM_al_fl_mindur, Form::number, "ms"},
    {LIBVOICE_PARAM_al_fl_maxdur, Form::number, "ms"},
    {LIBVOICE_PARAM_andisp_dwa_ddb, Form::display, "", "shows"},
    {LIBVOICE_PARAM_andisp_data_db, Form::display, "", "shows"},
    {LIBVOICE_PARAM_fxo_ri_cid, Form::display, "", "caller"},
    {LIBVOICE_PARAM_tonegen_pt_tl, Form::tones},
    {LIBVOICE_PARAM_tonegen_pt_ind, Form::number, "ms"},
    {LIBVOICE_PARAM_tonedet_etd_dur, Form::times, "ms"},
    {LIBVOICE_PARAM_tonedet_ltd_dur, Form::times, "ms"},
    {LIBVOICE_PARAM_g_cause_generalcause, Form::cause},
    {LIBVOICE_PARAM_root_normalMGExecutionTime, Form::number, "ms"},
    {LIBVOICE_PARAM_root_normalMGCExecutionTime, Form::number, "ms"},
    {LIBVOICE_PARAM_root_MGProvisionalResponseTimerValue, Form::number, "ms"},
    {LIBVOICE_PARAM_root_MGCProvisionalResponseTimerValue, Form::number, "ms"},
    {LIBVOICE_PARAM_nt_dur, Form::number, "ms"},
    {LIBVOICE_PARAM_nt_jit, Form::number, "ms"},
    {LIBVOICE_PARAM_nt_qualert_th, Form::number, "%"},
    {LIBVOICE_PARAM_rtp_pl, Form::number, "%"},
    {LIBVOICE_PARAM_tdmc_gain, Form::gain, "dB"},
    {LIBVOICE_PARAM_tdmc_rxgain, Form::number, "dB"},
    {LIBVOICE_PARAM_ajb_jitmin, Form::number, "ms"},
    {LIBVOICE_PARAM_ajb_jitnom, Form::number, "ms"},
    {LIBVOICE_PARAM_ajb_jitcur, Form::number, "ms"},
    {LIBVOICE_PARAM_zil_ep_type, Form::endpoint_type},
    {LIBVOICE_PARAM_zil_ep_supported_codec, Form::codec},
    {LIBVOICE_PARAM_zil_dect_pp_type, Form::handset},
    {LIBVOICE_PARAM_sdp_stream_mode, Form::mode},
    {LIBVOICE_PARAM_sdp_upstream_codec, Form::codec},
    {LIBVOICE_PARAM_sdp_upstream_ptime, Form::number, "ms"},
    {LIBVOICE_PARAM_sdp_downstream_codec, Form::codec},
    {LIBVOICE_PARAM_sdp_downstream_ptime, Form::number, "ms"},
    {LIBVOICE_PARAM_sdp_ss_timer, Form::number, "ms"},
    {LIBVOICE_PARAM_sdp_t38maxbitrate, Form::number, "bit/s"},
    {LIBVOICE_PARAM_sdp_t38maxbuffer, Form::number, "bytes"},
    {LIBVOICE_PARAM_sdp_t38maxdatagram, Form::number, "bytes"},
    {LIBVOICE_PARAM_ipfax_t38maxbuffersize, Form::number, "bytes"},
    {LIBVOICE_PARAM_ipfax_t38maxdatagramsize, Form::number, "bytes"},
};

Row row_of(uint32_t id) {
    const auto *found = std::find_if(std::begin(kRows), std::end(kRows), [id](const Row &row) { return row.id == id; });
    return found == std::end(kRows) ? Row{id, Form::number} : *found;
}

std::string with_unit(const std::string &text, std::string_view unit) {
    return unit.empty() ? text : fmt::format("{} {}", text, unit);
}

// A number by its name; one without shows as a number.
std::string named(int64_t number, std::initializer_list<const char *> names, int64_t first) {
    const int64_t at = number - first;
    return at >= 0 && at < static_cast<int64_t>(names.size()) ? names.begin()[at] : fmt::format("{}", number);
}

std::string cause_words(int64_t cause) {
    return named(cause,
                 {"normal release", "unavailable resources", "temporary failure", "permanent failure",
                  "interworking error", "unsupported"},
                 VOICE_CAUSE_NORMAL_RELEASE);
}

std::string list_words(const Value &value, std::string_view separator) {
    std::string text;
    for (const Value &item : value.list)
        text += fmt::format("{}{}", text.empty() ? "" : separator, value_words(item));
    return text;
}

std::string tones_words(const Item &item) {
    if (item.bytes.size() % sizeof(voice_tone_t) != 0)
        return value_words(item.value);
    std::string text;
    for (size_t at = 0; at < item.bytes.size(); at += sizeof(voice_tone_t)) {
        voice_tone_t tone{};
        std::memcpy(&tone, item.bytes.data() + at, sizeof tone);
        text += fmt::format("{}{} Hz {:.1f} dBm0 {}/{} ms", text.empty() ? "" : ", ", tone.frequency, tone.level / 10.0,
                            tone.on_ms, tone.off_ms);
    }
    return text;
}

std::string reason_words(char reason) {
    return reason == 'P'   ? "withheld"
           : reason == 'O' ? "unavailable"
                           : fmt::format("absent ({})", printable({&reason, 1}));
}

// MMDDhhmm as 11-21 11:38.
std::string display_time_words(const std::string &time) {
    const bool digits = time.size() == 8 && time.find_first_not_of("0123456789") == std::string::npos;
    return digits ? fmt::format("{}-{} {}:{}", time.substr(0, 2), time.substr(2, 2), time.substr(4, 2), time.substr(6))
                  : printable(time);
}

std::string caller_words(const CallerDisplay &display) {
    std::string text;
    const auto append = [&text](const std::string &part) {
        text += fmt::format("{}{}", text.empty() ? "" : " ", part);
    };
    if (!display.number.empty())
        append(printable(display.number));
    else if (display.no_number != 0)
        append(fmt::format("number {}", reason_words(display.no_number)));
    if (!display.name.empty())
        append(fmt::format("\"{}\"", printable(display.name)));
    else if (display.no_name != 0)
        append(fmt::format("name {}", reason_words(display.no_name)));
    if (!display.time.empty())
        append(fmt::format("at {}", display_time_words(display.time)));
    if (!display.called.empty())
        append(fmt::format("for {}", printable(display.called)));
    if (display.call_type != 0)
        append(fmt::format("call type {}", display.call_type));
    return text.empty() ? "nothing" : text;
}

std::string waiting_words(const CallerDisplay &display) {
    std::string text = display.messages == 1 ? "1 message" : fmt::format("{} messages", display.messages);
    if (display.lamp)
        text += *display.lamp ? ", lamp on" : ", lamp off";
    if (!display.number.empty() || !display.name.empty() || !display.time.empty())
        text += fmt::format(", {}", caller_words(display));
    return text;
}

std::string display_words(const Item &item) {
    const std::optional<CallerDisplay> display = item_display(item);
    return display ? display_words(*display) : fmt::format("bad data block, {}", value_words(item.value));
}

std::string number_words(const Row &row, int64_t number) {
    switch (row.form) {
    case Form::codec:
        return codec_name(number);
    case Form::mode:
        return mode_words(number);
    case Form::endpoint_type:
        return endpoint_type_words(number);
    case Form::cause:
        return cause_words(number);
    case Form::handset:
        return libvoice_dect_pp_type_str(static_cast<int32_t>(number));
    case Form::gain:
        if (number == -1)
            return "automatic";
        break;
    default:
        break;
    }
    return with_unit(fmt::format("{}", number), row.unit);
}

} // namespace

std::string value_words(const Value &value) {
    switch (value.type) {
    case Value::Type::none:
        return "no value";
    case Value::Type::text:
        return fmt::format("\"{}\"", printable(value.text));
    case Value::Type::number:
        return fmt::format("{}", value.number);
    case Value::Type::boolean:
        return value.number != 0 ? "true" : "false";
    case Value::Type::descriptor:
        return value.number < 0 ? "fd -" : fmt::format("fd {}", value.number);
    case Value::Type::bytes:
        if (value.bytes.size() > kShownBytes)
            return fmt::format("{} bytes", value.bytes.size());
        return value.bytes.empty() ? "no bytes" : fmt::format("{:02X}", fmt::join(value.bytes, " "));
    case Value::Type::list:
        return fmt::format("[{}]", list_words(value, ", "));
    }
    return {};
}

std::string item_words(const Item &item) {
    if (item.value.type == Value::Type::none)
        return "";
    const Row row = row_of(item.id);
    if (row.form == Form::display)
        return display_words(item);
    if (row.form == Form::tones)
        return tones_words(item);
    if (item.value.type == Value::Type::number)
        return number_words(row, item.value.number);
    if (item.value.type == Value::Type::list)
        return with_unit(list_words(item.value, row.form == Form::times ? "/" : " "), row.unit);
    return value_words(item.value);
}

std::string item_label(const Item &item) {
    const Row row = row_of(item.id);
    if (row.label != nullptr && item.value.type != Value::Type::none)
        return row.label;
    const std::string_view meaning = short_meaning(item.id);
    return meaning.empty() ? fmt::format("{} {:#010x}", item.name, item.id) : std::string(meaning);
}

std::optional<CallerDisplay> item_display(const Item &item) {
    if (row_of(item.id).form != Form::display)
        return std::nullopt;
    const std::string_view text(reinterpret_cast<const char *>(item.bytes.data()), item.bytes.size());
    return caller_display_read(text.substr(0, text.find('\0')));
}

std::string display_words(const CallerDisplay &display) {
    return display.kind == CallerDisplay::Kind::call ? caller_words(display) : waiting_words(display);
}

std::string codec_list_words(const Bytes &bytes) {
    std::string text;
    for (const voice_codec_t &codec : codec_list_read(bytes))
        text += fmt::format("{}{}", text.empty() ? "" : " ", codec_name(codec.codec));
    return text;
}

std::string mode_words(int64_t mode) {
    return named(mode, {"inactive", "send only", "receive only", "both ways"}, VOICE_MODE_INACTIVE);
}

std::string endpoint_type_words(int64_t type) {
    return named(type, {"FXS", "DECT", "FXO"}, VOICE_ENDPOINT_FXS);
}

} // namespace voicectl
