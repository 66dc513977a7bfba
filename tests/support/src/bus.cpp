// SPDX-License-Identifier: MIT
// The fake bus itself: the common log, faults, and the check of what was left behind.
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>

#include "state.h"

namespace fake {

std::string text(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *line = nullptr;
    const int length = vasprintf(&line, format, arguments);
    va_end(arguments);
    std::string result(line, length < 0 ? 0 : static_cast<size_t>(length));
    free(line);
    return result;
}

// ---------------------------------------------------------------------------------------------------------- words

std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n')
            result += "\\n";
        else if (c == '\t')
            result += "\\t";
        else
            result += c;
    }
    return result;
}

std::string quoted(const char *text) {
    return text ? "\"" + escaped(text) + "\"" : "null";
}

std::string shown(const request_t *request) {
    if (!request)
        return "null";
    return request->call ? text("call%u", request->call->id) : request->record.name();
}

std::string shown(const peer_t *peer) {
    return peer ? peer->name : "null";
}

std::string shown(const object_t *object) {
    return object ? "<" + object->path + ">" : "null";
}

std::string shown_bus(const kex_t *bus) {
    if (!bus)
        return "null";
    return bus == fake::bus().handle() ? "bus" : "not the bus";
}

std::string shown_function(const void *function) {
    if (!function)
        return "null";
    const auto &names = bus().state().function_names;
    const auto found = names.find(function);
    return found == names.end() ? "handler" : found->second;
}

void act(const std::string &line) {
    bus().state().log.push_back({Kind::Act, line});
}

void look(const std::string &line) {
    bus().state().log.push_back({Kind::Look, line});
}

bool fails(const char *function) {
    Bus::State &s = bus().state();
    bool result = s.failing.count(function) != 0;
    const auto named = s.fail_by_name.find(function);
    if (named != s.fail_by_name.end() && --named->second == 0) {
        s.fail_by_name.erase(named);
        result = true;
    }
    if (s.fail_countdown != 0 && --s.fail_countdown == 0)
        result = true;
    if (result)
        s.failed = function;
    return result;
}

// ----------------------------------------------------------------------------------------------------------- values

Value Value::chars(std::string text) {
    Value v;
    v.type = VARIANT_TEXT;
    v.data = std::move(text);
    return v;
}

Value Value::bytes(std::string data) {
    Value v;
    v.type = VARIANT_BYTES;
    v.data = std::move(data);
    return v;
}

Value Value::bytes(const void *data, size_t length) {
    return bytes(std::string(static_cast<const char *>(data), length));
}

static Value numeric(uint32_t type, int64_t number) {
    Value v;
    v.type = type;
    v.number = number;
    return v;
}

Value Value::boolean(bool value) {
    return numeric(VARIANT_BOOL, value);
}
Value Value::i16(int16_t value) {
    return numeric(VARIANT_INT16, value);
}
Value Value::i32(int32_t value) {
    return numeric(VARIANT_INT32, value);
}
Value Value::u16(uint16_t value) {
    return numeric(VARIANT_UINT16, value);
}
Value Value::u32(uint32_t value) {
    return numeric(VARIANT_UINT32, value);
}
Value Value::fd(int value) {
    return numeric(VARIANT_FD, value);
}

Value Value::list(std::vector<Value> items) {
    Value v;
    v.type = VARIANT_LIST;
    v.items = std::move(items);
    return v;
}

Value Value::fds(const std::vector<int> &descriptors) {
    std::vector<Value> items;
    for (const int descriptor : descriptors)
        items.push_back(fd(descriptor));
    return list(std::move(items));
}

Value Value::without_value(uint32_t type) {
    Value v;
    v.type = type;
    v.present = false;
    return v;
}

