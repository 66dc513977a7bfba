// SPDX-License-Identifier: MIT
// A voice application that does what a line on standard input says, to endpoint 0, and tells how it went:
//
//   get COUNT              asks for a parameter that often, each time with a context of its own: "sent=COUNT"
//   set BYTES              sets a text of that length: "set=1"
//   create|modify A B C    media with three descriptors, each a path, "closed" or "none": "media=0"
//   handled                how the questions ended: "handled=N answered=N failed=N twice=N"
//   forget                 takes closed plugins out of the table, which it otherwise leaves as it is
//   quit
//
// It is built under the address sanitizer, so that a question whose request or context word is lost fails its end.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "application_create.h"

namespace {

constexpr int32_t kEndpoint = 0;

kex_t *bus;
std::vector<uint32_t> handled; // by context
uint32_t answered, failed;
std::vector<peer_t *> closed;

int32_t take_event(libvoice_event_t *) {
    return 0;
}

int32_t register_endpoint(libvoice_endpoint_t *entry) {
    entry->endpoint = static_cast<int32_t>(entry - endpt_table);
    printf("endpoint %d\n", entry->endpoint);
    return 0;
}

void get_done(request_t *request) {
    auto *context = static_cast<uint32_t *>(request_data(request));
    if (*context >= handled.size())
        abort(); // not a context of ours
    ++handled[*context];
    ++(_reply_ok(request_reply(request)) ? answered : failed);
    free(context);
    request_destroy(request);
    printf("done\n");
}

void peer_closed(kex_t *, peer_t *peer, void *) {
    closed.push_back(peer);
    printf("closed\n");
}

void ask(uint32_t count) {
    uint32_t sent = 0;
    for (uint32_t i = 0; i < count; ++i) {
        handled.push_back(0);
        sent +=
            libvoice_get_params(kEndpoint, LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(handled.size() - 1)) ? 1 : 0;
    }
    printf("sent=%u\n", sent);
}

constexpr int32_t kClosed = 1000; // a number that nothing here ever opens

int32_t descriptor_of(const char *word) {
    if (strcmp(word, "none") == 0)
        return -1;
    return strcmp(word, "closed") == 0 ? kClosed : open(word, O_RDONLY | O_CLOEXEC);
}

void send_media(bool modify, const char *const *words) {
    uint8_t cnx_info[LIBVOICE_CNX_INFO_SOCKET_BYTES] = {};
    int32_t fds[3];
    for (int i = 0; i < 3; ++i)
        fds[i] = descriptor_of(words[i]);
    auto *send = modify ? libvoice_modify_media : libvoice_create_media;
    const uint32_t result = send(kEndpoint, 0, cnx_info, fds[0], fds[1], fds[2]);
    for (const int32_t fd : fds)
        if (fd >= 0 && fd != kClosed)
            close(fd);
    printf("media=%u\n", result);
}

void obey(char *line) {
    const char *words[5] = {};
    int count = 0;
    for (char *word = strtok(line, " \n"); word != nullptr && count < 5; word = strtok(nullptr, " \n"))
        words[count++] = word;
    if (count == 0)
        return;
    const bool modify = strcmp(words[0], "modify") == 0;
    if (count == 2 && strcmp(words[0], "get") == 0) {
        ask(static_cast<uint32_t>(strtoul(words[1], nullptr, 10)));
    } else if (count == 2 && strcmp(words[0], "set") == 0) {
        const std::vector<char> text(strtoul(words[1], nullptr, 10), 'x');
        printf("set=%d\n", libvoice_set_params(kEndpoint, LIBVOICE_PARAM_zil_ep_dispname, text.data(),
                                               static_cast<uint32_t>(text.size())));
    } else if (count == 4 && (modify || strcmp(words[0], "create") == 0)) {
        send_media(modify, words + 1);
    } else if (strcmp(words[0], "handled") == 0) {
        uint32_t twice = 0;
        for (const uint32_t times : handled)
            twice += times > 1 ? 1 : 0;
        printf("handled=%u answered=%u failed=%u twice=%u\n", answered + failed, answered, failed, twice);
    } else if (strcmp(words[0], "forget") == 0) {
        for (peer_t *peer : closed)
            libvoice_plugin_deregister_by_peer(peer);
        closed.clear();
        printf("forgotten\n");
    } else if (strcmp(words[0], "quit") == 0) {
        kex_stop(bus);
    } else {
        printf("unknown command\n");
    }
}

// Commands are short and come one at a time: what one read brings is whole lines.
void commanded(int fd, void *) {
    char text[512];
    const ssize_t length = read(fd, text, sizeof text - 1);
    if (length <= 0)
        return kex_stop(bus);
    text[length] = 0;
    char *rest = text;
    for (char *line = strtok_r(text, "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest))
        obey(line);
}

} // namespace

int main() {
    bus = application_create("asking_application",
                             {application_country, take_event, register_endpoint, nullptr, get_done, nullptr, nullptr},
                             peer_closed);
    if (bus == nullptr)
        return EXIT_FAILURE;
    kex_watch(bus, STDIN_FILENO, nullptr, commanded);
    printf("ready\n");
    kex_run(bus);
    kex_destroy(bus);
    return EXIT_SUCCESS;
}
