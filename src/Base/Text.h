#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Operations on UTF-8 text. None of them fails; malformed bytes count as U+FFFD wherever characters matter.
namespace veltry::text {

/// The bytes as valid UTF-8, each maximal malformed sequence replaced by U+FFFD.
[[nodiscard]] std::string repaired(std::string_view bytes);
[[nodiscard]] bool isValidUTF8(std::string_view bytes);

/// Unicode scalars of the text, malformed sequences as U+FFFD; and back.
[[nodiscard]] std::u32string scalars(std::string_view text);
[[nodiscard]] std::string fromScalars(std::u32string_view scalars);

/// White space is Unicode's categories Z* and U+0009 to U+000D and U+0085.
[[nodiscard]] bool isWhiteSpace(char32_t scalar);
/// Categories L* and N*.
[[nodiscard]] bool isLetterOrNumber(char32_t scalar);
/// Categories L*, M* and N*.
[[nodiscard]] bool isAlphanumeric(char32_t scalar);

/// Without white space and line feeds at both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);
/// Without white space at both ends, line ends (below) not counted as such.
[[nodiscard]] std::string_view trimmedBlanks(std::string_view text);
/// Without line ends (U+000A to U+000D, U+0085, U+2028, U+2029) at both ends.
[[nodiscard]] std::string_view trimmedNewlines(std::string_view text);
/// True if nothing but white space and line feeds stands in it.
[[nodiscard]] bool isBlank(std::string_view text);

/// In lower case by the simple mapping, U+0130 as "i" and U+0307.
[[nodiscard]] std::string lowercased(std::string_view text);

/// The first `count` characters as a reader counts them (extended grapheme clusters); the whole text if it has fewer.
[[nodiscard]] std::string_view firstCharacters(std::string_view text, std::size_t count);

/// How many columns of a terminal the text takes: two for a wide character, none for a combining mark.
[[nodiscard]] std::size_t columns(std::string_view text);
/// The longest start that takes at most `count` columns and ends between characters.
[[nodiscard]] std::string_view firstColumns(std::string_view text, std::size_t count);
/// On one line and harmless on a terminal: white space of any kind as a blank, other control characters as U+FFFD.
[[nodiscard]] std::string oneLine(std::string_view text);

/// Pieces between separators, empty ones kept: a text without a separator is one piece.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text, char separator);
[[nodiscard]] std::string joined(std::span<const std::string> pieces, std::string_view separator);
/// Each `what` replaced, from the left; the same text where `what` is empty.
[[nodiscard]] std::string replacingAll(std::string_view text, std::string_view what, std::string_view with);

/// In double quotes on one line, as the text forms of records show it: a quote, a backslash and control characters are
/// escaped (\", \\, \n, \r, \t, others like \u{1B}).
[[nodiscard]] std::string quoted(std::string_view text);

/// A decimal integer with an optional sign that fits 64 bits, the whole text and no blanks; otherwise nothing.
[[nodiscard]] std::optional<std::int64_t> integer(std::string_view text);

} // namespace veltry::text
