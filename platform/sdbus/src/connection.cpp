// SPDX-License-Identifier: MIT
// A connection: what sd-bus reads and writes.
#include "bus.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>

namespace sdbus {

namespace {

// Handles are numbers, so that none of a closed connection is ever that of another one.
std::unordered_map<const peer_t *, ConnectionPointer> handles;
uintptr_t last_handle = 0;

// Whether the peer has closed. From then on it can only be read: a write that failed would make sd-bus close the
// socket with all that still lies in it unread. So what is written goes nowhere instead.
void output_look(Connection &connection) {
    pollfd look = {connection.fd, POLLRDHUP, 0};
    if (!connection.output_discarded && poll(&look, 1, 0) > 0)
        connection.output_discarded = dup3(connection.bus->nowhere, connection.out_fd, O_CLOEXEC) >= 0;
}

void hello_queue(Connection &connection) {
    sd_bus_message *message = nullptr;
    if (sd_bus_message_new_signal(connection.link, &message, "/kex", "kex.Bus", "Hello") < 0)
        return;
    Writer writer{message};
    writer.bytes(connection.bus->name);
    connection_queue(connection, {Message(message), 0, false, {}});
}

bool hello_take(Connection &connection, sd_bus_message *message) {
    Reader reader{message};
    reader.bytes(connection.process_name);
    connection.greeted = true;
    return reader.result >= 0 && connection.process_name.size() <= kMaxName;
}

// False: this is nothing that the peer of such a connection sends.
bool message_take(const ConnectionPointer &connection, Message message) {
    uint8_t type = 0;
    sd_bus_message_get_type(message.get(), &type);
    if (!connection->greeted)
        return sd_bus_message_is_signal(message.get(), "kex.Bus", "Hello") > 0 &&
               hello_take(*connection, message.get());
    if (type == SD_BUS_MESSAGE_METHOD_RETURN)
        return reply_receive(*connection, message.get());
    if (sd_bus_message_is_method_call(message.get(), "kex.Bus", "Call") <= 0)
        return false;
    connection->received++;
    event_push(connection->bus, {Event::call, connection, std::move(message)});
    return true;
}

// One step of sd-bus; false: there is nothing more to be read now.
bool connection_step(const ConnectionPointer &connection) {
    sd_bus_message *message = nullptr;
    const int r = sd_bus_process(connection->link, &message);
    Message taken(message);
    if (r < 0 || sd_bus_is_open(connection->link) <= 0) {
        connection_end(*connection, nullptr);
        return false;
    }
    uint64_t answers = 0;
    sd_bus_get_n_queued_write(connection->link, &answers);
    if (message != nullptr && !message_take(connection, std::move(taken)))
        connection_end(*connection, "it sent what is none of this bus's messages");
    else if (answers > kMaxAnswers)
        connection_end(*connection, "it does not read the answers of sd-bus");
    return r > 0 && !connection->closed;
}

// A bus of sd-bus around both descriptors, which it closes. Negative: why not; they are closed.
int link_open(const Connection &connection, sd_bus **link) {
    sd_id128_t id;
    int r = connection.out_fd < 0 ? -errno : sd_bus_new(link);
    r = r < 0 ? r : sd_bus_set_fd(*link, connection.fd, connection.out_fd);
    if (r < 0) {
        close(connection.fd);
        close(connection.out_fd);
        return r;
    }
    r = sd_bus_negotiate_fds(*link, 1);
    if (r >= 0 && connection.accepted)
        r = sd_id128_randomize(&id) < 0 ? -EIO : sd_bus_set_server(*link, 1, id);
    r = r < 0 ? r : sd_bus_start(*link);
    setsockopt(connection.fd, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
    return r;
}

} // namespace

peer_t *handle_create(const ConnectionPointer &connection) {
    last_handle += 16;
    connection->handle = reinterpret_cast<peer_t *>(last_handle);
    handles[connection->handle] = connection;
    return connection->handle;
}

void handle_forget(const peer_t *handle) {
    handles.erase(handle);
}

void handles_forget(const kex_t *bus) {
    std::erase_if(handles, [bus](const auto &entry) { return entry.second->bus == bus; });
}

ConnectionPointer connection_of(const peer_t *handle) {
    const auto found = handles.find(handle);
    return found != handles.end() ? found->second : nullptr;
}

// The socket is the connection's from now on. Null, with errno: it is closed.
ConnectionPointer connection_create(kex_t *bus, int socket, bool accepted) {
    ConnectionPointer connection = std::make_shared<Connection>();
    connection->bus = bus;
    connection->fd = socket;
    connection->out_fd = fcntl(socket, F_DUPFD_CLOEXEC, 3);
    connection->accepted = accepted;
    connection->deadline = accepted ? now() + kHelloLimit : 0;
    sd_bus *link = nullptr;
    const int r = link_open(*connection, &link);
    if (r < 0 || !source_add(bus, socket, EPOLLIN, [bus] { turn_wish(bus); })) {
        const int error = r < 0 ? -r : errno;
        sd_bus_unref(link);
        errno = error;
        return nullptr;
    }
    connection->link = link;
    bus->connections.push_back(connection);
    handle_create(connection);
    hello_queue(*connection);
    return connection;
}

// Marks it closed and queues the close event behind all that it has sent. Without a word when it has ended by itself.
void connection_end(Connection &connection, const char *why) {
    if (connection.closed)
        return;
    connection.closed = true;
    if (why != nullptr)
        bus::note_about(connection.process, ZIL_TRACE_ERROR, "connection to '%s' (process %d) refused: %s",
                        connection.process_name.c_str(), static_cast<int>(connection.process), why);
    source_remove(connection.bus, connection.fd);
    const ConnectionPointer kept = connection_of(connection.handle);
    for (const auto &[cookie, request] : connection.pending)
        request_end(request);
    for (const Outgoing &outgoing : connection.output)
        request_end(outgoing.request);
    connection.pending.clear();
    connection.output.clear();
    event_push(connection.bus, {Event::closed, kept, nullptr});
    sd_bus_close_unref(connection.link); // closes both descriptors
    connection.link = nullptr;
}

// What is queued leaves as far as the peer reads.
void connection_flush(Connection &connection) {
    if (connection.closed || sd_bus_is_ready(connection.link) <= 0)
        return;
    output_look(connection);
    uint64_t queued = 0;
    while (!connection.closed && !connection.output.empty() &&
           sd_bus_get_n_queued_write(connection.link, &queued) >= 0 && queued == 0) {
        Outgoing outgoing = std::move(connection.output.front());
        connection.output.pop_front();
        connection.queued.bytes -= outgoing.weight.bytes;
        connection.queued.descriptors -= outgoing.weight.descriptors;
        uint64_t cookie = 0;
        const int r = sd_bus_send(connection.link, outgoing.message.get(), outgoing.wants_reply ? &cookie : nullptr);
        if (request_t *request = request_find(outgoing.request); request != nullptr && outgoing.wants_reply)
            connection.pending[cookie] = request->id;
        if (r < 0)
            connection_end(connection, strerror(-r));
    }
}

void connection_queue(Connection &connection, Outgoing outgoing) {
    connection.queued.bytes += outgoing.weight.bytes;
    connection.queued.descriptors += outgoing.weight.descriptors;
    connection.output.push_back(std::move(outgoing));
    turn_wish(connection.bus);
}

// Reads what has come into the bus's queue; false: there may be more.
bool connection_read(const ConnectionPointer &connection, int limit) {
    for (int i = 0; i < limit && !connection->closed; i++) {
        output_look(*connection); // sd-bus writes before it reads
        if (!connection_step(connection))
            return true;
    }
    return connection->closed;
}

// With no D-Bus object in it: one path and one interface serve all, and the object's own path is carried as an argument.
Message message_create(Connection &connection, const char *member) {
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(connection.link, &message, nullptr, "/kex", "kex.Bus", member);
    return Message(message);
}

} // namespace sdbus

using namespace sdbus;

int peer_setEventHandler(peer_t *peer, int event, void *userdata, int (*handler)(peer_t *, int, void *)) {
    const ConnectionPointer connection = connection_of(peer);
    if (connection == nullptr || connection->close_told || event != PEER_EVENT_CLOSED)
        return 0;
    connection->handler = handler;
    connection->userdata = userdata;
    return 1;
}

const char *peer_processName(peer_t *peer) {
    const ConnectionPointer connection = connection_of(peer);
    return connection != nullptr ? connection->process_name.c_str() : "";
}

int32_t peer_processId(peer_t *peer) {
    const ConnectionPointer connection = connection_of(peer);
    return connection != nullptr ? connection->process : 0;
}

int peer_disconnect(peer_t *peer) {
    const ConnectionPointer connection = connection_of(peer);
    if (connection == nullptr || connection->closed || connection->listener)
        return 0;
    connection_flush(*connection);
    connection_end(*connection, nullptr);
    return 1;
}
