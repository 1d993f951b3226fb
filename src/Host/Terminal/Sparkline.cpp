#include "Host/Terminal/Sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace veltry {

namespace {

constexpr std::array<std::string_view, 9> blocks = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, 9> ascii = {" ", ".", ":", "-", "=", "+", "*", "%", "#"};

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
        // Rounded up, so that whatever isn't zero shows.
        line += bars.at(static_cast<std::size_t>(std::ceil(part * static_cast<double>(bars.size() - 1))));
    }
    return line;
}

} // namespace veltry
