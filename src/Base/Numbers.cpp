#include "Base/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace veltry {

namespace {

// Up to here a double holds every whole number.
constexpr double exactIntegers = 9007199254740992.0; // 2^53

bool isWhole(double number)
{
    return std::abs(number) < exactIntegers && number == std::round(number);
}

} // namespace

std::string shownNumber(double number)
{
    return isWhole(number) ? exactNumber(number) : fmt::format("{:.{}g}", number, shortDigits);
}

std::string shownDifference(double difference)
{
    if (difference == 0)
        return "0";
    return isWhole(difference) ? fmt::format("{:+.0f}", difference) : fmt::format("{:+.{}g}", difference, shortDigits);
}

std::string shortNumber(double value)
{
    std::string text = fmt::format("{:.{}g}", value, shortDigits);
    return text.contains('e') || text.contains('n') ? text : grouped(std::move(text)); // "inf" has an n as well
}

std::string exactNumber(double number)
{
    // Adding zero takes the sign from a negative zero.
    return isWhole(number) ? fmt::format("{:.0f}", number + 0.0) : fmt::format("{}", number);
}

std::string grouped(std::string number)
{
    const std::size_t first = number.starts_with('-') ? 1 : 0;
    std::size_t at = std::min(number.find('.'), number.size());
    while (at > first + 3) {
        at -= 3;
        number.insert(at, 1, ',');
    }
    return number;
}

std::string grouped(std::int64_t count)
{
    return grouped(std::to_string(count));
}

std::string counted(std::int64_t count, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", count, plural(count, one, many));
}

std::string groupedCount(std::int64_t count, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", grouped(count), plural(count, one, many));
}

std::string shownBytes(std::uint64_t bytes)
{
    constexpr std::array units = {"kB", "MB", "GB", "TB"};
    if (bytes < 1000)
        return fmt::format("{} B", bytes);
    double number = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    // From here on one decimal would round to 1000.0 of the smaller unit.
    for (; number >= 999.95 && unit + 1 < units.size(); ++unit)
        number /= 1000;
    return fmt::format("{:.1f} {}", number, units.at(unit));
}

} // namespace veltry
