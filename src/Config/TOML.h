#pragma once

#include "Base/Error.h"

#include <concepts>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace veltry {

/// A value of the subset of TOML in which `settings.toml` and `telemetry.toml` are written by hand.
///
/// The subset has strings of one line, numbers, booleans, arrays and one level of tables. What lies outside it (dotted
/// keys, inline tables, dates, strings of several lines) is refused with a sentence that names the line, and nothing is
/// approximated.
class TOML {
public:
    using Array = std::vector<TOML>;
    using Table = std::map<std::string, TOML, std::less<>>;
    using Tables = std::vector<Table>;

    /// The text is outside the subset.
    struct Failure : Error {
        explicit Failure(std::string text) : message(std::move(text)) {}

        [[nodiscard]] std::string description() const override { return message; }

        std::string message; ///< "<sentence> on line <n>", where the first line is 1
    };

    /// The members of the document. Those of a `[name]` are a table() under that name, those of all its `[[name]]` are
    /// tables(); both occur only here. Takes time in proportion to the text; malformed UTF-8 counts as U+FFFD, and a
    /// byte-order mark is no part of the subset. Throws Failure at the first thing that is refused.
    [[nodiscard]] static Table parse(std::string_view text);

    TOML(std::string text) noexcept : value_(std::move(text)) {}

    TOML(const char* text) : value_(std::string(text)) {}

    TOML(bool flag) noexcept : value_(flag) {}

    template <typename Number>
        requires(std::integral<Number> || std::floating_point<Number>) && (!std::same_as<Number, bool>)
    TOML(Number number) noexcept : value_(static_cast<double>(number))
    {
    }

    TOML(Array elements) noexcept : value_(std::move(elements)) {}

    TOML(Table members) noexcept : value_(std::move(members)) {}

    TOML(Tables rows) noexcept : value_(std::move(rows)) {}

    /// The payload if the value is of that case, otherwise null. Integers are numbers too, held as doubles.
    [[nodiscard]] const std::string* string() const noexcept { return std::get_if<std::string>(&value_); }

    [[nodiscard]] const double* number() const noexcept { return std::get_if<double>(&value_); }

    [[nodiscard]] const bool* boolean() const noexcept { return std::get_if<bool>(&value_); }

    [[nodiscard]] const Array* array() const noexcept { return std::get_if<Array>(&value_); }

    [[nodiscard]] const Table* table() const noexcept { return std::get_if<Table>(&value_); }

    [[nodiscard]] const Tables* tables() const noexcept { return std::get_if<Tables>(&value_); }

    [[nodiscard]] Table* table() noexcept { return std::get_if<Table>(&value_); }

    [[nodiscard]] Tables* tables() noexcept { return std::get_if<Tables>(&value_); }

    /// Case and payload.
    friend bool operator==(const TOML&, const TOML&) = default;

    /// An array inside more arrays than this is refused with "expected a value": reading one takes a stack frame a
    /// level.
    static constexpr std::size_t maximumDepth = 256;

private:
    std::variant<std::string, double, bool, Array, Table, Tables> value_;
};

} // namespace veltry
