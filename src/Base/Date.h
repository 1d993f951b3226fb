#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// A moment of the wall clock. Stored moments are seconds since 2001-01-01 00:00:00 UTC with their fraction; waits use
/// a monotonic clock instead.
struct Date {
    double secondsSince2001 = 0;

    [[nodiscard]] static Date now();
    [[nodiscard]] static constexpr Date sinceUnixEpoch(double seconds) { return {seconds - unixEpochTo2001}; }

    /// Seconds since 1970-01-01 00:00:00 UTC.
    [[nodiscard]] constexpr double secondsSince1970() const { return secondsSince2001 + unixEpochTo2001; }

    /// Like 2026-03-01T12:00:00.250Z, in UTC with milliseconds.
    [[nodiscard]] std::string iso8601() const;

    /// Reads 2026-03-01T12:00:00Z, with or without a fraction of the seconds, and with a zone's offset (+0100, +01:00,
    /// +01) in place of the Z; nothing for any other text.
    [[nodiscard]] static std::optional<Date> parseISO8601(std::string_view text);

    friend auto operator<=>(const Date&, const Date&) = default;

    static constexpr double unixEpochTo2001 = 978307200.0;
};

} // namespace veltry
