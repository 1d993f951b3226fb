#pragma once

#include "Base/JSONValue.h"
#include "Experiments/Telemetry/Telemetry.h"
#include "Experiments/Telemetry/TelemetryLayout.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// What a run's telemetry looks like under a layout, ready to be drawn: lines with a bounded number of points, however
/// long the run is, and the headline numbers.
///
/// Made anew from the store when there is something new. It draws nothing and keeps nothing of its own, so whoever
/// draws may hold it as long as it likes, on any thread. What a layout asks for and a run never wrote is an empty line
/// or a stat without a value.
struct TelemetryCharts {
    static constexpr std::size_t buckets = 500; ///< a line has at most two points for each

    /// A line: the readings of one key over those of another.
    struct Series {
        std::optional<std::string> x; ///< the key of the horizontal axis; nothing for the points' `seq`
        std::string y;
        std::int64_t total = 0; ///< points before the line was reduced
        std::vector<double> xs; ///< the points to draw, in the order in which they came
        std::vector<double> ys; ///< parallel to `xs`
        friend bool operator==(const Series&, const Series&) = default;
    };

    /// A headline number, over all readings of its key.
    struct Stat {
        std::string title;
        std::string y;
        TelemetryLayout::Reduce reduce = TelemetryLayout::Reduce::last;
        std::optional<double> value; ///< nothing if the key was never read
        friend bool operator==(const Stat&, const Stat&) = default;
    };

    bool configured = false;                    ///< whether there was a layout
    std::vector<TelemetryLayout::Panel> panels; ///< the layout's, each with its own `x` or else the layout's
    std::vector<Stat> stats;
    std::vector<Series> series; ///< one for each pair of `x` and `y`, however many panels draw it
    Telemetry::Drops dropped;   ///< what was refused, as the store says

    TelemetryCharts() = default;
    /// Without a layout the standard one counts. A line of more than twice `bucketCount` points, which is at least 1,
    /// is cut into at most that many runs, and of each the lowest and the highest point stay. Costs the readings of the
    /// keys that are drawn.
    explicit TelemetryCharts(
        const Telemetry& telemetry, const std::optional<TelemetryLayout>& layout = std::nullopt,
        std::size_t bucketCount = buckets);

    friend bool operator==(const TelemetryCharts&, const TelemetryCharts&) = default;

    /// The lines of one of the `panels`, in the order of its `y`. They live in this value.
    [[nodiscard]] std::vector<const Series*> seriesOf(const TelemetryLayout::Panel& panel) const;

    /// True if there is nothing to draw and nothing was asked for.
    [[nodiscard]] bool isEmpty() const;
};

[[nodiscard]] JSONValue toJSON(const TelemetryCharts& charts);

} // namespace veltry
