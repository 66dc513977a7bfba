// SPDX-License-Identifier: MIT
// A local socket that answers each HTTP request with one text: for scrapers of metrics.
#ifndef VOICECTL_SCRAPE_SERVER_H
#define VOICECTL_SCRAPE_SERVER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace voicectl {

class ScrapeServer {
public:
    static constexpr size_t kMostClients = 8;
    static constexpr size_t kMostRequest = 8192;        // bytes
    static constexpr std::chrono::seconds kPatience{5}; // for a request to come and its answer to be read

    ScrapeServer() = default;
    ~ScrapeServer();
    ScrapeServer(const ScrapeServer &) = delete;
    ScrapeServer &operator=(const ScrapeServer &) = delete;

    // A sentence why it cannot listen there; empty: it does.
    std::string open(const std::string &path, std::string_view type);
    // Becomes readable when there is something to do; -1: it is not open.
    int descriptor() const { return events_; }
    // Does what can be done without waiting. `text` is asked for what to answer.
    void serve(const std::function<std::string()> &text);

private:
    using Clock = std::chrono::steady_clock;
    struct Client {
        Clock::time_point end;
        std::string request{};
        std::string answer{}; // what is left of it; empty: the request is not whole yet
        bool answered = false;
    };

    bool clients_take();
    bool watch(int descriptor);
    bool read(int descriptor, Client &client, const std::function<std::string()> &text);
    static bool write(int descriptor, Client &client);
    std::string answer_of(const std::string &request, const std::function<std::string()> &text) const;

    std::string path_;
    std::string type_;
    int listener_ = -1;
    int events_ = -1;
    std::map<int, Client> clients_; // by descriptor
};

} // namespace voicectl

#endif
