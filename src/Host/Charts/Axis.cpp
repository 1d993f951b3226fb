#include "Host/Charts/Axis.h"

#include "Base/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace veltry {

namespace {

constexpr double usualTicks = 5;
constexpr double rounding = 1e-9; // of a step: how far a sum of steps may lie beside a round value
constexpr int digits = shortDigits;
constexpr double largest = std::numeric_limits<double>::max();
// Below these steps of a scale come out alike: of numbers that share their first 14 digits, and near the least ones.
constexpr double leastShare = 64 * std::numeric_limits<double>::epsilon();
constexpr double leastSpan = 1e-300;
constexpr double farAway = 1e6; // lengths of the axis

double size(const Axis::Range& range)
{
    return std::max(std::abs(range.low), std::abs(range.high));
}

bool spansNothing(const Axis::Range& range, bool isLogarithmic)
{
    const double span = range.high - range.low; // infinite where no double holds it
    return !(span > size(range) * leastShare && (isLogarithmic || span > leastSpan));
}

/// The least of 1, 2 and 5 times a power of ten that isn't below `least`; infinite beyond the doubles.
double roundStep(double least)
{
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= least * (1 - rounding))
            return factor * power;
    return 10 * power;
}

/// The logarithm of `value / base`, both above 0, exact where they are neighbours and where no double holds the ratio.
double logRatio(double value, double base)
{
    const double ratio = value / base;
    if (!std::isnormal(ratio))
        return std::log(value) - std::log(base);
    return std::abs(ratio - 1) < 0.5 ? std::log1p((value - base) / base) : std::log(ratio);
}

/// The labels of one axis have the same form and tell its ticks apart: the numbers of seconds since 1970 take more than
/// six digits. `most` is the greatest size on the axis.
std::string label(double value, double step, double most)
{
    if (std::abs(value) < step * rounding)
        return "0";
    const int apart = static_cast<int>(std::floor(std::log10(most)) - std::floor(std::log10(step) + rounding)) + 1;
    const int decimals = std::max(0, static_cast<int>(std::ceil(-std::log10(step) - rounding)));
    if ((most < 1e7 && step >= 1e-5) || (apart > digits && most >= 1e-4 && most < 1e15))
        return grouped(fmt::format("{:.{}f}", value, decimals));
    return apart > digits ? fmt::format("{:.{}e}", value, apart - 1) : shortNumber(value);
}

/// `factor` times a power of ten; the least doubles hold too few digits to be written from their value.
Axis::Tick decimal(double factor, int power, double place)
{
    const double value = factor * std::pow(10.0, power);
    return {.place = place, .label = std::isnormal(value) ? shortNumber(value) : fmt::format("{}e{}", factor, power)};
}

} // namespace

Axis Axis::around(Range data, std::optional<double> fixedLow, std::optional<double> fixedHigh, bool isLogarithmic)
{
    Range range{.low = fixedLow.value_or(data.low), .high = fixedHigh.value_or(data.high)};
    const bool isFixed = fixedLow && fixedHigh && range.low < range.high;
    if (!isFixed && spansNothing(range, isLogarithmic)) { // all values alike, or all beyond the end that is fixed
        const double around = std::max(size(range) * 0.1, leastSpan);
        const double half = size(range) > 0 ? around : 1;
        if (!fixedHigh)
            range.high = std::max(range.high, range.low);
        if (!fixedLow)
            range.low = std::min(range.low, range.high);
        if (!fixedHigh)
            range.high = std::min(isLogarithmic ? range.low * 10 : range.high + half, largest);
        if (!fixedLow && !(isLogarithmic && range.low < range.high))
            range.low = isLogarithmic ? range.high / 10 : std::max(range.low - half, -largest);
    }
    if (isLogarithmic)
        range.low = std::max(range.low, std::numeric_limits<double>::denorm_min());
    if (range.low >= range.high) { // the fixed end is the last of all doubles
        double& end = range.low > 1 ? range.low : range.high;
        end = std::abs(end) > 1 ? end / 10 : end * 10;
    }
    if (isLogarithmic || spansNothing(range, false))
        return Axis(range, isLogarithmic);
    const double step = roundStep(range.high / usualTicks - range.low / usualTicks);
    if (!fixedLow)
        range.low = std::max(std::floor(range.low / step + rounding) * step, -largest);
    if (!fixedHigh)
        range.high = std::min(std::ceil(range.high / step - rounding) * step, largest);
    return Axis(range);
}

