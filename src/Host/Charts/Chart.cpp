#include "Host/Charts/Chart.h"

#include "Base/Numbers.h"
#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <tuple>

namespace veltry {

namespace {

/// What the readings span; nothing if there is none.
class Span {
public:
    void add(double value)
    {
        low_ = std::min(low_, value);
        high_ = std::max(high_, value);
    }

    [[nodiscard]] std::optional<Axis::Range> range() const
    {
        return low_ <= high_ ? std::optional(Axis::Range{.low = low_, .high = high_}) : std::nullopt;
    }

private:
    double low_ = std::numeric_limits<double>::infinity();
    double high_ = -std::numeric_limits<double>::infinity();
};

Axis vertical(const Span& ys, const TelemetryLayout::Panel& panel)
{
    const bool isLogarithmic = panel.scale == TelemetryLayout::Scale::log;
    std::optional<double> high = panel.max;
    if (isLogarithmic && high && *high <= 0) // a logarithmic axis can't end there
        high.reset();
    const Axis::Range none = isLogarithmic ? Axis::Range{.low = 0.1, .high = 1} : Axis::Range{};
    return Axis::around(ys.range().value_or(none), panel.min, high, isLogarithmic);
}

std::string whyNothing(const Chart& chart, bool hasEnded)
{
    if (!chart.isEmpty)
        return "";
    if (chart.notShown > 0)
        return "no value above 0, as this scale needs them";
    std::vector<std::string> unread;
    for (const Chart::Line& line : chart.lines) {
        if (line.series->lack == TelemetryCharts::Lack::x)
            return fmt::format("{} was never reported together with {}", line.series->y, chart.xKey);
        if (std::ranges::count(unread, line.series->y) == 0)
            unread.push_back(line.series->y);
    }
    return hasEnded ? fmt::format("{} was never reported", text::joined(unread, ", ")) : "no data yet";
}

} // namespace

Chart Chart::of(const TelemetryCharts& charts, const TelemetryLayout::Panel& panel)
{
    const bool isLogarithmic = panel.scale == TelemetryLayout::Scale::log;
    Span xs;
    Span ys;
    bool whole = true;
    std::size_t keys = 0;
    std::vector<Line> lines;
    std::int64_t notShown = 0;
    std::int64_t total = 0;
    std::int64_t drawn = 0;
    for (const TelemetryCharts::Series* series : charts.seriesOf(panel)) {
        if (series->smoothing)
            lines.back().isFaint = true; // the same line as it was read
        if (!series->smoothing) {
            ++keys;
            total += series->total;
            drawn += std::ssize(series->xs);
        }
        lines.push_back(
            {.key = series->run.value_or(series->y),
             .series = series,
             .pen = series->run ? series->place : keys - 1,
             .isFaint = false});
        for (std::size_t at = 0; at < series->xs.size(); ++at) {
            if (isLogarithmic && series->ys[at] <= 0) {
                notShown += series->smoothing ? 0 : 1;
                continue;
            }
            xs.add(series->xs[at]);
            ys.add(series->ys[at]);
            whole = whole && series->xs[at] == std::floor(series->xs[at]);
        }
    }
    Chart chart{
        .title = panel.title,
        .xKey = panel.x.value_or("point"),
        .lines = std::move(lines),
        .x = Axis::through(xs.range().value_or(Axis::Range{}), whole),
        .y = vertical(ys, panel),
        .rule = panel.rule,
        .isWide = panel.wide,
        .isEmpty = !xs.range(),
        .notShown = notShown,
        .total = total,
        .drawn = drawn,
        .nothing = {}};
    chart.nothing = whyNothing(chart, charts.hasEnded);
    if (chart.rule) {
        const std::optional<double> place = chart.y.place(*chart.rule);
        if (!place || *place < 0 || *place > 1)
            chart.rule.reset();
    }
    return chart;
}

std::vector<Chart> Chart::all(const TelemetryCharts& charts)
{
    std::vector<Chart> all;
    for (const TelemetryLayout::Panel& panel : charts.panels)
        all.push_back(of(charts, panel));
    return all;
}

std::vector<std::size_t> Chart::backToFront() const
{
    std::vector<std::size_t> order(lines.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, std::ranges::greater(), [&](std::size_t index) { // of lines alike the first lies on top
        return std::tuple(lines[index].isFaint, lines[index].series->xs.size(), index);
    });
    return order;
}

std::string Chart::remark() const
{
    std::vector<std::string> remarks;
    if (isEmpty)
        return "";
    if (y.isLogarithmic())
        remarks.emplace_back("logarithmic scale");
    if (drawn < total)
        remarks.push_back(fmt::format("of {} points {} are drawn", grouped(total), grouped(drawn)));
    if (notShown == 1)
        remarks.emplace_back("1 point at or below 0 can't be shown");
    else if (notShown > 1)
        remarks.push_back(fmt::format("{} points at or below 0 can't be shown", grouped(notShown)));
    return text::joined(remarks, "; ");
}

std::string droppedWords(const Telemetry::Drops& dropped)
{
    std::string text;
    for (const auto& [drop, count] : dropped)
        text +=
            fmt::format("{}{} {}", text.empty() ? "Dropped: " : ", ", grouped(count), Telemetry::describe(drop, count));
    return text;
}

} // namespace veltry
