#include "Config/TOML.h"

#include "Base/Text.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <optional>

namespace veltry {

namespace {

constexpr char32_t largestScalar = 0x10FFFF;

bool isDigit(char32_t c)
{
    return c >= '0' && c <= '9';
}

bool isKeyCharacter(char32_t c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '-' || c == '_';
}

bool isNumberCharacter(char32_t c)
{
    return isDigit(c) || c == '+' || c == '-' || c == '.' || c == '_' || c == 'e' || c == 'E';
}

std::optional<char32_t> hexadecimalDigit(char32_t c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return std::nullopt;
}

/// The scalar of an escape's digits. A sign may stand in the place of the first digit, "-" before zero alone.
std::optional<char32_t> escapedScalar(std::u32string_view digits)
{
    const bool negative = digits.front() == '-';
    if (negative || digits.front() == '+')
        digits.remove_prefix(1);
    char32_t value = 0; // eight digits fit
    for (const char32_t c : digits) {
        const std::optional<char32_t> digit = hexadecimalDigit(c);
        if (!digit)
            return std::nullopt;
        value = value * 16 + *digit;
    }
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value > largestScalar || isSurrogate || (negative && value != 0))
        return std::nullopt;
    return value;
}

/// Text, place and line of a document that is being read, with a function for each rule of the grammar.
class Cursor {
public:
    explicit Cursor(std::u32string_view text) : text_(text) {}

    Cursor(const Cursor&) = delete; // section_ leads into root_
    Cursor& operator=(const Cursor&) = delete;

    TOML::Table document()
    {
        skipTrivia();
        while (!atEnd()) {
            if (accept('['))
                header();
            else
                statement();
            skipTrivia();
        }
        return std::move(root_);
    }

private:
    bool atEnd() const { return position_ == text_.size(); }

    bool at(char32_t wanted) const { return !atEnd() && text_[position_] == wanted; }

    bool atPair(char32_t wanted) const { return at(wanted) && text_.substr(position_ + 1).starts_with(wanted); }

    bool accept(char32_t wanted)
    {
        if (!at(wanted))
            return false;
        ++position_;
        return true;
    }

    bool accept(std::u32string_view word)
    {
        if (!text_.substr(position_).starts_with(word))
            return false;
        position_ += word.size();
        return true;
    }

    [[noreturn]] void fail(std::string_view sentence) const { fail(sentence, line_); }

    [[noreturn]] static void fail(std::string_view sentence, std::size_t line)
    {
        throw TOML::Failure(fmt::format("{} on line {}", sentence, line));
    }

    void skipTrivia()
    {
        while (true) {
            if (accept('\n'))
                ++line_;
            else if (at('#'))
                skipComment();
            else if (!accept(' ') && !accept('\t') && !accept('\r'))
                return;
        }
    }

    void skipBlanks()
    {
        while (accept(' ') || accept('\t')) {
        }
    }

    void skipComment()
    {
        while (!atEnd() && !at('\n'))
            ++position_;
    }

    void endOfLine()
    {
        skipBlanks();
        if (at('#'))
            skipComment();
        accept('\r');
        if (atEnd())
            return;
        if (!accept('\n'))
            fail("expected the end of the line");
        ++line_;
    }

    /// After the first bracket of `[name]` or `[[name]]`.
    void header()
    {
        const bool isList = accept('[');
        skipBlanks();
        const std::string name = key();
        skipBlanks();
        if (!accept(']') || (isList && !accept(']')))
            fail("expected ]");
        // endOfLine() goes on to the next line, and a failure after it means this one.
        const std::size_t line = line_;
        endOfLine();
        section_ = isList ? newRow(name, line) : newTable(name, line);
    }

    TOML::Table* newTable(const std::string& name, std::size_t line)
    {
        const auto [place, isNew] = root_.try_emplace(name, TOML::Table());
        if (!isNew)
            failTwice(name, line);
        return place->second.table();
    }

    TOML::Table* newRow(const std::string& name, std::size_t line)
    {
        TOML::Tables* rows = root_.try_emplace(name, TOML::Tables()).first->second.tables();
        if (!rows)
            failTwice(name, line);
        return &rows->emplace_back(); // stays put while it is the last
    }

