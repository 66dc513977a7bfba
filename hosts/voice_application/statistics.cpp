// SPDX-License-Identifier: MIT
// Figures of media that has ended.
#include "statistics.h"

#include "console.h"

#include <stdio.h>
#include <string.h>

namespace {

struct statistic {
    const char *name;
    uint32_t id;
};

constexpr statistic kStatistics[] = {
    {"tx", LIBVOICE_PARAM_zil_call_stats_txpkts},           {"txbytes", LIBVOICE_PARAM_zil_call_stats_txbytes},
    {"rx", LIBVOICE_PARAM_zil_call_stats_rxpkts},           {"rxbytes", LIBVOICE_PARAM_zil_call_stats_rxbytes},
    {"lost", LIBVOICE_PARAM_zil_call_stats_lost},           {"discarded", LIBVOICE_PARAM_zil_call_stats_discarded},
    {"jitter", LIBVOICE_PARAM_zil_call_stats_jitter},       {"overruns", LIBVOICE_PARAM_zil_call_stats_overRuns},
    {"underruns", LIBVOICE_PARAM_zil_call_stats_underRuns}, {"jbmin", LIBVOICE_PARAM_zil_call_stats_jbMin},
    {"jbavg", LIBVOICE_PARAM_zil_call_stats_jbAvg},         {"jbmax", LIBVOICE_PARAM_zil_call_stats_jbMax},
    {"latency", LIBVOICE_PARAM_zil_call_stats_latency},
};
constexpr size_t kStatisticCount = sizeof kStatistics / sizeof kStatistics[0];

struct statistics_row {
    uint32_t call;
    char line[40];
    uint32_t values[kStatisticCount];
};

constexpr uint32_t kStatisticsKept = 32;
statistics_row statistics[kStatisticsKept];
uint32_t statistics_seen;

// As wide as its name, and room for large figures where they come.
int column_width(const statistic *column) {
    constexpr int kLeast = 8;
    const int name = static_cast<int>(strlen(column->name));
    return name > kLeast ? name : kLeast;
}

} // namespace

void statistics_take(const line *who, uint32_t appearance, voice_params_t params) {
    statistics_row *row = &statistics[statistics_seen++ % kStatisticsKept];
    memset(row, 0, sizeof *row);
    row->call = appearance < kAppearances ? who->last_call[appearance] : 0;
    snprintf(row->line, sizeof row->line, "%s", who->label);
    char text[512] = "";
    size_t used = 0;
    for (size_t i = 0; i < kStatisticCount; i++) {
        voice_params_get_u32(params, kStatistics[i].id, &row->values[i]);
        used += static_cast<size_t>(
            snprintf(text + used, sizeof text - used, " %s=%u", kStatistics[i].name, row->values[i]));
    }
    say("stats call=%u line=%s%s", row->call, row->line, text);
}

const char *statistics_print() {
    char text[512];
    size_t used = static_cast<size_t>(snprintf(text, sizeof text, "%6s %-12s", "call", "line"));
    for (const statistic &column : kStatistics)
        used +=
            static_cast<size_t>(snprintf(text + used, sizeof text - used, " %*s", column_width(&column), column.name));
    answer("%s", text);
    uint32_t first = statistics_seen > kStatisticsKept ? statistics_seen - kStatisticsKept : 0;
    for (uint32_t i = first; i < statistics_seen; i++) {
        const statistics_row *row = &statistics[i % kStatisticsKept];
        used = static_cast<size_t>(snprintf(text, sizeof text, "%6u %-12s", row->call, row->line));
        for (size_t k = 0; k < kStatisticCount; k++)
            used += static_cast<size_t>(
                snprintf(text + used, sizeof text - used, " %*u", column_width(&kStatistics[k]), row->values[k]));
        answer("%s", text);
    }
    return nullptr;
}
