#pragma once

#include "Base/Error.h"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace veltry {

/// A dynamic JSON document: the currency of every protocol payload and of tool arguments.
///
/// Numbers are doubles, so integers beyond 2^53 lose precision. Objects keep their keys sorted, and equal documents
/// are written as equal texts. Built from literals: `JSONValue::object({{"type", "text"}, {"count", 3}})`.
class JSONValue {
public:
    using Array = std::vector<JSONValue>;
    using Object = std::map<std::string, JSONValue, std::less<>>;

    /// The text isn't JSON, or the value can't be written as JSON.
    struct Failure : Error {
        explicit Failure(std::string what) : message(std::move(what)) {}
        [[nodiscard]] std::string description() const override { return message; }
        std::string message;
    };

    JSONValue() noexcept : value_(nullptr) {}
    JSONValue(std::nullptr_t) noexcept : value_(nullptr) {}
    JSONValue(bool flag) noexcept : value_(flag) {}
    template <typename Number>
        requires(std::integral<Number> || std::floating_point<Number>) && (!std::same_as<Number, bool>)
    JSONValue(Number number) noexcept : value_(static_cast<double>(number))
    {
    }
    JSONValue(std::string text) noexcept : value_(std::move(text)) {}
    JSONValue(std::string_view text) : value_(std::string(text)) {}
    JSONValue(const char* text) : value_(std::string(text)) {}
    JSONValue(Array elements) noexcept : value_(std::move(elements)) {}
    JSONValue(Object members) noexcept : value_(std::move(members)) {}

    [[nodiscard]] static JSONValue array(std::initializer_list<JSONValue> elements) { return Array(elements); }
    [[nodiscard]] static JSONValue object(std::initializer_list<Object::value_type> members) { return Object(members); }

    [[nodiscard]] bool isNull() const noexcept { return std::holds_alternative<std::nullptr_t>(value_); }
    /// The payload if the value is of that case, otherwise null.
    [[nodiscard]] const bool* boolean() const noexcept { return std::get_if<bool>(&value_); }
    [[nodiscard]] const double* number() const noexcept { return std::get_if<double>(&value_); }
    [[nodiscard]] const std::string* string() const noexcept { return std::get_if<std::string>(&value_); }
    [[nodiscard]] const Array* array() const noexcept { return std::get_if<Array>(&value_); }
    [[nodiscard]] const Object* object() const noexcept { return std::get_if<Object>(&value_); }
    [[nodiscard]] std::string* string() noexcept { return std::get_if<std::string>(&value_); }
    [[nodiscard]] Array* array() noexcept { return std::get_if<Array>(&value_); }
    [[nodiscard]] Object* object() noexcept { return std::get_if<Object>(&value_); }

    /// The number truncated toward zero; nothing for another case, and for what isn't finite or doesn't fit 64 bits.
    [[nodiscard]] std::optional<std::int64_t> integer() const noexcept;

    /// The member of an object, or null for a missing key and for any other case.
    [[nodiscard]] const JSONValue* find(std::string_view key) const;

    /// Strict JSON (RFC 8259) in UTF-8 of at most `maximumDepth` levels; of a repeated key the last one counts. Throws
    /// Failure with the parser's reason.
    [[nodiscard]] static JSONValue parse(std::string_view text);
    /// The same without a reason: nothing if the text isn't JSON.
    [[nodiscard]] static std::optional<JSONValue> parseIfValid(std::string_view text);

    enum class Slashes { plain, escaped };
    /// Compact JSON in valid UTF-8 with no line feed inside. Whole numbers below 2^53 are written without a fraction,
    /// all others in the shortest form that reads back equal. With Slashes::escaped "/" in strings is written as "\/".
    /// Throws Failure for a number that isn't finite.
    [[nodiscard]] std::string text(Slashes slashes = Slashes::plain) const;
    /// The same over several lines, two blanks a level, for a person to read.
    [[nodiscard]] std::string prettyText() const;

    /// Case by case; numbers as doubles, so that a NaN equals nothing; objects as maps.
    friend bool operator==(const JSONValue&, const JSONValue&) = default;

    /// Deeper documents are refused when read: destroying, comparing and writing one takes a stack frame a level.
    static constexpr std::size_t maximumDepth = 512;

private:
    std::variant<std::nullptr_t, bool, double, std::string, Array, Object> value_;
};

} // namespace veltry
