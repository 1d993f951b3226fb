#include "Experiments/Telemetry/TelemetryNumber.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace veltry {

namespace {

// What a double holds exactly.
constexpr std::uint64_t largestExact = std::uint64_t{1} << 53;
constexpr std::array<double, 23> exactPowers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// Reads eight digits at once, side by side in one integer: the most of a line are those of its numbers. False if they
/// aren't all digits.
bool readEight(const char* at, std::uint64_t& value)
{
    static_assert(std::endian::native == std::endian::little, "the first digit is to be the lowest byte");
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, at, sizeof bytes);
    bytes -= 0x3030303030303030; // '0' of each
    // A byte above 9 shows in its upper half, now or with 6 added. A borrow can't hide one: what borrows shows itself.
    if (((bytes | (bytes + 0x0606060606060606)) & 0xF0F0F0F0F0F0F0F0) != 0)
        return false;
    bytes = (bytes * 10 + (bytes >> 8)) & 0x00FF00FF00FF00FF;   // four numbers of two digits
    bytes = (bytes * 100 + (bytes >> 16)) & 0x0000FFFF0000FFFF; // two of four
    value = (bytes * 10'000 + (bytes >> 32)) & 0x00000000FFFFFFFF;
    return true;
}

double nearest(std::string_view text)
{
    double value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc())
        return value;
    // Out of range. Unlike from_chars strtod tells too small from too large; the locale is "C".
    return std::strtod(std::string(text).c_str(), nullptr);
}

/// A number's digits as an integer, which is right for up to 19 of them, and the power of ten to multiply it by.
struct Decimal {
    std::uint64_t digits = 0;
    std::ptrdiff_t count = 0;
    std::ptrdiff_t exponent = 0;
};

/// Takes digits, as many as there are, and returns the place after them.
const char* readDigits(const char* at, const char* end, Decimal& decimal)
{
    const char* const start = at;
    for (; at != end && isDigit(*at); ++at)
        decimal.digits = decimal.digits * 10 + static_cast<std::uint64_t>(*at - '0');
    decimal.count += at - start;
    return at;
}

/// The same for where there are many.
const char* readManyDigits(const char* at, const char* end, Decimal& decimal)
{
    for (std::uint64_t eight = 0; end - at >= 8 && readEight(at, eight); at += 8) {
        decimal.digits = decimal.digits * 100'000'000 + eight;
        decimal.count += 8;
    }
    return readDigits(at, end, decimal);
}

const char* readExponent(const char* at, const char* end, Decimal& decimal)
{
    const bool isNegative = at != end && *at == '-';
    if (isNegative || (at != end && *at == '+'))
        ++at;
    if (at == end || !isDigit(*at))
        return nullptr;
    constexpr std::ptrdiff_t enough = 1'000'000; // more than the digits of a line can make up for
    std::ptrdiff_t value = 0;
    for (; at != end && isDigit(*at); ++at)
        value = std::min(value * 10 + (*at - '0'), enough);
    decimal.exponent += isNegative ? -value : value;
    return at;
}

/// The nearest double, if both sides of one multiplication or division are exact, so that it rounds once.
bool isExact(const Decimal& decimal, double& value)
{
    const auto power = static_cast<std::size_t>(std::abs(decimal.exponent));
    if (decimal.count > 19 || decimal.digits > largestExact || power >= exactPowers.size())
        return false;
    value = static_cast<double>(static_cast<std::int64_t>(decimal.digits)); // quicker than from unsigned
    value = decimal.exponent < 0 ? value / exactPowers[power] : value * exactPowers[power];
    return true;
}

} // namespace

const char* readTelemetryNumber(const char* at, const char* end, double& value)
{
    const char* const start = at;
    if (at != end && *at == '-')
        ++at;
    const char* const whole = at;
    Decimal decimal;
    at = readDigits(at, end, decimal);
    if (at == whole)
        return nullptr;
    if (at != end && *at == '.') {
        const char* const fraction = ++at;
        at = readManyDigits(at, end, decimal);
        if (at == fraction)
            return nullptr;
        decimal.exponent = fraction - at;
    }
    if (at != end && (*at == 'e' || *at == 'E')) {
        at = readExponent(at + 1, end, decimal);
        if (!at)
            return nullptr;
    }
    if (!isExact(decimal, value))
        value = nearest({start, at});
    else if (start != whole)
        value = -value;
    return at;
}

} // namespace veltry
