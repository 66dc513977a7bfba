// SPDX-License-Identifier: MIT
// Which steps of the traffic are shown.
#include "filter.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include <fmt/format.h>

#include "kex_host.h"
#include "libvoice_meanings.h"
#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

bool contains(const std::vector<std::string> &list, std::string_view text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

bool names_package(const std::vector<std::string> &packages, const std::optional<Record> &carried) {
    if (!carried)
        return false;
    const Record &record = *carried;
    if (record.identifier && contains(packages, package_of(libvoice_param_str(*record.identifier))))
        return true;
    return std::any_of(record.items.begin(), record.items.end(),
                       [&packages](const Item &item) { return contains(packages, package_of(item.name)); });
}

// "FXS1", or "fxs_a.FXS1".
bool names_endpoint(const std::string &name, const Step &step) {
    return name == step.endpoint || name == step.peer.name() + "." + step.endpoint;
}

constexpr size_t kMostSeen = 16;    // in a sentence
constexpr size_t kMostColumns = 40; // of each

} // namespace

bool Filter::passes(const Step &step) const {
    if (step.kind == Step::Kind::lost)
        return true;
    if (!plugins.empty() && !contains(plugins, step.peer.plugin) && !contains(plugins, step.peer.process))
        return false;
    if (!endpoints.empty() &&
        (step.endpoint.empty() || std::none_of(endpoints.begin(), endpoints.end(),
                                               [&step](const auto &name) { return names_endpoint(name, step); })))
        return false;
    if (!functions.empty() && !contains(functions, step.function))
        return false;
    if (!packages.empty() && !names_package(packages, step.record) && !names_package(packages, step.call_record))
        return false;
    // An answer runs against its call, which is what is asked for.
    const bool calls_in = step.kind == Step::Kind::reply ? !step.towards_listener : step.towards_listener;
    return direction == Direction::both || (direction == Direction::in) == calls_in;
}

std::string package_problem(const std::string &package) {
    std::set<std::string> packages;
    for (const libvoice_meaning &row : libvoice_meanings)
        packages.emplace(package_of(row.name));
    if (packages.count(package) != 0)
        return "";
    return fmt::format("no package {}; there are {}", in_quotes(package), fmt::join(packages, " "));
}

bool is_known_function(std::string_view function) {
    const char *const *rows = libvoice_bus_functions();
    for (int row = 0; row < LIBVOICE_BUS_FUNCTIONS; ++row)
        if (function == rows[row * LIBVOICE_BUS_FUNCTION_COLUMNS + 1])
            return true;
    return function == KEX_BUILTIN_LIST;
}

Unseen::Unseen(const Filter &filter) : plugins_(filter.plugins), endpoints_(filter.endpoints) {}

void Unseen::note(const Step &step) {
    if (plugins_.empty() && endpoints_.empty())
        return;
    std::erase_if(plugins_,
                  [&step](const auto &name) { return name == step.peer.plugin || name == step.peer.process; });
    std::erase_if(endpoints_, [&step](const auto &name) { return names_endpoint(name, step); });
    if (seen_.size() < kMostSeen && !step.peer.name().empty())
        seen_.insert(shortened(printable(step.peer.name()), kMostColumns));
}

std::vector<std::string> Unseen::sentences() const {
    const std::string seen = seen_.empty() ? "no plugin has come by" : fmt::format("seen: {}", fmt::join(seen_, ", "));
    std::vector<std::string> sentences;
    for (const std::string &name : plugins_)
        sentences.push_back(fmt::format("nothing of a plugin {} so far; {}", in_quotes(name), seen));
    for (const std::string &name : endpoints_)
        sentences.push_back(fmt::format("nothing of an endpoint {} so far; {}", in_quotes(name), seen));
    return sentences;
}

} // namespace voicectl
