// SPDX-License-Identifier: MIT
// What a bus consists of.
//
// sd-bus is entered in two places only, connection_read() and connection_flush(), and never calls back: what it has read
// goes into the bus's queue, and the queue is run by kex_dispatch() when sd-bus has returned. So functions and handlers may
// wait, and a wait reads on into the same queue.
#ifndef SDBUS_BUS_H
#define SDBUS_BUS_H

#include "base/trace.h" // of the bundled trace service, which this library shares
#include "wire.h"

#include <functional>
#include <map>
#include <memory>

struct reply_item {
    reply_t *reply;
    size_t index;
    int32_t type;
    uint32_t code = 0;
    std::string description, info;
    sdbus::Value value;
};

struct reply {
    std::vector<std::unique_ptr<reply_item>> items;
    bool being_built = false; // by a function that runs
};

namespace sdbus {

using bus::note; // one trace message of zone KEX

// What is kept for a peer, and how many there may be; the page names each.
constexpr size_t kMaxQueuedBytes = 3 * 1024 * 1024; // of the heap, to one peer; then kex_sendRequest says no
constexpr int kSocketBuffer = 104 * 1024;           // of a socket, which the kernel doubles; sd-bus asks for 8 MiB
constexpr size_t kMaxDescriptors =
    253;                              // likewise: sd-bus sends those of a message at once, and the kernel takes so many
constexpr size_t kReplyAllowance = 2; // replies may fill this many times as much, then the peer goes
constexpr size_t kMaxPending = 4096;  // requests to one peer without an answer
constexpr size_t kMaxReceived = 4096; // calls and replies of one peer that a wait keeps; then it goes
constexpr int kMessagesPerTurn = 64;  // read from one peer in a turn
constexpr size_t kMaxPeers = 64;      // connections of a bus
constexpr size_t kMaxPeersOfProcess = 8; // of them, that one process has made
constexpr size_t kMaxForeignPeers = 32;  // of them, of users other than root and the own one, without reserved ones
constexpr unsigned kMaxReservations = 8; // users for whom places are reserved
constexpr uint64_t kHelloLimit = 10'000'000'000; // a connection that has not said its name by then is closed
constexpr uint64_t kAcceptPause = 10'000'000;    // where the kernel has no room for a newcomer
constexpr uint64_t kExitFlushLimit = 1'000'000'000;
constexpr size_t kMaxPath = 255;
constexpr size_t kMaxArguments = 64; // of a call; one with more is malformed
constexpr size_t kMaxErrors = 64;    // of a reply; what is more is not kept
constexpr size_t kMaxName = 63;      // of a process
constexpr uint64_t kMaxAnswers = 64; // of sd-bus itself to a peer, unread

struct MessageEnd {
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageEnd>;

// A message on its way out. sd-bus would keep any number of bytes: it gets one when it has sent the last one.
struct Outgoing {
    Message message;
    uint64_t request = 0; // whose call it is; 0: nobody's
    bool wants_reply = false;
    Weight weight;
};

struct Connection {
    kex_t *bus;
    peer_t *handle; // a number that is never used again: handles of closed peers stay comparable
    sd_bus *link = nullptr;
    int fd = -1;         // what sd-bus reads from
    int out_fd = -1;     // the same socket, that sd-bus writes to
    bool closed = false; // calls that came before may still have to run, and its close event
    bool close_told = false;
    bool listener = false; // the handle of what listens; everything else is unset
    bool accepted = false; // by a listener of this bus: the peer has made the connection
    bool greeted = false;
    bool output_discarded = false;
    bool has_more = false; // was left unread in this turn
    pid_t process = 0;
    uid_t user = 0;
    uint64_t deadline = 0; // for the hello
    std::string process_name;
    std::deque<Outgoing> output;
    Weight queued = {0, 0};
    std::map<uint64_t, uint64_t> pending; // cookies of calls that left, and their requests
    size_t received = 0;                  // of it, in the bus's queue
    int (*handler)(peer_t *, int, void *) = nullptr;
    void *userdata = nullptr;
};
using ConnectionPointer = std::shared_ptr<Connection>;

// What has come and is to be run.
struct Event {
    enum Kind { call, reply, closed } kind;
    ConnectionPointer connection;
    Message message;      // of a call
    uint64_t request = 0; // of a reply
};

struct Function {
    kex_function_t *entry;
    std::vector<std::string> arguments; // names, "a|b" for one with two
};

struct Reservation {
    uid_t user;
    unsigned places;
};

void connection_flush(Connection &connection);
bool connection_read(const ConnectionPointer &connection, int limit);
void connection_end(Connection &connection, const char *why);
void connection_queue(Connection &connection, Outgoing outgoing);
ConnectionPointer connection_create(kex_t *bus, int socket, bool accepted);
ConnectionPointer connection_of(const peer_t *handle); // null: closed for good, or never there
peer_t *handle_create(const ConnectionPointer &connection);
void handle_forget(const peer_t *handle);
void handles_forget(const kex_t *bus); // its listeners' too
bool user_may_connect(const kex_t *bus, int socket, pid_t *process, uid_t *user);

Message message_create(Connection &connection, const char *member);
void call_run(kex_t *bus, Event &event);

bool reply_receive(Connection &connection, sd_bus_message *message); // false: malformed
int reply_read(sd_bus_message *message, reply_t &reply);             // these two answer as sd-bus does
int reply_write(sd_bus_message *message, const reply_t &reply, const variant_t *value);
Weight reply_weigh(const reply_t &reply, const variant_t *value);
void reply_add(reply_t &reply, uint32_t code, const std::string &description, const std::string &info);
request_t *request_find(uint64_t id);
void request_end(uint64_t id); // its peer has closed
void request_run_handlers(uint64_t id);

object_t *object_find(kex_t *bus, const std::string &path);
bool object_is_callable(const object_t *object);
const Function *function_find(const kex_t *bus, const std::string &class_name, const std::string &name);
void listing_fill(const kex_t *bus, variant_t *value);
void objects_bury(); // those that were deleted: not before the function that runs has returned

void event_push(kex_t *bus, Event event);
void turn_wish(kex_t *bus); // another turn is needed
void connections_flush(kex_t *bus);
bool source_add(kex_t *bus, int fd, uint32_t events, std::function<void()> run);
void source_remove(kex_t *bus, int fd);
void listeners_watch(kex_t *bus);  // whoever connects is taken in
uint64_t now();                    // CLOCK_MONOTONIC, in nanoseconds
extern std::vector<kex_t *> buses; // those of this process
extern kex_t *dispatching;         // the one whose turn runs, or null
uint64_t timers_deadline(const kex_t *bus);
int timers_run(kex_t *bus);
void timers_end(kex_t *bus);

} // namespace sdbus

struct request {
    uint64_t id;
    std::string path, function;
    uint32_t flags;
    sdbus::Parameters parameters = {};
    void (*reply_handler)(request_t *, reply_item_t *) = nullptr;
    void (*done_handler)(request_t *) = nullptr;
    void *data = nullptr;
    reply_t reply = {};
    enum { made, sent, answered, failed } state = made;
    sdbus::ConnectionPointer connection = nullptr;
};

struct object {
    std::string name, class_name;
    object_t *parent = nullptr;
    enum { plain, pattern, instance } kind = plain; // `pattern`: a template
    enum { live, to_be_created, to_be_deleted, cancelled, removed } state = live;
    bool declared = false;
    std::vector<std::unique_ptr<object>> children;
};

struct function_call {
    request_t request;
    object_t *object;
    sdbus::ConnectionPointer connection = nullptr;
    argument_list_t *arguments;
};

struct argument_list {
    sdbus::Parameters values;
    const sdbus::Function *function = nullptr;
};

struct connection { // what a bus listens with: the bus under another name
    kex_t *bus;
};

struct kex {
    std::string name;
    connection_t listening{this};
    int epoll = -1, wake = -1, timer = -1;
    int nowhere = -1; // /dev/null: what is written to peers that have gone; lent where the table of descriptors is full
    volatile int stopped = 0;
    unsigned time_factor = 1;
    uint64_t (*clock)(void *) = nullptr;
    void *clock_userdata = nullptr;
    std::map<int, std::function<void()>> sources;
    std::vector<int> always_ready; // watched files, which epoll does not take
    std::vector<sdbus::ConnectionPointer> connections;
    std::vector<std::pair<int, std::string>> listeners; // sockets and their paths
    uint64_t accept_at = 0;                             // when they are looked at again; 0: they are watched
    std::deque<sdbus::Event> queue;
    std::map<std::pair<std::string, std::string>, sdbus::Function> functions; // by class and name
    object_t root;
    std::vector<uid_t> users;
    std::vector<gid_t> groups;
    std::vector<sdbus::Reservation> reservations;
    function_call_t *running = nullptr;
    int (*call_handler)(kex_t *, void *) = nullptr;
    void *call_userdata = nullptr;
    void (*failed_handler)(const kex_failed_call_t *, void *) = nullptr;
    void *failed_userdata = nullptr;
    void (*closed_handler)(kex_t *, peer_t *, void *) = nullptr;
    void *closed_userdata = nullptr;
};

#endif
