#include "Experiments/Telemetry/TelemetryCharts.h"

#include "Base/RecordCoding.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>

namespace veltry {

namespace records {

template <>
struct Codec<Telemetry::Drops> {
    static JSONValue write(const Telemetry::Drops& dropped) { return toJSON(dropped); }
};

template <>
constexpr auto fields<TelemetryLayout::Panel> = std::tuple(
    field("title", &TelemetryLayout::Panel::title), field("x", &TelemetryLayout::Panel::x),
    field("y", &TelemetryLayout::Panel::y), field("scale", &TelemetryLayout::Panel::scale),
    field("min", &TelemetryLayout::Panel::min), field("max", &TelemetryLayout::Panel::max),
    field("rule", &TelemetryLayout::Panel::rule), field("wide", &TelemetryLayout::Panel::wide));

template <>
constexpr auto fields<TelemetryCharts::Series> = std::tuple(
    field("x", &TelemetryCharts::Series::x), field("y", &TelemetryCharts::Series::y),
    field("run", &TelemetryCharts::Series::run), field("smoothing", &TelemetryCharts::Series::smoothing),
    field("total", &TelemetryCharts::Series::total), field("xs", &TelemetryCharts::Series::xs),
    field("ys", &TelemetryCharts::Series::ys));

template <>
constexpr auto fields<TelemetryCharts::Stat> = std::tuple(
    field("title", &TelemetryCharts::Stat::title), field("y", &TelemetryCharts::Stat::y),
    field("reduce", &TelemetryCharts::Stat::reduce), field("value", &TelemetryCharts::Stat::value));

template <>
constexpr auto fields<TelemetryCharts> = std::tuple(
    field("configured", &TelemetryCharts::configured), field("panels", &TelemetryCharts::panels),
    field("stats", &TelemetryCharts::stats), field("series", &TelemetryCharts::series),
    field("dropped", &TelemetryCharts::dropped));

} // namespace records

namespace {

using Column = Telemetry::Column;
using Series = TelemetryCharts::Series;
using Stat = TelemetryCharts::Stat;

/// Whether both have their readings in the same points. Most have one in every point from their first to their last,
/// and then nothing has to be compared.
bool haveSamePoints(const Column& left, const Column& right)
{
    const auto& a = left.seqs;
    const auto& b = right.seqs;
    if (a.size() != b.size() || a.front() != b.front() || a.back() != b.back())
        return false;
    return static_cast<std::size_t>(a.back() - a.front()) + 1 == a.size() || a == b;
}

/// Joins lines with their horizontal axis. Several lines mostly share one, so it is laid out once: a number for each
/// point, and then a line is joined in one pass over its own readings.
class Join {
public:
    /// Finds the readings of `y` in points that have a reading of `x` too.
    void make(const Column& x, const Column& y)
    {
        layOut(x);
        xs_.resize(std::max(xs_.size(), y.seqs.size()));
        ys_.resize(xs_.size());
        count_ = 0;
        auto value = y.values.begin();
        for (const std::int32_t seq : y.seqs) {
            const auto place = static_cast<std::size_t>(seq);
            if (place >= axis_.size())
                break;
            xs_[count_] = axis_[place];
            ys_[count_] = *value++;
            // Where the axis has no reading the next one takes the place.
            count_ += std::isnan(axis_[place]) ? 0 : 1;
        }
    }

    [[nodiscard]] std::span<const double> xs() const { return std::span(xs_).first(count_); }
    [[nodiscard]] std::span<const double> ys() const { return std::span(ys_).first(count_); }

private:
    void layOut(const Column& x)
    {
        if (x_ == &x)
            return;
        x_ = &x;
        axis_.assign(static_cast<std::size_t>(x.seqs.back()) + 1, std::numeric_limits<double>::quiet_NaN());
        auto value = x.values.begin();
        for (const std::int32_t seq : x.seqs)
            axis_[static_cast<std::size_t>(seq)] = *value++;
    }

