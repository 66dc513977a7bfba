// SPDX-License-Identifier: MIT
// What voicectl makes of a tap's records: any of them become rows that steer no terminal and JSON that is JSON, through
// any filter.
#include "filters.h"
#include "show.h"
#include "tap_feed.h"
#include "terminal.h"
#include "traffic.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using fuzz::Input;
using fuzz::require;
using fuzz::steers_a_terminal;

namespace {

void step_check(const voicectl::Step &step, const voicectl::Form &form) {
    const std::string row = voicectl::ladder_line(step, form);
    require(form.colour || !steers_a_terminal(row), "a row steers no terminal");
    require(form.full || static_cast<size_t>(std::count(row.begin(), row.end(), '\n')) < form.rows,
            "a step has so many rows at most");
    require(!form.full || row.find('\n') == std::string::npos, "the long form is one row");
    const std::string json = voicectl::json_line(step);
    require(json.find('\n') == std::string::npos && !steers_a_terminal(json),
            "JSON is one row that steers no terminal");
    require(nlohmann::json::accept(json), "JSON is JSON");
}

void run(Input &in) {
    constexpr unsigned kMostRecords = 40;
    const voicectl::Filter chosen = fuzz::filter(in);
    voicectl::Form form;
    form.full = in.flag();
    form.columns = 20 + in.byte();
    form.rows = 1 + in.below(3);
    voicectl::Unseen unseen(chosen);
    voicectl::Traffic traffic;
    fuzz::TapFeed feed;
    uint64_t now = 0;
    for (unsigned i = 0; i < kMostRecords && !in.is_empty(); ++i) {
        feed.send(in);
        kex_tap_record_t record = {};
        while (feed.next(record) > 0) {
            const auto step = traffic.next(record);
            if (!step)
                continue;
            unseen.note(*step);
            chosen.passes(*step);
            step_check(*step, form);
            now = record.time_ns;
        }
        for (const voicectl::Step &step : traffic.overdue(now + uint64_t{in.byte()} * 100'000'000))
            step_check(step, form);
    }
    for (const std::string &sentence : unseen.sentences())
        require(!steers_a_terminal(sentence), "a sentence steers no terminal");
    traffic.clear();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    run(in);
    return 0;
}
