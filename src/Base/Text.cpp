#include "Base/Text.h"

#include <fmt/format.h>

#include <utf8proc.h>

#include <algorithm>
#include <charconv>

namespace veltry::text {

namespace {

constexpr char32_t replacement = 0xFFFD;
constexpr char32_t zeroWidthJoiner = 0x200D; // binds what is shown as one sign
constexpr std::string_view replacementBytes = "\xEF\xBF\xBD";

/// Printable ASCII alone: one column a byte, and nothing to look up.
bool isPlain(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

struct Decoded {
    char32_t scalar;    ///< U+FFFD for a malformed sequence
    std::size_t length; ///< bytes taken, at least 1
    bool valid;
};

/// Which second bytes may follow a lead byte (Unicode's table of well-formed sequences): overlong forms and
/// surrogates show there.
bool isSecondByte(unsigned char lead, unsigned char second)
{
    switch (lead) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return second >= 0x80 && second <= 0xBF;
    }
}

/// The scalar at the start of `bytes`, which isn't empty. A malformed sequence is taken as far as it could have been
/// the start of a good one, so that a cut character counts once.
Decoded decode(std::string_view bytes)
{
    const auto lead = static_cast<unsigned char>(bytes[0]);
    if (lead < 0x80)
        return {lead, 1, true};
    // 0xC0 and 0xC1 could only begin overlong forms, and above 0xF4 lies nothing of Unicode.
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0)
        return {replacement, 1, false};
    auto scalar = static_cast<char32_t>(lead & (0x7F >> length));
    for (std::size_t index = 1; index < length; ++index) {
        if (index >= bytes.size())
            return {replacement, index, false};
        const auto next = static_cast<unsigned char>(bytes[index]);
        if (index == 1 ? !isSecondByte(lead, next) : (next & 0xC0) != 0x80)
            return {replacement, index, false};
        scalar = (scalar << 6) | (next & 0x3F);
    }
    return {scalar, length, true};
}

void append(std::string& text, char32_t scalar)
{
    utf8proc_uint8_t bytes[4];
    const auto count = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), bytes);
    text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
}

utf8proc_category_t category(char32_t scalar)
{
    return utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
}

/// Also marks of writing direction, which can turn a line around.
bool isControl(char32_t scalar)
{
    const utf8proc_category_t kind = category(scalar);
    return kind == UTF8PROC_CATEGORY_CC || kind == UTF8PROC_CATEGORY_CF;
}

/// Walks the characters of a text as a reader counts them: extended grapheme clusters.
class Characters {
public:
    explicit Characters(std::string_view text) : text_(text) {}

    /// On to the next one; false if there is none.
    bool next()
    {
        if (end_ == text_.size())
            return false;
        Decoded scalar = decode(text_.substr(end_));
        end_ += scalar.length;
        width_ = widthOf(scalar.scalar);
        // The width of a cluster is that of its widest scalar: marks and joiners take no column of their own.
        while (end_ < text_.size()) {
            const Decoded following = decode(text_.substr(end_));
            if (utf8proc_grapheme_break_stateful(
                    static_cast<utf8proc_int32_t>(scalar.scalar), static_cast<utf8proc_int32_t>(following.scalar),
                    &state_))
                break;
            scalar = following;
            end_ += scalar.length;
            width_ = std::max(width_, widthOf(scalar.scalar));
        }
        return true;
    }

    [[nodiscard]] std::size_t end() const { return end_; }     ///< in bytes, of the character that next() went to
    [[nodiscard]] std::size_t width() const { return width_; } ///< in columns of a terminal

private:
    static std::size_t widthOf(char32_t scalar)
    {
        return static_cast<std::size_t>(std::max(0, utf8proc_charwidth(static_cast<utf8proc_int32_t>(scalar))));
    }

    std::string_view text_;
    std::size_t end_ = 0;
    std::size_t width_ = 0;
    utf8proc_int32_t state_ = 0;
};

bool isNewline(char32_t scalar)
{
    return (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

template <typename Predicate>
std::string_view trimmedWhere(std::string_view text, Predicate drop)
{
    std::size_t start = 0;
    while (start < text.size()) {
        const Decoded next = decode(text.substr(start));
        if (!drop(next.scalar))
            break;
        start += next.length;
    }
    // After the last character that stays.
    std::size_t end = start;
    for (std::size_t index = text.size(); index > start;) {
        // Step back to the start of a character: at most three continuation bytes.
        std::size_t first = index - 1;
        while (first > start && index - first < 4 && (static_cast<unsigned char>(text[first]) & 0xC0) == 0x80)
            --first;
        const Decoded last = decode(text.substr(first, index - first));
        if (!last.valid || last.length != index - first || !drop(last.scalar)) {
            end = index;
            break;
        }
        index = first;
    }
    return text.substr(start, end - start);
}

} // namespace

std::string repaired(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    std::size_t kept = 0; // everything before it is in `text`
    for (std::size_t index = 0; index < bytes.size();) {
        // Most bytes of most texts are ASCII.
        if (static_cast<unsigned char>(bytes[index]) < 0x80) {
            ++index;
            continue;
        }
        const Decoded next = decode(bytes.substr(index));
        if (!next.valid) {
            text.append(bytes.substr(kept, index - kept));
            text.append(replacementBytes);
            kept = index + next.length;
        }
        index += next.length;
    }
    text.append(bytes.substr(kept));
    return text;
}

bool isValidUTF8(std::string_view bytes)
{
    for (std::size_t index = 0; index < bytes.size();) {
        const Decoded next = decode(bytes.substr(index));
        if (!next.valid)
            return false;
        index += next.length;
    }
    return true;
}

std::u32string scalars(std::string_view text)
{
    std::u32string result;
    result.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        const Decoded next = decode(text.substr(index));
        result += next.scalar;
        index += next.length;
    }
    return result;
}

