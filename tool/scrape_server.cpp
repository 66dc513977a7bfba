// SPDX-License-Identifier: MIT
// A local socket that answers each HTTP request with one text.
#include "scrape_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "local_socket.h"
#include "text.h"

namespace voicectl {

namespace {

bool is_whole(const std::string &request) {
    return request.find("\r\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
}

std::string http_answer(std::string_view status, std::string_view type, const std::string &body) {
    return fmt::format("HTTP/1.0 {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n\r\n{}", status,
                       type, body.size(), body);
}

std::string http_refusal(std::string_view status) {
    return http_answer(status, "text/plain", fmt::format("{}\n", status));
}

} // namespace

ScrapeServer::~ScrapeServer() {
    for (const auto &[descriptor, client] : clients_)
        close(descriptor);
    if (listener_ >= 0) {
        close(listener_);
        unlink(path_.c_str());
    }
    if (events_ >= 0)
        close(events_);
}

std::string ScrapeServer::open(const std::string &path, std::string_view type) {
    type_ = type;
    events_ = epoll_create1(EPOLL_CLOEXEC);
    listener_ = events_ < 0 ? -1 : local_socket_listen(path.c_str());
    if (listener_ >= 0) {
        path_ = path;
        if (watch(listener_))
            return "";
    }
    const int error = errno;
    return fmt::format("cannot listen on {}: {}", in_quotes(path), std::strerror(error));
}

// One set of events for listener and clients: it never becomes more than one descriptor to wait for.
bool ScrapeServer::watch(int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    return epoll_ctl(events_, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

// False: nobody else can be taken now.
bool ScrapeServer::clients_take() {
    // Those beyond wait at the socket; whoever stays for too long makes room.
    while (clients_.size() < kMostClients) {
        const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor < 0)
            return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
        if (!watch(descriptor)) {
            close(descriptor);
            return false;
        }
        clients_[descriptor].end = Clock::now() + kPatience;
    }
    return false;
}

void ScrapeServer::serve(const std::function<std::string()> &text) {
    if (events_ < 0)
        return;
    const bool has_room = clients_take();
    for (auto one = clients_.begin(); one != clients_.end();) {
        auto &[descriptor, client] = *one;
        const bool goes_on = Clock::now() < client.end && (client.answered || read(descriptor, client, text)) &&
                             (!client.answered || write(descriptor, client));
        if (!goes_on)
            close(descriptor);
        one = goes_on ? std::next(one) : clients_.erase(one);
    }
    // While there is no room, or no descriptor, those who wait must not keep the process awake.
    epoll_event event{};
    event.events = has_room ? static_cast<uint32_t>(EPOLLIN) : 0;
    event.data.fd = listener_;
    epoll_ctl(events_, EPOLL_CTL_MOD, listener_, &event);
}

// False: it has left.
bool ScrapeServer::read(int descriptor, Client &client, const std::function<std::string()> &text) {
    std::array<char, 1024> part{};
    ssize_t size = 0;
    while (client.request.size() <= kMostRequest && (size = recv(descriptor, part.data(), part.size(), 0)) > 0)
        client.request.append(part.data(), static_cast<size_t>(size));
    if (!is_whole(client.request) && client.request.size() <= kMostRequest)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    client.answer = answer_of(client.request, text);
    client.answered = true;
    // From here on it matters only whether it takes the answer.
    epoll_event event{};
    event.events = EPOLLOUT;
    event.data.fd = descriptor;
    epoll_ctl(events_, EPOLL_CTL_MOD, descriptor, &event);
    return true;
}

// False: all is written, or it has left.
bool ScrapeServer::write(int descriptor, Client &client) {
    while (!client.answer.empty()) {
        const ssize_t size = send(descriptor, client.answer.data(), client.answer.size(), MSG_NOSIGNAL);
        if (size <= 0)
            return size < 0 && (errno == EAGAIN || errno == EINTR);
        client.answer.erase(0, static_cast<size_t>(size));
    }
    return false;
}

std::string ScrapeServer::answer_of(const std::string &request, const std::function<std::string()> &text) const {
    if (!is_whole(request))
        return http_refusal("431 Request Header Fields Too Large");
    const std::string line = request.substr(0, request.find_first_of("\r\n"));
    const size_t path = line.find(' ') + 1;
    if (line.substr(0, path) != "GET ")
        return http_refusal("405 Method Not Allowed");
    const std::string wanted = line.substr(path, line.find_first_of(" ?", path) - path);
    return wanted == "/metrics" || wanted == "/" ? http_answer("200 OK", type_, text()) : http_refusal("404 Not Found");
}

} // namespace voicectl
