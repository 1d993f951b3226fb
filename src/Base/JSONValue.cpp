#include "Base/JSONValue.h"

#include "Base/JSONEvents.h"
#include "Base/Text.h"

#include <fmt/format.h>

#include <cmath>

namespace veltry {

namespace {

constexpr double exactIntegers = 9007199254740992.0; // 2^53

class Writer {
public:
    Writer(JSONValue::Slashes slashes, bool pretty) : slashes_(slashes), pretty_(pretty) {}

    std::string take() { return std::move(text_); }

    void write(const JSONValue& value)
    {
        if (value.isNull())
            text_ += "null";
        else if (const bool* flag = value.boolean())
            text_ += *flag ? "true" : "false";
        else if (const double* number = value.number())
            writeNumber(*number);
        else if (const std::string* string = value.string())
            writeString(*string);
        else if (const JSONValue::Array* array = value.array())
            writeItems('[', *array, ']', [&](const JSONValue& element) { write(element); });
        else
            writeItems('{', *value.object(), '}', [&](const auto& member) {
                writeString(member.first);
                text_ += pretty_ ? ": " : ":";
                write(member.second);
            });
    }

private:
    void writeNumber(double number)
    {
        if (!std::isfinite(number))
            throw JSONValue::Failure("JSON has no form for a number that isn't finite");
        // Beyond 2^53 the digits of an integer would promise more than the double knows.
        if (number == std::round(number) && std::abs(number) < exactIntegers)
            fmt::format_to(std::back_inserter(text_), "{}", static_cast<std::int64_t>(number));
        else
            fmt::format_to(std::back_inserter(text_), "{}", number);
    }

    void writeString(std::string_view string)
    {
        text_ += '"';
        std::size_t kept = 0; // everything before it is written
        bool ascii = true;
        for (std::size_t index = 0; index < string.size(); ++index) {
            const auto byte = static_cast<unsigned char>(string[index]);
            // Noted on the way: most strings are ASCII and need no second look at whether they are UTF-8.
            ascii = ascii && byte < 0x80;
            if (byte >= 0x20 && byte != '"' && byte != '\\' && (byte != '/' || slashes_ == JSONValue::Slashes::plain))
                continue;
            writePlain(string.substr(kept, index - kept), ascii);
            writeEscape(byte);
            kept = index + 1;
            ascii = true;
        }
        writePlain(string.substr(kept), ascii);
        text_ += '"';
    }

    /// Text that came from a file name or a process may hold anything; what leaves here is UTF-8.
    void writePlain(std::string_view string, bool ascii)
    {
        if (ascii || text::isValidUTF8(string))
            text_ += string;
        else
            text_ += text::repaired(string);
    }

    void writeEscape(unsigned char byte)
    {
        switch (byte) {
        case '\n':
            text_ += "\\n";
            break;
        case '\r':
            text_ += "\\r";
            break;
        case '\t':
            text_ += "\\t";
            break;
        case '"':
        case '\\':
        case '/':
            text_ += '\\';
            text_ += static_cast<char>(byte);
            break;
        default:
            fmt::format_to(std::back_inserter(text_), "\\u{:04x}", byte);
        }
    }

    template <typename Items, typename WriteItem>
    void writeItems(char opening, const Items& items, char closing, WriteItem writeItem)
    {
        text_ += opening;
        ++level_;
        bool first = true;
        for (const auto& item : items) {
            if (!first)
                text_ += ',';
            first = false;
            newLine();
            writeItem(item);
        }
        --level_;
        if (!items.empty())
            newLine();
        text_ += closing;
    }

    void newLine()
    {
        if (pretty_)
            text_.append("\n").append(2 * level_, ' ');
    }

    JSONValue::Slashes slashes_;
    bool pretty_;
    std::size_t level_ = 0;
    std::string text_;
};

std::string written(const JSONValue& value, JSONValue::Slashes slashes, bool pretty)
{
    Writer writer(slashes, pretty);
    writer.write(value);
    return writer.take();
}

} // namespace

std::optional<std::int64_t> JSONValue::integer() const noexcept
{
    constexpr double limit = 9223372036854775808.0; // 2^63
    const double* value = number();
    // Half open, as the type is: converting a double outside of it is undefined.
    if (!value || !std::isfinite(*value) || *value >= limit || *value < -limit)
        return std::nullopt;
    return static_cast<std::int64_t>(*value);
}

const JSONValue* JSONValue::find(std::string_view key) const
{
    const Object* members = object();
    if (!members)
        return nullptr;
    const auto found = members->find(key);
    return found == members->end() ? nullptr : &found->second;
}

JSONValue JSONValue::parse(std::string_view text)
{
    JSONBuilder builder;
    readJSON(text, builder);
    return builder.take();
}

std::optional<JSONValue> JSONValue::parseIfValid(std::string_view text)
{
    try {
        return parse(text);
    } catch (const Failure&) {
        // Who wants the reason calls parse().
        return std::nullopt;
    }
}

std::string JSONValue::text(Slashes slashes) const
{
    return written(*this, slashes, false);
}

std::string JSONValue::prettyText() const
{
    return written(*this, Slashes::plain, true);
}

} // namespace veltry
