// SPDX-License-Identifier: MIT
// A step of traffic as one JSON object, and pieces of it.
#include "json.h"
#include "show.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "codec_names.h"
#include "hex.h"
#include "libvoice_plugin.h"
#include "text.h"
#include "words.h"

namespace voicectl {

namespace {

constexpr double kNsPerMs = 1e6;

const char *kind_name(Step::Kind kind) {
    switch (kind) {
    case Step::Kind::connected:
        return "connected";
    case Step::Kind::closed:
        return "closed";
    case Step::Kind::call:
        return "call";
    case Step::Kind::one_way_call:
        return "one_way_call";
    case Step::Kind::reply:
        return "reply";
    case Step::Kind::refused:
        return "refused";
    case Step::Kind::waiting:
        return "waiting";
    case Step::Kind::still_waiting:
        return "still_waiting";
    case Step::Kind::lost:
        return "lost";
    }
    return "";
}

const char *kind_name(RecordKind kind) {
    switch (kind) {
    case RecordKind::signal:
        return "signal";
    case RecordKind::event:
        return "event";
    case RecordKind::param_set:
        return "param_set";
    case RecordKind::connection:
        return "connection";
    case RecordKind::stream:
        return "stream";
    }
    return "";
}

std::string value_json(const Value &value) {
    switch (value.type) {
    case Value::Type::none:
        return "null";
    case Value::Type::text:
        return json_string(value.text);
    case Value::Type::number:
        return fmt::format("{}", value.number);
    case Value::Type::boolean:
        return value.number != 0 ? "true" : "false";
    case Value::Type::descriptor:
        return fmt::format("{{\"fd\":{}}}", value.number);
    case Value::Type::bytes:
        return fmt::format("{{\"hex\":\"{}\"}}", hex_digits(value.bytes));
    case Value::Type::list: {
        JsonMembers items;
        for (const Value &item : value.list)
            items.add(value_json(item));
        return items.list();
    }
    }
    return "null";
}

std::string identifier_json(uint32_t id, std::string_view name) {
    JsonMembers members;
    members.add_number("id", id);
    members.add_text("name", name);
    members.add_text("meaning", short_meaning(id));
    return members.object();
}

std::string codec_json(const voice_codec_t &codec) {
    JsonMembers members;
    members.add_number("codec", codec.codec);
    members.add_text("name", codec_name(codec.codec));
    members.add_number("payload_type", codec.payload_type);
    members.add_number("ptime_mask", codec.ptime_mask);
    members.add_number("max_bitrate", codec.max_bitrate);
    return members.object();
}

std::string item_json(const Item &item) {
    JsonMembers members;
    members.add_number("id", item.id);
    members.add_text("name", item.name);
    members.add_text("meaning", short_meaning(item.id));
    const std::optional<CallerDisplay> display = item_display(item);
    members.add("value", display ? display_json(*display) : value_json(item.value));
    members.add_text("bytes", hex_digits(item.bytes));
    members.add_text("text", item_words(item));
    return members.object();
}

std::string peer_json(const Step &step) {
    JsonMembers members;
    members.add_text("process", step.peer.process);
    members.add_number("pid", step.peer.process_id);
    members.add_number("connection", step.peer.connection);
    if (!step.peer.plugin.empty())
        members.add_text("plugin", step.peer.plugin);
    if (!step.endpoint.empty())
        members.add_text("endpoint", step.endpoint);
    return members.object();
}

std::string listener_json(const Step &step) {
    JsonMembers members;
    members.add_text("process", step.listener);
    members.add_number("pid", step.listener_process_id);
    return members.object();
}

void call_add(const Step &step, JsonMembers &members) {
    members.add_number("serial", step.serial);
    members.add_text("path", step.path);
    members.add_text("function", step.function);
}

// What the codec list of a registration says.
void codecs_add(const Step &step, JsonMembers &members) {
    const auto found = std::find_if(step.arguments.begin(), step.arguments.end(),
                                    [](const Argument &argument) { return argument.name == "codeclist"; });
    if (found == step.arguments.end() || found->value.type != Value::Type::bytes)
        return;
    JsonMembers codecs;
    for (const voice_codec_t &codec : codec_list_read(found->value.bytes))
        codecs.add(codec_json(codec));
    members.add("codecs", codecs.list());
}

void details_add(const Step &step, JsonMembers &members) {
    switch (step.kind) {
    case Step::Kind::call:
    case Step::Kind::one_way_call: {
        call_add(step, members);
        members.add_number("flags", step.flags);
        JsonMembers arguments;
        for (const Argument &argument : step.arguments)
            arguments.add(argument.name, value_json(argument.value));
        members.add("arguments", arguments.object());
        codecs_add(step, members);
        break;
    }
    case Step::Kind::reply: {
        call_add(step, members);
        members.add("result", value_json(step.result));
        JsonMembers errors;
        for (const ErrorItem &item : step.errors) {
            JsonMembers error;
            error.add_number("code", item.code);
            error.add_text("description", item.description);
            error.add_text("info", item.info);
            errors.add(error.object());
        }
        members.add("errors", errors.list());
        break;
    }
    case Step::Kind::waiting:
    case Step::Kind::still_waiting:
        call_add(step, members);
        break;
    case Step::Kind::closed:
    case Step::Kind::refused:
        members.add_text("text", step.text);
        break;
    case Step::Kind::lost:
        members.add_number("lost", step.lost);
        break;
    case Step::Kind::connected:
        members.add("before", step.text.empty() ? "false" : "true");
        break;
    }
    if (step.record)
        members.add("record", record_json(*step.record));
    if (step.elapsed_ns)
        members.add("elapsed_ms", fmt::format("{:.3f}", static_cast<double>(*step.elapsed_ns) / kNsPerMs));
}

} // namespace

void JsonMembers::add(const std::string &member) {
    text_ += fmt::format("{}{}", text_.empty() ? "" : ",", member);
}

void JsonMembers::add(std::string_view name, const std::string &value) {
    add(fmt::format("{}:{}", json_string(name), value));
}

void JsonMembers::add_text(std::string_view name, std::string_view value) {
    add(name, json_string(value));
}

void JsonMembers::add_number(std::string_view name, int64_t value) {
    add(name, fmt::format("{}", value));
}

std::string JsonMembers::object() const {
    return fmt::format("{{{}}}", text_);
}

std::string JsonMembers::list() const {
    return fmt::format("[{}]", text_);
}

std::string display_json(const CallerDisplay &display) {
    const bool call = display.kind == CallerDisplay::Kind::call;
    JsonMembers members;
    members.add_text("kind", call ? "call" : "messages");
    const auto add_some = [&members](std::string_view name, std::string_view text) {
        if (!text.empty())
            members.add_text(name, text);
    };
    add_some("number", display.number);
    add_some("no_number", display.no_number != 0 ? std::string(1, display.no_number) : "");
    add_some("name", display.name);
    add_some("no_name", display.no_name != 0 ? std::string(1, display.no_name) : "");
    add_some("time", display.time);
    add_some("called", display.called);
    if (display.call_type != 0)
        members.add_number("call_type", display.call_type);
    if (!call)
        members.add_number("messages", display.messages);
    if (display.lamp)
        members.add("lamp", *display.lamp ? "true" : "false");
    return members.object();
}

std::string record_json(const Record &record) {
    JsonMembers members;
    members.add_text("kind", kind_name(record.kind));
    if (record.kind == RecordKind::signal || record.kind == RecordKind::event)
        members.add_number("endpoint", record.endpoint);
    if (record.identifier) {
        members.add("identifier", identifier_json(*record.identifier, libvoice_param_str(*record.identifier)));
        members.add_number("line", record.line);
        if (record.kind == RecordKind::signal)
            members.add("stops", record.stops ? "true" : "false");
    }
    if (record.stream)
        members.add_number("stream", *record.stream);
    JsonMembers items;
    for (const Item &item : record.items)
        items.add(item_json(item));
    members.add("items", items.list());
    if (!record.fault.empty())
        members.add_text("fault", record.fault);
    return members.object();
}

std::string json_line(const Step &step) {
    JsonMembers members;
    members.add_text("kind", kind_name(step.kind));
    members.add_number("time_ns", static_cast<int64_t>(step.time_ns));
    if (step.kind != Step::Kind::lost) {
        members.add("from", step.towards_listener ? peer_json(step) : listener_json(step));
        members.add("to", step.towards_listener ? listener_json(step) : peer_json(step));
        members.add_number("bytes", step.bytes);
    }
    details_add(step, members);
    return members.object();
}

} // namespace voicectl
