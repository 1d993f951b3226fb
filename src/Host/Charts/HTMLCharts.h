#pragma once

#include "Experiments/Telemetry/TelemetryCharts.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Telemetry as one page that stands alone: no other file, no address, nothing from the network.
namespace veltry::HTMLCharts {

/// What stands above the charts.
struct Heading {
    std::string title; ///< "Run #3"
    std::string subtitle;
    std::vector<std::pair<std::string, std::string>> facts; ///< names and values
    std::optional<int> reloadSeconds;                       ///< while the run lives, a browser loads the page anew
};

/// In light colours or dark ones, as the reader has it; values under the pointer. All texts are escaped.
[[nodiscard]] std::string page(const TelemetryCharts& charts, const Heading& heading);

} // namespace veltry::HTMLCharts