std::string Value::str() const {
    if (!present)
        return "null";
    switch (type) {
    case VARIANT_TEXT:
        return quoted(data.c_str());
    case VARIANT_BOOL:
        return number ? "bool true" : "bool false";
    case VARIANT_INT16:
        return fake::text("i16 %" PRId64, number);
    case VARIANT_INT32:
        return fake::text("i32 %" PRId64, number);
    case VARIANT_UINT16:
        return fake::text("u16 %" PRId64, number);
    case VARIANT_UINT32:
        return fake::text("u32 %" PRId64, number);
    case VARIANT_FD:
        return fake::text("fd %" PRId64, number);
    case VARIANT_NONE:
        return "none";
    default:
        break;
    }
    std::string result;
    if (type == VARIANT_LIST) {
        for (const Value &item : items)
            result += (result.empty() ? "" : ", ") + item.str();
        return "list[" + result + "]";
    }
    result = fake::text("bytes(%zu)", data.size());
    const size_t shown_bytes = 32;
    for (size_t i = 0; i < data.size() && i < shown_bytes; ++i)
        result += fake::text(" %02x", static_cast<unsigned char>(data[i]));
    return data.size() > shown_bytes ? result + " ..." : result;
}

// -------------------------------------------------------------------------------------------------------------- bus

Bus::Bus() : state_(new State) {}

Bus::~Bus() = default;

Bus &bus() {
    static Bus the_bus;
    return the_bus;
}

void Bus::reset() {
    const std::set<variant_list *> lists = state_->lists;
    for (variant_list *list : lists)
        drop_list(list);
    state_.reset(new State);
    state_->descriptors_at_start = open_descriptors();
}

kex_t *Bus::handle() {
    return &state_->the_bus;
}
connection_t *Bus::connection() {
    return &state_->the_connection;
}

void Bus::note(const std::string &text) {
    state_->log.push_back({Kind::Note, text});
}

static std::vector<std::string> pick(const std::vector<LogEntry> &log, bool (*wanted)(const LogEntry &)) {
    std::vector<std::string> result;
    for (const LogEntry &entry : log)
        if (wanted(entry))
            result.push_back(entry.text);
    return result;
}

std::vector<std::string> Bus::log() const {
    return pick(state_->log, [](const LogEntry &e) { return e.kind != Kind::Look; });
}

std::vector<std::string> Bus::log_without_markers() const {
    return pick(state_->log, [](const LogEntry &e) { return e.kind != Kind::Look && e.kind != Kind::Marker; });
}

std::vector<std::string> Bus::acts() const {
    return pick(state_->log, [](const LogEntry &e) { return e.kind == Kind::Act || e.kind == Kind::Note; });
}

std::vector<std::string> Bus::everything() const {
    return pick(state_->log, [](const LogEntry &) { return true; });
}

std::vector<std::string> Bus::trace_log() const {
    return pick(state_->log, [](const LogEntry &e) { return e.kind == Kind::Trace || e.kind == Kind::Marker; });
}

std::vector<std::string> Bus::complaints() const {
    return pick(state_->log, [](const LogEntry &e) { return e.kind == Kind::Trace && e.level <= ZIL_TRACE_WARNING; });
}

const std::vector<TraceLine> &Bus::traces() const {
    return state_->traces;
}

void Bus::clear_log() {
    state_->log.clear();
    state_->traces.clear();
}

void Bus::name_function(const void *function, std::string name) {
    state_->function_names[function] = std::move(name);
}

void Bus::takes_own_traces() {
    state_->own_traces = true;
}

void Bus::fail_call(unsigned n) {
    state_->fail_countdown = n;
    state_->failed.clear();
}

void Bus::fail(const std::string &function, unsigned n) {
    state_->fail_by_name[function] = n;
    state_->failed.clear();
}

void Bus::fail_always(const std::string &function) {
    state_->failing.insert(function);
}

const std::string &Bus::failed() const {
    return state_->failed;
}

request_t *Bus::request(unsigned id) {
    return id >= 1 && id <= state_->requests.size() ? state_->requests[id - 1].get() : nullptr;
}

const RequestRecord &Bus::record(unsigned id) {
    static const RequestRecord none;
    request_t *r = request(id);
    return r ? r->record : none;
}

unsigned Bus::requests_made() const {
    return static_cast<unsigned>(state_->requests.size());
}

