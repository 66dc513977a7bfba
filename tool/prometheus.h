// SPDX-License-Identifier: MIT
// Counts in the text format that scrapers of Prometheus read, version 0.0.4.
#ifndef VOICECTL_PROMETHEUS_H
#define VOICECTL_PROMETHEUS_H

#include <string>
#include <string_view>

#include "counts_text.h"

namespace voicectl {

// The type of the text, for HTTP.
constexpr std::string_view kPrometheusType = "text/plain; version=0.0.4; charset=utf-8";

// All metrics, each with its help and its type.
std::string prometheus_text(const CountsView &view);

} // namespace voicectl

#endif
