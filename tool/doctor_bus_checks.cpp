// SPDX-License-Identifier: MIT
#include "doctor_findings.h"

#include <algorithm>

#include <fmt/format.h>

#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kPluginsWarned = LIBVOICE_PLUGINS - 1;
constexpr size_t kEndpointsWarned = LIBVOICE_ENDPOINTS - 2;
constexpr double kStuck = 2; // seconds

std::string wait_words(const WaitFacts &wait) {
    return fmt::format("{} has waited {:.0f} s for {} of {}", printable(wait.who), wait.seconds,
                       wait.function.empty() ? "an answer" : in_quotes(wait.function), printable(wait.whom));
}

std::string wait_fix(const Facts &facts, const WaitFacts &wait) {
    const auto is_stopped = [&wait](const ProcessFacts &process) {
        return process.id == wait.whom_process && (process.state == 'T' || process.state == 't');
    };
    if (std::any_of(facts.bus.peers.begin(), facts.bus.peers.end(), is_stopped))
        return fmt::format("{} is stopped: kill -CONT {}", printable(wait.whom), wait.whom_process);
    return fmt::format("see what {} (process {}) does: it does not answer", printable(wait.whom), wait.whom_process);
}

// The reason why nothing is known of tables.
Finding tables_unseen(const Facts &facts) {
    return facts.tables ? warned(facts.tables->problem, "name the socket that voice_application --control made")
                        : unseen("not visible from here", "name the application's control socket: --control PATH");
}

bool tables_known(const Facts &facts) {
    return facts.tables && facts.tables->problem.empty();
}

bool plugin_of(const std::string &endpoint, const PluginFacts &plugin) {
    return endpoint.starts_with(plugin.name + ".");
}

} // namespace

Finding answer_check(const Facts &facts) {
    const ProcessFacts &listener = facts.bus.listener;
    if (!is_connected(facts) || !facts.bus.refusal.empty())
        return not_connected();
    if (facts.bus.ended)
        return failed(fmt::format("process {} has closed the connection while it was watched", listener.id),
                      "when it has ended: see why, and start voice_application");
    // Also one that was stopped after it had answered.
    if (listener.state == 'T' || listener.state == 't')
        return failed(fmt::format("process {} does not answer: it is stopped", listener.id),
                      fmt::format("kill -CONT {}", listener.id));
    if (facts.bus.answered)
        return fine(fmt::format("{} (process {}) answers", printable(listener.name), listener.id));
    return failed(fmt::format("process {} does not answer within 1 s: it is busy", listener.id),
                  fmt::format("see what process {} does; when it never ends, restart it", listener.id));
}

Finding waits_check(const Facts &facts) {
    if (!is_connected(facts) || !facts.bus.answered)
        return not_connected();
    std::vector<std::string> stuck;
    const WaitFacts *longest = nullptr;
    for (const WaitFacts &wait : facts.bus.waits)
        if (wait.seconds >= kStuck) {
            stuck.push_back(wait_words(wait));
            if (longest == nullptr || wait.seconds > longest->seconds)
                longest = &wait;
        }
    if (longest == nullptr)
        return fine(fmt::format("nobody has waited for {:.0f} s, in {:.1f} s", kStuck, facts.bus.watched));
    return failed(fmt::format("{}", fmt::join(stuck, "; ")), wait_fix(facts, *longest));
}

Finding crossed_check(const Facts &facts) {
    if (!is_connected(facts) || !facts.bus.answered)
        return not_connected();
    const std::vector<WaitFacts> &waits = facts.bus.waits;
    for (const WaitFacts &one : waits)
        for (const WaitFacts &other : waits)
            if (one.blocked && other.blocked && one.connection == other.connection && one.by_listener &&
                !other.by_listener)
                return failed(fmt::format("{} and {} wait for each other", printable(one.who), printable(other.who)),
                              fmt::format("restart {}, and report its trace", printable(other.who)));
    return fine("no two wait for each other");
}

Finding tables_check(const Facts &facts) {
    if (!tables_known(facts))
        return tables_unseen(facts);
    const size_t plugins = facts.tables->plugins.size(), endpoints = facts.tables->endpoints.size();
    const std::string text =
        fmt::format("{} of {} plugins, {} of {} endpoints", plugins, LIBVOICE_PLUGINS, endpoints, LIBVOICE_ENDPOINTS);
    if (plugins >= kPluginsWarned || endpoints >= kEndpointsWarned)
        return warned(text, "deregister what is not needed: the sizes are fixed");
    return fine(text);
}

Finding leftovers_check(const Facts &facts) {
    if (!tables_known(facts))
        return tables_unseen(facts);
    const std::vector<PluginFacts> &plugins = facts.tables->plugins;
    for (const PluginFacts &plugin : plugins)
        if (!plugin.running)
            return failed(
                fmt::format("plugin {} is registered, its process {} is gone", printable(plugin.name), plugin.process),
                "restart voice_application");
    for (const std::string &endpoint : facts.tables->endpoints)
        if (std::none_of(plugins.begin(), plugins.end(),
                         [&endpoint](const PluginFacts &plugin) { return plugin_of(endpoint, plugin); }))
            return failed(fmt::format("endpoint {} belongs to no plugin", printable(endpoint)),
                          "restart voice_application");
    return fine("each plugin has a process, each endpoint a plugin");
}

} // namespace voicectl