Axis Axis::through(Range data, bool whole)
{
    if (spansNothing(data, false)) {
        const double half = std::max(1.0, size(data) * leastShare);
        data = {.low = std::max(data.low - half, -largest), .high = std::min(data.high + half, largest)};
    }
    return Axis(data, false, whole);
}

std::optional<double> Axis::place(double value) const
{
    if (isLogarithmic_ && value <= 0)
        return std::nullopt;
    const auto share = [](double part, double whole) { return std::clamp(part / whole, -farAway, farAway); };
    if (isLogarithmic_)
        return share(logRatio(value, range_.low), logRatio(range_.high, range_.low));
    const double span = range_.high - range_.low;
    if (std::isfinite(span))
        return share(value - range_.low, span);
    return share(value / 2 - range_.low / 2, range_.high / 2 - range_.low / 2);
}

std::vector<Axis::Tick> Axis::ticks(std::size_t most) const
{
    std::vector<Tick> ticks = isLogarithmic_ ? logarithmicTicks(most) : linearTicks(most);
    return ticks.size() < 2 ? ends() : ticks;
}

std::vector<Axis::Tick> Axis::ticksAcross(std::size_t most, double characters) const
{
    std::vector<Tick> ticks = this->ticks(std::max<std::size_t>(most, 2));
    const auto touch = [&](const Tick& left, const Tick& right) {
        const auto taken = static_cast<double>(left.label.size() + right.label.size()) / 2;
        return (right.place - left.place) * characters < taken + 2;
    };
    while (most > 2 && std::ranges::adjacent_find(ticks, touch) != ticks.end())
        ticks = this->ticks(--most);
    return ticks;
}

/// Written so that they can be told apart.
std::vector<Axis::Tick> Axis::ends() const
{
    std::string low = shortNumber(range_.low);
    std::string high = shortNumber(range_.high);
    if (low == high) {
        low = fmt::format("{}", range_.low);
        high = fmt::format("{}", range_.high);
    }
    return {{.place = 0, .label = std::move(low)}, {.place = 1, .label = std::move(high)}};
}

std::vector<Axis::Tick> Axis::linearTicks(std::size_t most) const
{
    if (spansNothing(range_, false))
        return {};
    const auto parts = static_cast<double>(most);
    double step = roundStep(range_.high / parts - range_.low / parts);
    if (isWhole_)
        step = std::max(step, 1.0);
    const auto first = [&] { return std::ceil(range_.low / step - rounding); };
    const auto last = [&] { return std::floor(range_.high / step + rounding); };
    while (last() - first() >= parts)
        step = roundStep(step * 1.5);
    if (!std::isfinite(step))
        return {};
    std::vector<Tick> ticks;
    for (double count = first(), end = last(); count <= end; ++count)
        ticks.push_back(
            {.place = std::clamp(place(count * step).value(), 0.0, 1.0),
             .label = label(count * step, step, size(range_))});
    return ticks;
}

std::vector<Axis::Tick> Axis::logarithmicTicks(std::size_t most) const
{
    const double low = std::log10(range_.low);
    const double high = std::log10(range_.high);
    const auto first = static_cast<int>(std::ceil(low - rounding));
    const auto last = static_cast<int>(std::floor(high + rounding));
    const auto powers = static_cast<std::size_t>(std::max(0, last - first + 1));
    std::vector<Tick> ticks;
    const auto add = [&](double factor, int power) {
        const double where = place(factor * std::pow(10.0, power)).value_or(-1);
        if (where >= -rounding && where <= 1 + rounding)
            ticks.push_back(decimal(factor, power, std::clamp(where, 0.0, 1.0)));
    };
    if (powers >= 3 || powers > most) {
        const double every = std::max(1.0, roundStep(static_cast<double>(powers) / static_cast<double>(most)));
        for (double power = std::ceil(first / every) * every; power <= last; power += every)
            add(1, static_cast<int>(power));
        return ticks;
    }
    constexpr std::array<std::array<double, 9>, 4> factors = {
        {{1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 2, 5, 0, 0, 0, 0, 0, 0}, {1, 3, 0, 0, 0, 0, 0, 0, 0}, {1}}};
    for (const auto& choice : factors) {
        ticks.clear();
        for (auto power = static_cast<int>(std::floor(low)); power <= high; ++power)
            for (const double factor : choice)
                if (factor > 0)
                    add(factor, power);
        if (ticks.size() <= most)
            return ticks;
    }
    return {};
}

} // namespace veltry