    const Column* x_ = nullptr;
    std::vector<double> axis_; // by seq; readings are finite, so a NaN stands for none
    std::vector<double> xs_;
    std::vector<double> ys_;
    std::size_t count_ = 0; // of xs_ and ys_
};

/// Fills a line with its points, and if they are too many with the extremes of each run of them: a peak stays a peak,
/// however short it is. `xs` and `ys` are parallel.
template <typename Xs, typename Ys>
void fill(Series& series, const Xs& xs, const Ys& ys, std::size_t bucketCount)
{
    const std::size_t count = ys.size();
    series.total = static_cast<std::int64_t>(count);
    if (count <= 2 * bucketCount) {
        series.xs.assign(xs.begin(), xs.end());
        series.ys.assign(ys.begin(), ys.end());
        return;
    }
    const auto keep = [&](std::size_t index) {
        series.xs.push_back(static_cast<double>(xs[index]));
        series.ys.push_back(ys[index]);
    };
    const std::size_t size = (count + bucketCount - 1) / bucketCount;
    auto y = ys.begin();
    for (std::size_t start = 0; start < count; start += size) {
        std::size_t lowest = start;
        std::size_t highest = start;
        double low = *y;
        double high = low;
        for (std::size_t index = start; index < std::min(start + size, count); ++index, ++y)
            // Of equal ones the earliest stays.
            if (*y < low) {
                low = *y;
                lowest = index;
            } else if (*y > high) {
                high = *y;
                highest = index;
            }
        keep(std::min(lowest, highest));
        // In the order of their points, so that the line doesn't run back.
        if (lowest != highest)
            keep(std::max(lowest, highest));
    }
}

/// The exponential moving average. Divided by the share that the readings so far have in it, or the 0 with which it
/// begins would pull the first ones down.
template <typename Ys>
std::vector<double> smoothed(const Ys& ys, double weight)
{
    std::vector<double> result;
    result.reserve(ys.size());
    double average = 0;
    double past = 1; // what is left of the 0 at the start
    for (const double y : ys) {
        average = weight * average + (1 - weight) * y;
        past *= weight;
        result.push_back(average / (1 - past));
    }
    return result;
}

void fill(Series& series, const Telemetry& telemetry, std::size_t bucketCount, Join& join)
{
    const auto take = [&](const auto& xs, const auto& ys) {
        if (series.smoothing)
            fill(series, xs, smoothed(ys, *series.smoothing), bucketCount);
        else
            fill(series, xs, ys, bucketCount);
    };
    const Column* y = telemetry.column(series.y);
    const Column* x = series.x ? telemetry.column(*series.x) : nullptr;
    if (!y || (series.x && !x)) {
        // The layout was written before the run, which needn't have such a key.
        series.lack = y ? TelemetryCharts::Lack::x : TelemetryCharts::Lack::y;
        return;
    }
    if (!x)
        return take(y->seqs, y->values);
    if (haveSamePoints(*x, *y))
        return take(x->values, y->values);
    join.make(*x, *y);
    take(join.xs(), join.ys());
    if (series.xs.empty())
        series.lack = TelemetryCharts::Lack::x;
}

/// Takes what isn't wanted out of the layout. What no panel draws gets one, as without a layout.
void select(TelemetryLayout& layout, const std::vector<std::string>& keys)
{
    std::vector<std::string> left = keys;
    for (TelemetryLayout::Panel& panel : layout.panels) {
        std::erase_if(panel.y, [&](const std::string& y) { return std::ranges::count(keys, y) == 0; });
        for (const std::string& y : panel.y)
            std::erase(left, y);
    }
    std::erase_if(layout.panels, [](const TelemetryLayout::Panel& panel) { return panel.y.empty(); });
    std::erase_if(
        layout.stats, [&](const TelemetryLayout::Stat& stat) { return std::ranges::count(keys, stat.y) == 0; });
    for (std::string& key : left)
        layout.panels.push_back({.title = key, .x = {}, .y = {key}, .min = {}, .max = {}, .rule = {}});
}

bool isLine(const Series& series, const std::optional<std::string>& x, const std::string& y)
{
    return series.x == x && series.y == y;
}

std::optional<double> reduced(const Column* column, TelemetryLayout::Reduce reduce)
{
    if (!column)
        return std::nullopt;
    switch (reduce) {
    case TelemetryLayout::Reduce::min:
        return *std::ranges::min_element(column->values);
    case TelemetryLayout::Reduce::max:
        return *std::ranges::max_element(column->values);
    case TelemetryLayout::Reduce::last:
        break;
    }
    return column->values.back();
}

} // namespace

TelemetryCharts::TelemetryCharts(
    const Telemetry& telemetry, const std::optional<TelemetryLayout>& layout, std::size_t bucketCount)
    : TelemetryCharts(telemetry, layout, Selection{}, bucketCount)
{
}

TelemetryCharts::TelemetryCharts(
    const Telemetry& telemetry, const std::optional<TelemetryLayout>& layout, const Selection& selection,
    std::size_t bucketCount)
    : configured(layout.has_value()), dropped(telemetry.dropped())
{
    assert(bucketCount > 0);
    TelemetryLayout asked = layout ? *layout : TelemetryLayout::standard(telemetry.keys());
    if (!selection.keys.empty())
        select(asked, selection.keys);
    panels = asked.panels;
    for (TelemetryLayout::Panel& panel : panels) {
        if (!panel.x)
            panel.x = asked.x;
        for (const std::string& y : panel.y)
            if (std::ranges::none_of(series, [&](const Series& one) { return isLine(one, panel.x, y); })) {
                series.push_back({.x = panel.x, .y = y, .xs = {}, .ys = {}});
                if (selection.smoothing)
                    series.push_back({.x = panel.x, .y = y, .smoothing = selection.smoothing, .xs = {}, .ys = {}});
            }
    }
    Join join;
    for (Series& one : series)
        fill(one, telemetry, bucketCount, join);
    for (const TelemetryLayout::Stat& stat : asked.stats)
        stats.push_back(
            {.title = stat.title,
             .y = stat.y,
             .reduce = stat.reduce,
             .value = reduced(telemetry.column(stat.y), stat.reduce)});
}

TelemetryCharts TelemetryCharts::together(const std::vector<std::pair<std::string, TelemetryCharts>>& runs)
{
    TelemetryCharts all;
    all.hasEnded = true;
    for (std::size_t place = 0; place < runs.size(); ++place) {
        const auto& [name, charts] = runs[place];
        all.configured = all.configured || charts.configured;
        all.hasEnded = all.hasEnded && charts.hasEnded;
        for (const TelemetryLayout::Panel& panel : charts.panels)
            for (const std::string& y : panel.y) {
                const auto isSame = [&](const TelemetryLayout::Panel& one) {
                    return one.x == panel.x && one.y[0] == y;
                };
                if (std::ranges::any_of(all.panels, isSame))
                    continue;
                TelemetryLayout::Panel& own = all.panels.emplace_back(panel);
                own.y = {y};
                if (panel.y.size() > 1)
                    own.title = panel.title.empty() || panel.title == y ? y : panel.title + ": " + y;
            }
        for (Series one : charts.series) {
            one.run = name;
            one.place = place;
            all.series.push_back(std::move(one));
        }
        for (Stat stat : charts.stats) {
            stat.title += ", " + name;
            all.stats.push_back(std::move(stat));
        }
        for (const auto& [drop, count] : charts.dropped)
            all.dropped[drop] += count;
    }
    return all;
}

std::vector<const Series*> TelemetryCharts::seriesOf(const TelemetryLayout::Panel& panel) const
{
    std::vector<const Series*> lines;
    for (const std::string& y : panel.y)
        for (const Series& one : series)
            if (isLine(one, panel.x, y))
                lines.push_back(&one);
    return lines;
}

bool TelemetryCharts::isEmpty() const
{
    return !configured && std::ranges::all_of(series, [](const Series& one) { return one.xs.empty(); });
}

JSONValue toJSON(const TelemetryCharts& charts)
{
    return records::writeRecord(charts);
}

} // namespace veltry
