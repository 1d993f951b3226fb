#pragma once

#include "Experiments/Telemetry/TelemetryCharts.h"
#include "Host/Terminal/Terminal.h"

#include <cstddef>
#include <optional>
#include <string>

/// Telemetry as `veltry charts` draws it with a terminal's characters.
namespace veltry::TextCharts {

struct Room {
    std::size_t columns; ///< no line is longer; fewer than 40 count as 40
    /// Where all is to be seen at once: the plots become as high as that allows, within limits.
    std::optional<std::size_t> rows;
};

/// The headline numbers, the panels (two beside each other where there is room) and what was dropped.
[[nodiscard]] std::string of(const TelemetryCharts& charts, const Terminal& terminal, Room room);

} // namespace veltry::TextCharts
