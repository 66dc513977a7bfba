// SPDX-License-Identifier: MIT
// The subcommand "tree": objects, classes and functions of a running application.
#include "tree.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/time.h>

#include "common.h"
#include "connection.h"
#include "doctor_look.h"
#include "kex_host.h"
#include "listing.h"
#include "options.h"
#include "run_limit.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr double kTreeSeconds = 5; // for the answer

struct TreeOptions {
    std::string socket;  // empty: where the environment says
    std::string control; // empty: plugins are not asked for
    double seconds = kTreeSeconds;
    bool json = false;
};

struct DestroyBus {
    void operator()(kex_t *bus) const { kex_destroy(bus); }
};
struct DestroyRequest {
    void operator()(request_t *request) const { request_destroy(request); }
};
using Bus = std::unique_ptr<kex_t, DestroyBus>;
using Request = std::unique_ptr<request_t, DestroyRequest>;

void closed_note(kex_t *, peer_t *, void *closed) {
    *static_cast<bool *>(closed) = true;
}

// In short waits, so that an interrupt is noticed. False: no answer came.
bool answer_wait(kex_t *bus, request_t *request, RunLimit &limit) {
    bool closed = false;
    kex_onPeerClosed(bus, closed_note, &closed);
    bool answered = false;
    while (!answered && !closed && !limit.reached()) {
        const timeval slice = {0, 100'000};
        answered = kex_waitForReply(bus, request, &slice) != 0;
        if (!answered)
            kex_dispatch(bus); // a close event runs in a turn
    }
    kex_onPeerClosed(bus, nullptr, nullptr);
    return answered;
}

// The entries of the listing, or why there are none.
struct Listing {
    std::vector<std::string> entries{};
    std::string problem{};
};

void entries_add(Listing &listing, const variant_t *value) {
    // The accessor takes a variant that may be filled through it; here it is only read.
    const variant_list_t *list =
        variant_type(value) == VARIANT_LIST ? variant_da_list(const_cast<variant_t *>(value)) : nullptr;
    if (list == nullptr) {
        listing.problem = "the answer is no list of objects";
        return;
    }
    for (uint32_t i = 0; i < variant_list_size(list); ++i) {
        const char *text = nullptr;
        if (variant_toChar(variant_list_at(list, i), &text) && text != nullptr)
            listing.entries.emplace_back(text);
        else
            listing.problem = "the answer has an entry that is no text";
    }
}

Listing listing_ask(const Address &address, RunLimit &limit) {
    Listing listing;
    const Bus bus(kex_create("voicectl"));
    if (bus == nullptr)
        return {.problem = "no descriptor is left for a connection"};
    errno = 0;
    peer_t *application = kex_client_connect(bus.get(), address.uri.c_str());
    if (application == nullptr)
        return {.problem = connection_problem(address, errno)};
    const Request request(request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0));
    if (request == nullptr || !kex_sendRequest(bus.get(), application, request.get()))
        return {.problem = "the application takes no request"};
    if (!answer_wait(bus.get(), request.get(), limit))
        return {.problem = "the application gives no answer: see voicectl doctor"};
    for (reply_item_t *item = reply_firstItem(request_reply(request.get())); item != nullptr;
         item = reply_nextItem(item)) {
        if (reply_item_type(item) == REPLY_ITEM_ERROR)
            listing.problem =
                fmt::format("the application answers: {} {}", printable(reply_item_errorDescription(item)),
                            printable(reply_item_errorInfo(item)));
        else if (reply_item_type(item) == REPLY_ITEM_RETURN_VALUE)
            entries_add(listing, reply_item_returnValue(item));
    }
    return listing;
}

// Plugins and endpoints that have registered: their objects are in processes that only the application is connected to.
void plugins_add(std::vector<ListedObject> &objects, const TableFacts &tables) {
    for (const PluginFacts &plugin : tables.plugins) {
        objects.push_back(
            {.path = plugin.name, .kind = "plugin", .functions = contract_functions(""), .process = plugin.process});
        for (const std::string &endpoint : tables.endpoints)
            if (endpoint.starts_with(plugin.name + "."))
                objects.push_back({.path = plugin.name + ".EndPoint" + endpoint.substr(plugin.name.size()),
                                   .kind = "endpoint",
                                   .class_name = "EndPoint",
                                   .functions = contract_functions("EndPoint")});
    }
}

int tree(const TreeOptions &options) {
    RunLimit::signals_take();
    RunLimit limit(options.seconds);
    const Listing listing = listing_ask(address_of(options.socket), limit);
    std::vector<ListedObject> objects;
    std::string problem = listing.problem;
    for (const std::string &entry : listing.entries) {
        if (const std::optional<ListedObject> object = listed_object_read(entry))
            objects.push_back(*object);
        else
            problem = fmt::format("the listing has an entry that cannot be read: {}", in_quotes(entry));
    }
    if (!options.control.empty()) {
        const TableFacts tables = tables_look(options.control);
        plugins_add(objects, tables);
        if (problem.empty())
            problem = tables.problem;
    }
    std::string text;
    for (const ListedObject &object : objects)
        text += options.json ? listed_object_json(object) + "\n" : listed_object_text(object);
    const int status = output_write(text);
    if (problem.empty())
        return status;
    complain(problem);
    return kFailure;
}

} // namespace

void tree_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<TreeOptions>();
    CLI::App &command = *app.add_subcommand("tree", "Show the objects, classes and functions of the application");
    command.footer("Example: voicectl tree\n"
                   "It asks the application by a call, so that watchers see voicectl come and go.\n");
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    path_option_add(command, "-c,--control", options->control,
                    "Its control socket: plugins and their endpoints too, with the functions of the contract");
    seconds_option_add(command, "--for", options->seconds, "Wait so long for the answer; 5 without it");
    command.add_flag("-j,--json", options->json, "One JSON object per line, for each object");
    command.callback([options, &run] { run = [options] { return tree(*options); }; });
}

} // namespace voicectl
