#include "Host/Terminal/Times.h"

#include "Base/Numbers.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace veltry::Times {

namespace {

constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

std::tm localTime(Date moment)
{
    // Rounded down, also before 1970, where cutting the fraction off would round up.
    const auto seconds = static_cast<std::time_t>(std::floor(moment.secondsSince1970()));
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return parts;
}

/// The larger unit, and the smaller one if there is any of it.
std::string inUnits(
    std::int64_t seconds, std::int64_t large, const char* largeName, std::int64_t small, const char* smallName)
{
    const std::int64_t rest = seconds % large / small;
    std::string text = fmt::format("{} {}", seconds / large, largeName);
    return rest == 0 ? text : text + fmt::format(" {} {}", rest, smallName);
}

} // namespace

std::string ago(Date moment, Date now)
{
    // A clock may have been set back: what lies ahead counts as now.
    const auto seconds = static_cast<std::int64_t>(std::max(0.0, now.secondsSince2001 - moment.secondsSince2001));
    if (seconds < minute)
        return "just now";
    if (seconds < hour)
        return counted(seconds / minute, "minute ago", "minutes ago");
    if (seconds < day)
        return counted(seconds / hour, "hour ago", "hours ago");
    if (seconds < 2 * day)
        return "yesterday";
    // From two weeks on a date says more than a number of days.
    if (seconds < 14 * day)
        return counted(seconds / day, "day ago", "days ago");
    return fmt::format("{:%Y-%m-%d}", localTime(moment));
}

std::string local(Date moment)
{
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", localTime(moment));
}

std::string length(double seconds)
{
    seconds = std::max(0.0, seconds);
    if (seconds < 10)
        return fmt::format("{:.1f} s", seconds);
    return length(std::chrono::seconds(std::llround(seconds)));
}

std::string length(std::chrono::seconds time)
{
    const std::int64_t whole = time.count();
    if (whole < minute)
        return fmt::format("{} s", whole);
    if (whole < hour)
        return inUnits(whole, minute, "min", 1, "s");
    if (whole < day)
        return inUnits(whole, hour, "h", minute, "min");
    return inUnits(whole, day, "d", hour, "h");
}

} // namespace veltry::Times
