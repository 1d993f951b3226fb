#pragma once

#include "Experiments/Telemetry/TelemetryCharts.h"
#include "Host/Charts/Axis.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// A panel with its axes: all that a terminal, an SVG and a page draw alike.
struct Chart {
    struct Line {
        std::string key;
        const TelemetryCharts::Series* series; ///< lives in the TelemetryCharts
        std::size_t pen;                       ///< the place of its colour and mark
        bool isFaint;                          ///< as it was read, behind the smoothed one; no legend names it
    };
    static constexpr std::size_t pens = 8;

    std::string title;
    std::string xKey; ///< "point" where points are counted
    std::vector<Line> lines;
    Axis x;
    Axis y;
    std::optional<double> rule; ///< only where it lies within the axis
    bool isWide = false;
    bool isEmpty = true;       ///< no line has a point
    std::int64_t notShown = 0; ///< of the points to draw, those at or below 0 on a logarithmic axis
    std::int64_t total = 0;    ///< points of all lines
    std::int64_t drawn = 0;    ///< and those that are left of them

    /// `charts` outlives it.
    [[nodiscard]] static Chart of(const TelemetryCharts& charts, const TelemetryLayout::Panel& panel);
    [[nodiscard]] static std::vector<Chart> all(const TelemetryCharts& charts);

    /// What stands in place of the lines where there are none.
    std::string nothing;

    /// The places in `lines` in the order in which they are to be drawn: a line of few points isn't hidden by one of
    /// many.
    [[nodiscard]] std::vector<std::size_t> backToFront() const;

    /// What has to be said beside the drawing: "logarithmic scale; of 12,000 points 1,000 are drawn". Empty without any
    /// data.
    [[nodiscard]] std::string remark() const;
};

/// "Dropped: 3 lines over 4 KiB, 1 line with no numbers"; empty if nothing was.
[[nodiscard]] std::string droppedWords(const Telemetry::Drops& dropped);

} // namespace veltry
