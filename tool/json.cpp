// SPDX-License-Identifier: MIT
// A step of traffic as one JSON object.
#include "show.h"

#include <fmt/format.h>

#include "libvoice_plugin.h"
#include "text.h"

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

// Puts commas between the members of one object or list.
class Members {
public:
    void add(const std::string &member) { text_ += (text_.empty() ? "" : ",") + member; }
    void add(std::string_view name, const std::string &value) { add(fmt::format("{}:{}", json_string(name), value)); }
    void add_text(std::string_view name, std::string_view value) { add(name, json_string(value)); }
    void add_number(std::string_view name, int64_t value) { add(name, fmt::format("{}", value)); }
    std::string object() const { return "{" + text_ + "}"; }
    std::string list() const { return "[" + text_ + "]"; }

private:
    std::string text_;
};

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
        return fmt::format("{{\"hex\":\"{:02x}\"}}", fmt::join(value.bytes, ""));
    case Value::Type::list: {
        Members items;
        for (const Value &item : value.list)
            items.add(value_json(item));
        return items.list();
    }
    }
    return "null";
}

std::string identifier_json(uint32_t id, std::string_view name) {
    Members members;
    members.add_number("id", id);
    members.add_text("name", name);
    members.add_text("meaning", short_meaning(id));
    return members.object();
}

std::string record_json(const Record &record) {
    Members members;
    members.add_text("kind", kind_name(record.kind));
    if (record.kind == RecordKind::signal || record.kind == RecordKind::event)
        members.add_number("endpoint", record.endpoint);
    if (record.identifier) {
        members.add("identifier", identifier_json(*record.identifier, libvoice_param_str(*record.identifier)));
        members.add_number("line", record.line);
        if (record.kind == RecordKind::signal)
            members.add("stops", record.stops ? "true" : "false");
    }
    Members items;
    for (const Item &item : record.items) {
        Members one;
        one.add_number("id", item.id);
        one.add_text("name", item.name);
        one.add_text("meaning", short_meaning(item.id));
        one.add_text("value", item.value);
        items.add(one.object());
    }
    members.add("items", items.list());
    if (!record.fault.empty())
        members.add_text("fault", record.fault);
    return members.object();
}

std::string peer_json(const Step &step) {
    Members members;
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
    Members members;
    members.add_text("process", step.listener);
    members.add_number("pid", step.listener_process_id);
    return members.object();
}

void add_call(const Step &step, Members &members) {
    members.add_number("serial", step.serial);
    members.add_text("path", step.path);
    members.add_text("function", step.function);
}

void add_details(const Step &step, Members &members) {
    switch (step.kind) {
    case Step::Kind::call:
    case Step::Kind::one_way_call: {
        add_call(step, members);
        members.add_number("flags", step.flags);
        Members arguments;
        for (const Argument &argument : step.arguments)
            arguments.add(argument.name, value_json(argument.value));
        members.add("arguments", arguments.object());
        break;
    }
    case Step::Kind::reply: {
        add_call(step, members);
        members.add("result", value_json(step.result));
        Members errors;
        for (const ErrorItem &item : step.errors) {
            Members error;
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
        add_call(step, members);
        break;
    case Step::Kind::closed:
    case Step::Kind::refused:
        members.add_text("text", step.text);
        break;
    case Step::Kind::lost:
        members.add_number("lost", step.lost);
        break;
    case Step::Kind::connected:
        break;
    }
    if (step.record)
        members.add("record", record_json(*step.record));
    if (step.elapsed_ns)
        members.add("elapsed_ms", fmt::format("{:.3f}", static_cast<double>(*step.elapsed_ns) / kNsPerMs));
}

} // namespace

std::string json_line(const Step &step) {
    Members members;
    members.add_text("kind", kind_name(step.kind));
    members.add_number("time_ns", static_cast<int64_t>(step.time_ns));
    if (step.kind != Step::Kind::lost) {
        members.add("from", step.towards_listener ? peer_json(step) : listener_json(step));
        members.add("to", step.towards_listener ? listener_json(step) : peer_json(step));
        members.add_number("bytes", step.bytes);
    }
    add_details(step, members);
    return members.object();
}

} // namespace voicectl
