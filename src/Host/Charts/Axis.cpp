#include "Host/Charts/Axis.h"

#include "Host/Terminal/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace veltry {

namespace {

constexpr double usualTicks = 5;
constexpr double rounding = 1e-9; // of a step: how far a sum of steps may lie beside a round value

/// The least of 1, 2 and 5 times a power of ten that isn't below `least`.
double roundStep(double least)
{
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= least * (1 - rounding))
            return factor * power;
    return 10 * power;
}

/// The labels of one axis have the same number of decimals.
std::string label(double value, double step)
{
    if (std::abs(value) < step * rounding)
        return "0";
    const double size = std::abs(value);
    if (size >= 1e7 || step < 1e-5)
        return shortNumber(value);
    const int decimals = std::max(0, static_cast<int>(std::ceil(-std::log10(step) - rounding)));
    return grouped(fmt::format("{:.{}f}", value, decimals));
}

} // namespace

Axis Axis::around(Range data, std::optional<double> fixedLow, std::optional<double> fixedHigh, bool isLogarithmic)
{
    Range range{.low = fixedLow.value_or(data.low), .high = fixedHigh.value_or(data.high)};
    if (isLogarithmic) {
        if (!fixedHigh && range.high <= range.low)
            range.high = range.low * 10;
        if (!fixedLow && range.low >= range.high)
            range.low = range.high / 10;
        return Axis(range, true);
    }
    if (range.high <= range.low) { // all values alike, or all beyond the end that is fixed
        const double around = std::max(std::abs(range.low), std::abs(range.high)) * 0.1;
        const double half = around > 0 ? around : 1;
        if (!fixedHigh)
            range.high = std::max(range.high, range.low) + half;
        if (!fixedLow)
            range.low = std::min(range.low, range.high) - half;
    }
    const double step = roundStep((range.high - range.low) / usualTicks);
    if (!fixedLow)
        range.low = std::floor(range.low / step + rounding) * step;
    if (!fixedHigh)
        range.high = std::ceil(range.high / step - rounding) * step;
    return Axis(range);
}

std::optional<double> Axis::place(double value) const
{
    if (!isLogarithmic_)
        return (value - range_.low) / (range_.high - range_.low);
    if (value <= 0)
        return std::nullopt;
    return std::log(value / range_.low) / std::log(range_.high / range_.low);
}

std::vector<Axis::Tick> Axis::ticks(std::size_t most) const
{
    if (isLogarithmic_)
        return logarithmicTicks(most);
    const double span = range_.high - range_.low;
    double step = roundStep(span / static_cast<double>(most));
    if (isWhole_)
        step = std::max(step, 1.0);
    const auto first = [&] { return std::ceil(range_.low / step - rounding); };
    while (std::floor(range_.high / step + rounding) - first() >= static_cast<double>(most))
        step = roundStep(step * 1.5);
    std::vector<Tick> ticks;
    for (double count = first(); count * step <= range_.high + span * rounding; ++count)
        ticks.push_back({.place = (count * step - range_.low) / span, .label = label(count * step, step)});
    return ticks;
}

std::vector<Axis::Tick> Axis::logarithmicTicks(std::size_t most) const
{
    const double low = std::log10(range_.low);
    const double high = std::log10(range_.high);
    const auto powers = static_cast<std::size_t>(std::max(0.0, std::floor(high) - std::ceil(low) + 1));
    std::vector<Tick> ticks;
    const auto add = [&](double value) {
        if (const double where = place(value).value(); where >= -rounding && where <= 1 + rounding)
            ticks.push_back({.place = where, .label = shortNumber(value)});
    };
    if (powers >= 3 || powers > most) {
        const auto every = static_cast<int>((powers + most - 1) / most);
        const auto last = static_cast<int>(std::floor(high + rounding));
        for (auto power = static_cast<int>(std::ceil(low - rounding)); power <= last; power += every)
            add(std::pow(10.0, power));
        return ticks;
    }
    constexpr std::array<std::array<double, 9>, 3> factors = {
        {{1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 2, 5, 0, 0, 0, 0, 0, 0}, {1, 3, 0, 0, 0, 0, 0, 0, 0}}};
    for (const auto& choice : factors) {
        ticks.clear();
        for (auto power = static_cast<int>(std::floor(low)); power <= high; ++power)
            for (const double factor : choice)
                if (factor > 0)
                    add(factor * std::pow(10.0, power));
        if (ticks.size() <= most)
            break;
    }
    if (ticks.size() < 2) // less than a step of these: its ends tell more
        return {{.place = 0, .label = shortNumber(range_.low)}, {.place = 1, .label = shortNumber(range_.high)}};
    return ticks;
}

} // namespace veltry
