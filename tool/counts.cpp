// SPDX-License-Identifier: MIT
// What has passed on the bus, counted by plugin and endpoint.
#include "counts.h"

#include <algorithm>

#include <fmt/format.h>

#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kMostOpenCalls = 10'000; // of a tap that never sees answers
constexpr size_t kMostNames = 256; // more than a listener has connections: the end of the first ones has been lost

std::string short_name(const std::string &name) {
    return shortened(printable(name), Counts::kMostName);
}

void add(Count &to, const Count &from) {
    to.messages += from.messages;
    to.bytes += from.bytes;
    to.errors += from.errors;
    to.answers += from.answers;
    to.answer_ns += from.answer_ns;
    for (size_t i = 0; i < to.answer_classes.size(); ++i)
        to.answer_classes[i] += from.answer_classes[i];
    to.last_ns = std::max(to.last_ns, from.last_ns);
    to.waits += from.waits;
    to.longest_ns = std::max(to.longest_ns, from.longest_ns);
}

bool is_fault(const Step &step) {
    return !step.errors.empty() || step.kind == Step::Kind::refused || (step.record && !step.record->fault.empty());
}

void answer_note(Count &count, uint64_t took_ns) {
    const double seconds = static_cast<double>(took_ns) / 1e9;
    const auto at = std::lower_bound(kAnswerClasses.begin(), kAnswerClasses.end(), seconds);
    ++count.answer_classes[static_cast<size_t>(at - kAnswerClasses.begin())];
    ++count.answers;
    count.answer_ns += took_ns;
}

} // namespace

void Counts::take(const Step &step) {
    if (step.kind == Step::Kind::lost) {
        lost_ += step.lost;
        // Answers may be among what was lost; who says himself that he waits will say so again.
        waits_.clear();
        return;
    }
    if (step.kind == Step::Kind::still_waiting)
        return;
    const Key key = {short_name(step.peer.name()), short_name(step.endpoint)};
    name_learn(step, key);
    Count &count = row(key);
    ++count.messages;
    count.bytes += step.bytes;
    count.errors += is_fault(step) ? 1 : 0;
    count.last_ns = std::max(count.last_ns, step.time_ns);
    if (step.kind == Step::Kind::reply && step.elapsed_ns)
        answer_note(count, *step.elapsed_ns);
    waits_note(step, key);
    if (step.kind == Step::Kind::closed || step.kind == Step::Kind::refused)
        forget(step.peer.connection);
}

// What came before a plugin or an endpoint told its name is counted under it, too.
void Counts::name_learn(const Step &step, const Key &key) {
    while (names_.size() >= kMostNames && !names_.contains(step.peer.connection))
        forget(names_.begin()->first);
    std::string &name = names_[step.peer.connection];
    if (!name.empty() && name != key.first) {
        const std::string before = name;
        name = key.first;
        // Each is looked for anew: the place that the one before it took may have been that of another one.
        const auto next = [this, &before] { return rows_.lower_bound({before, ""}); };
        if (!is_connected(before))
            for (auto row = next(); row != rows_.end() && row->first.first == before; row = next()) {
                const Key from = row->first;
                merge(from, {key.first, from.second});
            }
    }
    name = key.first;
    if (step.record && step.record->endpoint >= 0 && !key.second.empty() && !key.second.starts_with("#"))
        merge({key.first, fmt::format("#{}", step.record->endpoint)}, key);
}

void Counts::merge(const Key &from, const Key &to) {
    const auto found = rows_.find(from);
    if (found == rows_.end())
        return;
    const Count count = found->second;
    rows_.erase(found);
    add(row(to), count);
    for (auto &[call, wait] : waits_)
        if (wait.who == from)
            wait.who = to;
}

Count &Counts::row(const Key &key) {
    if (const auto found = rows_.find(key); found != rows_.end())
        return found->second;
    const Key place = rows_.size() < kMost || room_make() ? key : Key();
    Count &count = rows_[place];
    count.plugin = place.first;
    count.endpoint = place.second;
    return count;
}

// Drops the row that was gone first. False: the plugins of all rows are there.
bool Counts::room_make() {
    auto oldest = rows_.end();
    for (auto row = rows_.begin(); row != rows_.end(); ++row)
        if (!row->first.first.empty() && !is_connected(row->first.first) &&
            (oldest == rows_.end() || row->second.last_ns < oldest->second.last_ns))
            oldest = row;
    if (oldest == rows_.end())
        return false;
    add(dropped_, oldest->second);
    rows_.erase(oldest);
    return true;
}

void Counts::waits_note(const Step &step, const Key &key) {
    const uint32_t connection = step.peer.connection;
    if (step.kind == Step::Kind::reply) {
        waits_.erase({connection, !step.towards_listener, step.serial});
    } else if (step.kind == Step::Kind::call || step.kind == Step::Kind::waiting) {
        if (waits_.size() >= kMostOpenCalls)
            waits_.clear();
        const uint64_t since = step.time_ns - std::min(step.time_ns, step.elapsed_ns.value_or(0));
        waits_.try_emplace({connection, step.towards_listener, step.serial}, Wait{key, since});
    }
}

void Counts::forget(uint32_t connection) {
    names_.erase(connection);
    std::erase_if(waits_, [connection](const auto &entry) { return std::get<0>(entry.first) == connection; });
}

void Counts::disconnect() {
    names_.clear();
    waits_.clear();
}

bool Counts::is_connected(const std::string &plugin) const {
    return std::any_of(names_.begin(), names_.end(), [&plugin](const auto &entry) { return entry.second == plugin; });
}

size_t Counts::plugin_count() const {
    return names_.size();
}

std::vector<Count> Counts::rows(uint64_t now_ns) const {
    std::map<Key, Count> counts = rows_;
    for (const auto &[call, wait] : waits_) {
        const auto named = counts.find(wait.who);
        const auto found = named != counts.end() ? named : counts.find(Key());
        if (found == counts.end())
            continue;
        ++found->second.waits;
        found->second.longest_ns = std::max(found->second.longest_ns, now_ns - std::min(now_ns, wait.since_ns));
    }
    std::vector<Count> rows;
    for (auto &[key, count] : counts) {
        count.connected = is_connected(key.first);
        rows.push_back(count);
    }
    return rows;
}

Count Counts::sum(uint64_t now_ns) const {
    Count sum = dropped_;
    for (const Count &count : rows(now_ns))
        add(sum, count);
    return sum;
}

} // namespace voicectl
