#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Numbers as a person reads them, and as programs do.
namespace veltry {

/// A value in a table: six digits, whole numbers whole ("0.412346", "9120").
[[nodiscard]] std::string shownNumber(double number);
/// The same with its sign: "+0.012", "-3", "0".
[[nodiscard]] std::string shownDifference(double difference);
/// How many digits are for eyes.
constexpr int shortDigits = 6;
/// A value in a drawing, where room is short: six digits that mean something ("0.031416", "12,500", "3.2e-07").
[[nodiscard]] std::string shortNumber(double value);
/// For programs: whatever reads back equal.
[[nodiscard]] std::string exactNumber(double number);

/// "12,500" of "12500", with or without a sign and decimals.
[[nodiscard]] std::string grouped(std::string number);
/// A count: "12,500".
[[nodiscard]] std::string grouped(std::int64_t count);
/// The word that goes with the count.
[[nodiscard]] constexpr std::string_view plural(std::int64_t count, std::string_view one, std::string_view many)
{
    return count == 1 ? one : many;
}
/// "1 run", "3 runs": the count and the word that goes with it.
[[nodiscard]] std::string counted(std::int64_t count, std::string_view one, std::string_view many);
/// The same with a large count grouped: "12,500 files".
[[nodiscard]] std::string groupedCount(std::int64_t count, std::string_view one, std::string_view many);

/// A size on the disk or in memory: "412 B", "3.4 MB", "1.2 GB".
[[nodiscard]] std::string shownBytes(std::uint64_t bytes);

} // namespace veltry
