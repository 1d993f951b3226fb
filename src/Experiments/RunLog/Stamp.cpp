#include "Experiments/RunLog/Stamp.h"

#include "Base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace veltry::RunLog {

namespace {

constexpr std::size_t offsetDigits = 15;
constexpr std::size_t timeDigits = 13;
static_assert(offsetDigits + 1 + timeDigits + 1 == Stamp::length);

/// Writes the last `count` digits of `number` so that they end before `end`.
void writeDigits(char* end, std::size_t count, std::uint64_t number)
{
    for (; count > 0; --count, number /= 10)
        *--end = static_cast<char>('0' + number % 10);
}

std::optional<std::uint64_t> unsignedInteger(std::string_view text)
{
    if (text.starts_with('+'))
        text.remove_prefix(1);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// The number if nothing but digits stands there, at most 19 of them; nothing otherwise.
std::optional<std::uint64_t> digits(std::string_view text)
{
    std::uint64_t number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9')
            return std::nullopt;
        number = number * 10 + static_cast<std::uint64_t>(digit - '0');
    }
    return number;
}

/// A record exactly as appendTo() writes it, which nearly all are.
std::optional<Stamp> parseOrdinary(std::string_view record)
{
    if (record.size() != Stamp::length || record[offsetDigits] != ' ' || record.back() != '\n')
        return std::nullopt;
    const auto offset = digits(record.substr(0, offsetDigits));
    const auto milliseconds = digits(record.substr(offsetDigits + 1, timeDigits));
    if (!offset || !milliseconds)
        return std::nullopt;
    return Stamp{.offset = *offset, .milliseconds = static_cast<std::int64_t>(*milliseconds)};
}

} // namespace

std::optional<Stamp> Stamp::parse(std::string_view record)
{
    if (const std::optional<Stamp> stamp = parseOrdinary(record))
        return stamp;
    const std::string repaired = text::repaired(record);
    std::vector<std::string_view> pieces = text::split(repaired, ' ');
    std::erase_if(pieces, [](std::string_view piece) { return piece.empty(); });
    if (pieces.size() != 2)
        return std::nullopt;
    const auto offset = unsignedInteger(text::trimmed(pieces[0]));
    const auto milliseconds = text::integer(text::trimmed(pieces[1]));
    if (!offset || !milliseconds)
        return std::nullopt;
    return Stamp{.offset = *offset, .milliseconds = *milliseconds};
}

Stamp Stamp::at(std::uint64_t offset, Date seen)
{
    constexpr double longest = 9'999'999'999'999; // in the year 2286
    const double milliseconds = std::clamp(seen.secondsSince1970() * 1000.0, -longest, longest);
    return {.offset = offset, .milliseconds = std::isnan(milliseconds) ? 0 : std::llround(milliseconds)};
}

void Stamp::appendTo(std::string& records) const
{
    std::array<char, length> record;
    char* const afterOffset = record.data() + offsetDigits;
    writeDigits(afterOffset, offsetDigits, offset);
    *afterOffset = ' ';
    char* const afterTime = afterOffset + 1 + timeDigits;
    const bool negative = milliseconds < 0; // before 1970
    const auto magnitude = static_cast<std::uint64_t>(milliseconds);
    writeDigits(afterTime, timeDigits, negative ? 0 - magnitude : magnitude);
    if (negative)
        afterOffset[1] = '-';
    *afterTime = '\n';
    records.append(record.data(), record.size());
}

} // namespace veltry::RunLog
