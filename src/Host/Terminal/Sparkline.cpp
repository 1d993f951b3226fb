#include "Host/Terminal/Sparkline.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace veltry {

namespace {

constexpr std::array<std::string_view, 9> blocks = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, 9> ascii = {" ", ".", ":", "-", "=", "+", "*", "%", "#"};
constexpr std::array<std::string_view, 6> units = {"B", "kB", "MB", "GB", "TB", "PB"};

} // namespace

std::string sparkline(std::span<const double> values, std::size_t columns, double most, const Terminal& terminal)
{
    const auto& bars = terminal.isUTF8() ? blocks : ascii;
    values = values.last(std::min(values.size(), columns));
    for (const double value : values)
        most = std::max(most, value);
    std::string line(columns - values.size(), ' ');
    for (const double value : values) {
        const double part = most > 0 ? std::clamp(value / most, 0.0, 1.0) : 0;
        line += bars.at(static_cast<std::size_t>(std::ceil(part * static_cast<double>(bars.size() - 1))));
    }
    return line;
}

std::string sizeText(std::uint64_t bytes)
{
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 999.5 && unit + 1 < units.size(); ++unit)
        size /= 1000;
    return fmt::format("{:.{}f} {}", size, unit > 0 && size < 9.95 ? 1 : 0, units.at(unit));
}

} // namespace veltry
