#include "Base/Date.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>

namespace veltry {

namespace {

/// Reads a timestamp from left to right; each step fails the whole. By hand, since `strptime` asks the locale and knows
/// no fractions.
class TimestampCursor {
public:
    explicit TimestampCursor(std::string_view text) : rest_(text) {}

    std::optional<Date> timestamp()
    {
        using namespace std::chrono;
        const int year = digits(4);
        const int month = digitsAfter('-');
        const int day = digitsAfter('-');
        const int hour = digitsAfter('T');
        const int minute = digitsAfter(':');
        const int second = digitsAfter(':');
        const year_month_day date{
            std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
            std::chrono::day(static_cast<unsigned>(day))};
        const double fraction = accept('.') ? fractionDigits() : 0;
        const int offset = zone();
        // Fields are checked one by one, since chrono carries what is too large over into the next.
        if (failed_ || !rest_.empty() || !date.ok() || hour > 23 || minute > 59 || second > 59)
            return std::nullopt;
        const auto whole = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute - offset) + seconds(second);
        return Date::sinceUnixEpoch(static_cast<double>(seconds(whole).count()) + fraction);
    }

private:
    /// In minutes east of Greenwich.
    int zone()
    {
        if (accept('Z'))
            return 0;
        const bool west = accept('-');
        if (!west)
            expect('+');
        const int hours = digits(2);
        const int minutes = accept(':') || !rest_.empty() ? digits(2) : 0;
        failed_ |= hours > 23 || minutes > 59;
        return (west ? -1 : 1) * (hours * 60 + minutes);
    }

    double fractionDigits()
    {
        double value = 0;
        double weight = 0.1;
        failed_ |= rest_.empty() || !isDigit(rest_.front());
        for (; !rest_.empty() && isDigit(rest_.front()); rest_.remove_prefix(1), weight /= 10)
            value += weight * (rest_.front() - '0');
        return value;
    }

    int digits(std::size_t count)
    {
        int value = 0;
        for (; count > 0; --count) {
            if (rest_.empty() || !isDigit(rest_.front())) {
                failed_ = true;
                return 0;
            }
            value = value * 10 + (rest_.front() - '0');
            rest_.remove_prefix(1);
        }
        return value;
    }

    int digitsAfter(char separator)
    {
        expect(separator);
        return digits(2);
    }

    bool accept(char wanted)
    {
        const bool found = rest_.starts_with(wanted);
        rest_.remove_prefix(found ? 1 : 0);
        return found;
    }

    void expect(char wanted) { failed_ |= !accept(wanted); }

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    std::string_view rest_;
    bool failed_ = false;
};

} // namespace

std::optional<Date> Date::parseISO8601(std::string_view text)
{
    return TimestampCursor(text).timestamp();
}

Date Date::now()
{
    std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return sinceUnixEpoch(sinceEpoch.count());
}

std::string Date::iso8601() const
{
    using namespace std::chrono;
    // Rounded before it is cut into parts, or 59.9996 seconds would read as 60.000.
    const sys_time<milliseconds> moment{milliseconds{std::llround(secondsSince1970() * 1000.0)}};
    const auto day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss time{moment - day};
    return fmt::format(
        "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
        time.hours().count(), time.minutes().count(), time.seconds().count(), time.subseconds().count());
}

} // namespace veltry
