// SPDX-License-Identifier: MIT
// Which steps of the traffic are shown.
#include "filter.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "libvoice_plugin.h"

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

} // namespace

bool Filter::passes(const Step &step) const {
    if (step.kind == Step::Kind::lost)
        return true;
    if (!plugins.empty() && !contains(plugins, step.peer.plugin) && !contains(plugins, step.peer.process))
        return false;
    if (!endpoints.empty() && (step.endpoint.empty() || (!contains(endpoints, step.endpoint) &&
                                                         !contains(endpoints, step.peer.name() + "." + step.endpoint))))
        return false;
    if (!functions.empty() && !contains(functions, step.function))
        return false;
    if (!packages.empty() && !names_package(packages, step.record) && !names_package(packages, step.call_record))
        return false;
    // An answer runs against its call, which is what is asked for.
    const bool calls_in = step.kind == Step::Kind::reply ? !step.towards_listener : step.towards_listener;
    return direction == Direction::both || (direction == Direction::in) == calls_in;
}

} // namespace voicectl