Live Bus::live() const {
    Live live;
    for (const auto &r : state_->requests)
        live.requests += r->record.alive;
    for (const auto &v : state_->variants)
        live.variants += v.second.filled && !v.second.own;
    live.lists = static_cast<unsigned>(state_->lists.size());
    for (const auto &t : state_->timers)
        live.timers += t->alive;
    live.watches = static_cast<unsigned>(state_->watches.size());
    return live;
}

void Bus::leaves_requests(unsigned count, const std::string &why) {
    state_->requests_left += count;
    state_->left_why += (state_->left_why.empty() ? "" : "; ") + why;
}

void Bus::leaves_descriptors(int count, const std::string &why) {
    state_->descriptors_left += count;
    state_->left_why += (state_->left_why.empty() ? "" : "; ") + why;
}

void Bus::problem(const std::string &text) {
    state_->problems.push_back(text);
}

std::vector<std::string> Bus::check() {
    std::vector<std::string> wrong;
    std::swap(wrong, state_->problems);
    const Live left = live();
    const std::string declared = state_->left_why.empty() ? "" : " (declared: " + state_->left_why + ")";
    if (left.requests != state_->requests_left) {
        std::string names;
        for (const auto &r : state_->requests)
            if (r->record.alive)
                names += " " + r->record.name() + " \"" + r->record.function + "\"";
        wrong.push_back(text("%u requests left alive, expected %u%s:%s", left.requests, state_->requests_left,
                             declared.c_str(), names.c_str()));
    }
    for (const auto &v : state_->variants)
        if (v.second.filled && !v.second.own)
            wrong.push_back("a variant was never cleaned up: " + v.second.value->str());
    if (left.lists != 0)
        wrong.push_back(text("%u argument lists were never destroyed", left.lists));
    const std::set<variant_list *> lists = state_->lists;
    for (variant_list *list : lists)
        drop_list(list);
    for (const Watch &watch : state_->watches)
        if (fcntl(watch.fd, F_GETFD) < 0 && errno == EBADF)
            wrong.push_back(text("descriptor %d is watched, but closed", watch.fd));
    const int own = state_->polled ? 2 : 0;
    const int more = open_descriptors() - own - state_->descriptors_at_start;
    if (more != state_->descriptors_left)
        wrong.push_back(text("%d descriptors more than at the start, expected %d%s", more, state_->descriptors_left,
                             declared.c_str()));
    for (const auto &r : state_->requests)
        r->record.alive = false;
    for (auto v = state_->variants.begin(); v != state_->variants.end();)
        v = v->second.own ? std::next(v) : state_->variants.erase(v);
    state_->requests_left = 0;
    state_->descriptors_left = 0;
    state_->left_why.clear();
    state_->descriptors_at_start = open_descriptors() - own;
    return wrong;
}

int open_descriptors() {
    DIR *folder = opendir("/proc/self/fd");
    if (!folder)
        return -1;
    int count = 0;
    while (const dirent *entry = readdir(folder))
        count += isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0;
    closedir(folder);
    return count - 1; // without the folder's own
}

static bool same(const std::string &expected, const std::string &got) {
    static const std::string any = "<any>";
    if (expected.size() < any.size() || expected.compare(expected.size() - any.size(), any.size(), any) != 0)
        return expected == got;
    const size_t fixed = expected.size() - any.size();
    return got.size() > fixed && got.compare(0, fixed, expected, 0, fixed) == 0;
}

std::string difference(const std::vector<std::string> &expected, const std::vector<std::string> &got) {
    size_t i = 0;
    while (i < expected.size() && i < got.size() && same(expected[i], got[i]))
        ++i;
    if (i == expected.size() && i == got.size())
        return "";
    std::string result =
        text("line %zu differs first:\n  expected: %s\n  got:      %s\nthe whole log (%zu lines):", i + 1,
             i < expected.size() ? expected[i].c_str() : "(end of log)",
             i < got.size() ? got[i].c_str() : "(end of log)", got.size());
    for (const std::string &line : got)
        result += "\n    " + line;
    return result;
}

} // namespace fake