std::string fromScalars(std::u32string_view scalars)
{
    std::string text;
    text.reserve(scalars.size());
    for (char32_t scalar : scalars)
        append(text, scalar);
    return text;
}

bool isWhiteSpace(char32_t scalar)
{
    if (scalar < 0x80)
        return scalar == ' ' || (scalar >= 0x09 && scalar <= 0x0D);
    const utf8proc_category_t kind = category(scalar);
    return scalar == 0x85 || kind == UTF8PROC_CATEGORY_ZS || kind == UTF8PROC_CATEGORY_ZL ||
           kind == UTF8PROC_CATEGORY_ZP;
}

bool isLetterOrNumber(char32_t scalar)
{
    const utf8proc_category_t kind = category(scalar);
    return (kind >= UTF8PROC_CATEGORY_LU && kind <= UTF8PROC_CATEGORY_LO) ||
           (kind >= UTF8PROC_CATEGORY_ND && kind <= UTF8PROC_CATEGORY_NO);
}

bool isAlphanumeric(char32_t scalar)
{
    const utf8proc_category_t kind = category(scalar);
    return isLetterOrNumber(scalar) || (kind >= UTF8PROC_CATEGORY_MN && kind <= UTF8PROC_CATEGORY_ME);
}

std::string_view trimmed(std::string_view text)
{
    return trimmedWhere(text, isWhiteSpace);
}

std::string_view trimmedBlanks(std::string_view text)
{
    return trimmedWhere(text, [](char32_t scalar) { return isWhiteSpace(scalar) && !isNewline(scalar); });
}

std::string_view trimmedNewlines(std::string_view text)
{
    return trimmedWhere(text, isNewline);
}

bool isBlank(std::string_view text)
{
    return trimmed(text).empty();
}

std::string lowercased(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (char32_t scalar : scalars(text)) {
        if (scalar == 0x130) // the one letter whose lower case has two scalars
            result += "i\u0307";
        else
            append(result, static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar))));
    }
    return result;
}

std::string_view firstCharacters(std::string_view text, std::size_t count)
{
    // A character has a byte at least.
    if (text.size() <= count)
        return text;
    Characters characters(text);
    while (count > 0 && characters.next())
        --count;
    return text.substr(0, characters.end());
}

std::size_t columns(std::string_view text)
{
    if (isPlain(text))
        return text.size();
    std::size_t columns = 0;
    for (Characters characters(text); characters.next();)
        columns += characters.width();
    return columns;
}

std::string_view firstColumns(std::string_view text, std::size_t count)
{
    std::size_t end = 0;
    for (Characters characters(text); characters.next() && characters.width() <= count; end = characters.end())
        count -= characters.width();
    return text.substr(0, end);
}

std::string oneLine(std::string_view text)
{
    if (isPlain(text))
        return std::string(text);
    std::u32string line = scalars(text);
    for (char32_t& scalar : line) {
        if (isWhiteSpace(scalar))
            scalar = ' ';
        // A control character may move the cursor or turn the writing direction of what follows.
        else if (isControl(scalar) && scalar != zeroWidthJoiner)
            scalar = replacement;
    }
    return fromScalars(line);
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (std::size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator, start)) {
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string joined(std::span<const std::string> pieces, std::string_view separator)
{
    std::string text;
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        if (index > 0)
            text += separator;
        text += pieces[index];
    }
    return text;
}

std::string replacingAll(std::string_view text, std::string_view what, std::string_view with)
{
    std::string result;
    // Nothing would be found everywhere, for ever.
    if (what.empty())
        return result.append(text);
    std::size_t start = 0;
    for (std::size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, start)) {
        result.append(text.substr(start, at - start)).append(with);
        start = at + what.size();
    }
    return result.append(text.substr(start));
}

std::string quoted(std::string_view text)
{
    std::string result = "\"";
    for (const char character : repaired(text)) {
        switch (character) {
        case '"':
        case '\\':
            result += {'\\', character};
            break;
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        default:
            if (const auto code = static_cast<unsigned char>(character); code < 0x20 || code == 0x7F)
                result += fmt::format("\\u{{{:X}}}", code);
            else
                result += character;
        }
    }
    return result + '"';
}

std::optional<std::int64_t> integer(std::string_view text)
{
    // from_chars takes no plus; after one, it would take a minus.
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

} // namespace veltry::text
