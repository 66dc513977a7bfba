// SPDX-License-Identifier: MIT
// The insides of the fake bus: what its handles point at, and the words that all its files use.
#ifndef VOICE_FAKE_STATE_H
#define VOICE_FAKE_STATE_H

#include <deque>
#include <map>
#include <set>
#include <unistd.h>

#include "kex_host.h"
#include "voice_fake/bus.h"

struct kex {};
struct connection {};

struct peer {
    std::string name;
    std::string process_name;
    int32_t process_id = 0;
    bool closed = false;
    bool disconnected = false; // from this side: its close event is on its way
    int (*handler)(peer_t *, int, void *) = nullptr;
    int event = 0;
    void *userdata = nullptr;
};

struct kex_timer {
    unsigned id = 0;
    bool armed = false;
    bool alive = true;
    uint64_t due = 0;
    void (*handler)(kex_timer_t *) = nullptr;
};

struct object {
    // What it was declared as; what a test puts there by itself serves as anything.
    enum class Kind { Any, Plain, Template, Instance };

    std::string path, name;
    std::string class_name;
    Kind kind = Kind::Any;
    bool named = true;
    bool doomed = false; // marked for deletion
    bool gone = false;
};

struct variant_list {
    std::deque<variant_t> items;
    bool owns_descriptors = false; // those that nobody read are closed with it
    std::set<const variant_t *> read;
};

struct reply_item {
    fake::Reply::Item item;
    variant_t value{};
    reply_item_t *next = nullptr;
};

struct reply {
    std::deque<reply_item> items;
    function_call_t *call = nullptr; // of the reply that a running call builds
};

struct request {
    fake::RequestRecord record;
    bool completed = false;
    std::unique_ptr<reply> answer;
    function_call_t *call = nullptr; // of the request that a running call arrived with
    uint32_t attributes = 0;
};

struct argument_list {
    function_call_t *call = nullptr;
    std::vector<std::pair<std::string, fake::Value>> arguments;
};

struct function_call {
    unsigned id = 0;
    object_t *object = nullptr;
    peer_t *peer = nullptr;
    std::string name; // of the function
    request_t request;
    reply_t reply;
    argument_list_t arguments;
    unsigned destroyed = 0;
    std::vector<std::string> errors;
};

namespace fake {

enum class Kind { Act, Look, Trace, Marker, Note };

struct LogEntry {
    Kind kind;
    std::string text;
    int level = 0;
};

// What stands behind a variant's memory. The variant itself holds the value's address only.
struct Held {
    std::unique_ptr<Value> value;
    bool own = false;    // the bus's own: a return value, an item
    bool filled = false; // set since it was initialised: owes a clean-up
};

// A descriptor that a host watches.
struct Watch {
    int fd = -1;
    void *userdata = nullptr;
    void (*handler)(int fd, void *userdata) = nullptr;
    bool marked = false; // ready by the test's word
};

// How requests for a function are answered.
struct AnswerRule {
    std::string function;
    std::string parameter; // empty: whatever the parameters are
    std::string value;     // of that parameter, as it is shown
    std::function<Reply(const RequestRecord &)> reply;
    bool once = false;
};

// What a host's own loop polls: an epoll instance that holds the watched descriptors and an event descriptor.
struct PollDescriptor {
    int epoll = -1, work = -1;

    PollDescriptor() = default;
    PollDescriptor(const PollDescriptor &) = delete;
    PollDescriptor &operator=(const PollDescriptor &) = delete;
    ~PollDescriptor() {
        close(epoll);
        close(work);
    }
};

struct Bus::State {
    kex_t the_bus;
    connection_t the_connection;
    std::vector<LogEntry> log;
    std::vector<TraceLine> traces;
    std::map<const void *, std::string> function_names;
    bool own_traces = false; // of the host, without the library's frame

    unsigned fail_countdown = 0;
    std::map<std::string, unsigned> fail_by_name;
    std::set<std::string> failing;
    std::string failed;

    std::vector<AnswerRule> answers;
    std::vector<std::unique_ptr<request_t>> requests;
    std::map<std::string, std::unique_ptr<peer_t>> peers;
    std::vector<std::unique_ptr<peer_t>> former_peers; // whose name a newer connection bears
    std::vector<std::unique_ptr<kex_timer_t>> timers;
    std::vector<std::unique_ptr<object_t>> objects;
    bool connect_scripted = false;
    peer_t *connect_result = nullptr;
    uint64_t now = 0;
    unsigned calls = 0;

    // What kex_host.h adds.
    std::string process_name;
    bool created = false, destroyed = false, stopped = false, in_turn = false;
    std::deque<std::function<void()>> queue;
    std::multimap<uint64_t, std::function<void()>> scheduled;
    std::vector<Watch> watches;
    std::unique_ptr<PollDescriptor> polled;
    uint64_t (*clock)(void *) = nullptr;
    void *clock_userdata = nullptr;
    std::vector<std::vector<std::string>> declared_functions;
    void (*closed_handler)(kex_t *, peer_t *, void *) = nullptr;
    void *closed_userdata = nullptr;
    const function_call_t *running = nullptr; // the call whose function runs
    int (*call_handler)(kex_t *, void *) = nullptr;
    void *call_userdata = nullptr;
    void (*failed_handler)(const kex_failed_call_t *, void *) = nullptr;
    void *failed_userdata = nullptr;

    std::map<const variant_t *, Held> variants;
    std::set<variant_list *> lists; // handed out by argument_getList
    std::set<const variant_t *> return_values;

    int descriptors_at_start = 0;
    unsigned requests_left = 0;
    int descriptors_left = 0;
    std::string left_why;
    std::vector<std::string> problems;
};

// Writes a line of the common log.
void act(const std::string &line);
void look(const std::string &line);
// True when this call of a function is to fail. Each call of a function that can fail asks once.
bool fails(const char *function);

std::string quoted(const char *text);
std::string escaped(const std::string &text);
std::string shown(const request_t *request);
std::string shown(const peer_t *peer);
std::string shown(const object_t *object);
std::string shown_bus(const kex_t *bus);
std::string shown_function(const void *function);

// The value inside a variant; null for a null or never initialised one.
const Value *inside(const variant_t *v);
// Makes one of the bus's own variants.
void make_own(variant_t *v, const Value &value);
void drop_own(variant_t *v);
// Number of a value when it is an integer (or, if asked for, a boolean).
bool number_of(const Value &value, bool booleans, int64_t *number);
// Builds a reply's items.
std::unique_ptr<reply> make_reply(const Reply &script);
void drop_list(variant_list *list);
// Whether it was sent and has a handler that has not run.
bool awaits_reply(const request_t &request);
// The scripted answer to a request, used up if it was for once. False: none was scripted.
bool take_answer(const RequestRecord &request, Reply *reply);
object_t *find_object(const std::string &path);
object_t *add_object(const std::string &path);
// The timer that is due next, until `end`; null: none.
kex_timer_t *next_timer(uint64_t end);
void fire(kex_timer_t *timer);
// Marks the poll descriptor as readable or not, after anything that may have changed it.
void show_readiness();

} // namespace fake

#endif