    void statement()
    {
        const std::string name = key();
        skipBlanks();
        if (!accept('='))
            fail("expected = after " + name);
        skipBlanks();
        TOML read = value(0);
        // As in header(): the line is told that held the name.
        const std::size_t line = line_;
        endOfLine();
        if (!section_->try_emplace(name, std::move(read)).second)
            failTwice(name, line);
    }

    [[noreturn]] static void failTwice(const std::string& name, std::size_t line)
    {
        fail(name + " is defined twice", line);
    }

    std::string key()
    {
        if (atEnd())
            return "";
        if (at('"') || at('\''))
            return string();
        const std::size_t start = position_;
        while (!atEnd() && isKeyCharacter(text_[position_]))
            ++position_;
        if (at('.'))
            fail("dotted keys are not supported");
        if (position_ == start)
            fail("expected a key");
        return text::fromScalars(text_.substr(start, position_ - start));
    }

    /// `depth` is the number of arrays that are open around it.
    TOML value(std::size_t depth)
    {
        if (at('"') || at('\''))
            return string();
        if (accept('[')) {
            // Arrays are read by recursion, and a file mustn't exhaust the stack.
            if (depth == TOML::maximumDepth)
                fail("expected a value");
            return array(depth + 1);
        }
        if (accept(U"true"))
            return true;
        if (accept(U"false"))
            return false;
        if (at('{'))
            fail("inline tables are not supported");
        return number(); // also what is no value at all
    }

    std::string string()
    {
        const char32_t quote = text_[position_++];
        if (atPair(quote))
            fail("multi-line strings are not supported");
        std::u32string content;
        while (!accept(quote)) {
            if (quote == '"' && accept('\\'))
                content += escape();
            else
                content += stringCharacter();
        }
        return text::fromScalars(content);
    }

    char32_t stringCharacter()
    {
        if (atEnd() || at('\n'))
            fail("a string with no closing quote");
        return text_[position_++];
    }

    /// After the backslash.
    char32_t escape()
    {
        if (atEnd())
            fail("a string with no closing quote");
        const char32_t kind = text_[position_++];
        switch (kind) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '"':
        case '\\':
            return kind;
        case 'u':
            return numberedScalar(4);
        case 'U':
            return numberedScalar(8);
        default:
            fail("an unknown escape \\" + text::fromScalars({&kind, 1}));
        }
    }

    char32_t numberedScalar(std::size_t digits)
    {
        std::optional<char32_t> scalar;
        if (text_.size() - position_ >= digits)
            scalar = escapedScalar(text_.substr(position_, digits));
        if (!scalar)
            fail("a bad \\u escape");
        position_ += digits;
        return *scalar;
    }

    /// After the opening bracket.
    TOML array(std::size_t depth)
    {
        TOML::Array elements;
        while (true) {
            skipTrivia();
            if (accept(']')) // also after a comma
                return elements;
            elements.push_back(value(depth));
            skipTrivia();
            if (accept(']'))
                return elements;
            if (!accept(','))
                fail("expected , or ] in an array");
        }
    }

    double number()
    {
        std::string digits;
        for (; !atEnd() && isNumberCharacter(text_[position_]); ++position_)
            if (text_[position_] != '_')
                digits += static_cast<char>(text_[position_]);
        if (digits.starts_with('+'))
            digits.erase(0, 1);
        if (digits.empty() || digits.front() == '.' || digits.back() == '.')
            fail("expected a value");
        // The locale is "C", since nothing here sets another. Unlike from_chars it tells too small from too large.
        char* end = nullptr;
        const double value = std::strtod(digits.c_str(), &end);
        if (end != digits.c_str() + digits.size() || !std::isfinite(value))
            fail("expected a value");
        return value;
    }

    std::u32string_view text_;
    std::size_t position_ = 0;
    std::size_t line_ = 1;
    TOML::Table root_;
    TOML::Table* section_ = &root_;
};

} // namespace

TOML::Table TOML::parse(std::string_view text)
{
    const std::u32string scalars = text::scalars(text);
    return Cursor(scalars).document();
}

} // namespace veltry
