// SPDX-License-Identifier: MIT
// The same over libdbus, from peer to peer without a broker.
#include <dbus/dbus.h>
#include <poll.h>
#include <unistd.h>

#include "../support/measure.h"
#include "peer.h"

namespace {

constexpr const char *kPath = "/VoiceService";
constexpr const char *kInterface = "voice.Service";

DBusWatch *listening;
DBusConnection *accepted;

dbus_bool_t watch_added(DBusWatch *watch, void *) {
    listening = watch;
    return TRUE;
}

void watch_ignored(DBusWatch *, void *) {}

void reply_send(DBusConnection *connection, DBusMessage *call) {
    if (dbus_message_get_no_reply(call))
        return;
    dbus_bool_t answer = TRUE;
    DBusMessage *reply = dbus_message_new_method_return(call);
    dbus_message_append_args(reply, DBUS_TYPE_BOOLEAN, &answer, DBUS_TYPE_INVALID);
    dbus_connection_send(connection, reply, nullptr);
    dbus_message_unref(reply);
}

DBusHandlerResult call_came(DBusConnection *connection, DBusMessage *call, void *) {
    const char *plugin = nullptr;
    const unsigned char *record = nullptr;
    int length = 0;
    int fds[kDescriptors] = {-1, -1, -1};
    if (dbus_message_is_method_call(call, kInterface, "media"))
        dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &plugin, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &record,
                              &length, DBUS_TYPE_UNIX_FD, &fds[0], DBUS_TYPE_UNIX_FD, &fds[1], DBUS_TYPE_UNIX_FD,
                              &fds[2], DBUS_TYPE_INVALID);
    else if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &plugin, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &record,
                                    &length, DBUS_TYPE_INVALID))
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    keep(record);
    for (const int fd : fds)
        if (fd >= 0)
            close(fd);
    reply_send(connection, call);
    return DBUS_HANDLER_RESULT_HANDLED;
}

void connection_came(DBusServer *, DBusConnection *connection, void *) {
    accepted = dbus_connection_ref(connection);
}

class LibDBus : public Caller {
public:
    LibDBus() : Caller("libdbus"), address_("unix:path=" + socket_path("libdbus")) {}

    [[noreturn]] void serve() override {
        DBusServer *server = dbus_server_listen(address_.c_str(), nullptr);
        if (!server)
            die("dbus_server_listen");
        dbus_server_set_watch_functions(server, watch_added, watch_ignored, watch_ignored, nullptr, nullptr);
        dbus_server_set_new_connection_function(server, connection_came, nullptr, nullptr);
        tell_ready();
        while (!accepted) {
            pollfd ready = {dbus_watch_get_unix_fd(listening), POLLIN, 0};
            poll(&ready, 1, -1);
            dbus_watch_handle(listening, DBUS_WATCH_READABLE);
        }
        dbus_connection_add_filter(accepted, call_came, nullptr, nullptr);
        while (dbus_connection_read_write_dispatch(accepted, -1))
            continue;
        _exit(0);
    }

    void connect() override {
        connection_ = dbus_connection_open_private(address_.c_str(), nullptr);
        if (!connection_)
            die("dbus_connection_open_private");
        dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    }

    void calls_without_reply(int count) override {
        for (int i = 1; i < count; ++i) {
            DBusMessage *m = message_create("event");
            dbus_message_set_no_reply(m, TRUE);
            dbus_connection_send(connection_, m, nullptr);
            dbus_message_unref(m);
            if (i % kTurn == 0)
                dbus_connection_flush(connection_);
        }
        call("event");
    }

private:
    DBusMessage *message_create(const char *function) {
        DBusMessage *m = dbus_message_new_method_call(nullptr, kPath, kInterface, function);
        const unsigned char *record = event_record;
        const char *plugin = kPlugin;
        dbus_message_append_args(m, DBUS_TYPE_STRING, &plugin, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &record,
                                 static_cast<int>(kRecordBytes), DBUS_TYPE_INVALID);
        if (function[0] == 'm')
            dbus_message_append_args(m, DBUS_TYPE_UNIX_FD, &null_device, DBUS_TYPE_UNIX_FD, &null_device,
                                     DBUS_TYPE_UNIX_FD, &null_device, DBUS_TYPE_INVALID);
        return m;
    }

    void call(const char *function) override {
        DBusMessage *m = message_create(function);
        DBusMessage *reply = dbus_connection_send_with_reply_and_block(connection_, m, -1, nullptr);
        dbus_bool_t answer = FALSE;
        if (!reply || !dbus_message_get_args(reply, nullptr, DBUS_TYPE_BOOLEAN, &answer, DBUS_TYPE_INVALID) || !answer)
            die("dbus_connection_send_with_reply_and_block");
        dbus_message_unref(reply);
        dbus_message_unref(m);
    }

    std::string address_;
    DBusConnection *connection_ = nullptr;
};

} // namespace

std::unique_ptr<Peer> libdbus_peer() {
    return std::make_unique<LibDBus>();
}
