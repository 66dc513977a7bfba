// SPDX-License-Identifier: MIT
// How fast counts grow.
#include "counts_rate.h"

#include <algorithm>

namespace voicectl {

CountsView CountsRate::look(const Counts &counts, uint64_t now_ns, bool connected) {
    const double seconds = static_cast<double>(now_ns - std::min(now_ns, last_ns_)) / 1e9;
    // A row may have less than before: it was dropped for another one, and came again.
    const auto rate = [seconds](uint64_t now, uint64_t before) {
        return seconds <= 0 || now < before ? 0 : static_cast<double>(now - before) / seconds;
    };
    CountsView view;
    view.now_ns = now_ns;
    view.connected = connected;
    std::map<std::pair<std::string, std::string>, uint64_t> messages;
    for (const Count &count : counts.rows(now_ns)) {
        const std::pair<std::string, std::string> key = {count.plugin, count.endpoint};
        messages[key] = count.messages;
        const auto before = messages_.find(key);
        view.rows.push_back({count, rate(count.messages, before == messages_.end() ? 0 : before->second)});
    }
    view.sum.count = counts.sum(now_ns);
    view.sum.rate = rate(view.sum.count.messages, sum_);
    view.lost = counts.lost();
    view.plugins = counts.plugin_count();
    messages_ = std::move(messages);
    sum_ = view.sum.count.messages;
    last_ns_ = now_ns;
    return view;
}

} // namespace voicectl
