#include "Base/Date.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>

namespace veltry {

Date Date::now()
{
    std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return sinceUnixEpoch(sinceEpoch.count());
}

std::string Date::iso8601() const
{
    using namespace std::chrono;
    const sys_time<milliseconds> moment{milliseconds{std::llround(secondsSince1970() * 1000.0)}};
    const auto day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss time{moment - day};
    return fmt::format(
        "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
        time.hours().count(), time.minutes().count(), time.seconds().count(), time.subseconds().count());
}

} // namespace veltry
