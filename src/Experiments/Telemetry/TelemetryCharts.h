#pragma once

#include "Base/JSONValue.h"
#include "Experiments/Telemetry/Telemetry.h"
#include "Experiments/Telemetry/TelemetryLayout.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
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

    /// Why a line has no point.
    enum class Lack {
        nothing, ///< it has points
        y,       ///< its key was never read
        x,       ///< no point with its key has the horizontal axis' one
    };

    /// A line: the readings of one key over those of another.
    struct Series {
        std::optional<std::string> x; ///< the key of the horizontal axis; nothing for the points' `seq`
        std::string y;
        std::optional<std::string> run = std::nullopt;  ///< whose line it is, where together() put several in one panel
        std::size_t place = 0;                          ///< of `run` among all, the same in every panel
        std::optional<double> smoothing = std::nullopt; ///< of a smoothed line, which follows the one as it was read
        std::int64_t total = 0;                         ///< points before the line was reduced
        Lack lack = Lack::nothing;
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
    bool hasEnded = false;      ///< nothing more comes; whoever read the run says so

    TelemetryCharts() = default;
    /// Without a layout the standard one counts. A line of more than twice `bucketCount` points, which is at least 1,
    /// is cut into at most that many runs, and of each the lowest and the highest point stay. Costs the readings of the
    /// keys that are drawn.
    explicit TelemetryCharts(
        const Telemetry& telemetry, const std::optional<TelemetryLayout>& layout = std::nullopt,
        std::size_t bucketCount = buckets);

    /// What is drawn of a run's telemetry.
    struct Selection {
        std::vector<std::string> keys;   ///< only these, one that no panel has in a panel of its own; all if empty
        std::optional<double> smoothing; ///< at least 0 and below 1: adds smoothed lines
    };
    /// The same of a selection. A line is smoothed by its exponential moving average before it is reduced: each point
    /// keeps `smoothing` of the average before it, corrected for the start as if it had no past.
    TelemetryCharts(
        const Telemetry& telemetry, const std::optional<TelemetryLayout>& layout, const Selection& selection,
        std::size_t bucketCount = buckets);

    /// Several runs in one: for each key a panel, and in it a line of each run.
    [[nodiscard]] static TelemetryCharts together(const std::vector<std::pair<std::string, TelemetryCharts>>& runs);

    friend bool operator==(const TelemetryCharts&, const TelemetryCharts&) = default;

    /// The lines of one of the `panels`, in the order of its `y`. They live in this value.
    [[nodiscard]] std::vector<const Series*> seriesOf(const TelemetryLayout::Panel& panel) const;

    /// True if there is nothing to draw and nothing was asked for.
    [[nodiscard]] bool isEmpty() const;
};

[[nodiscard]] JSONValue toJSON(const TelemetryCharts& charts);

} // namespace veltry
