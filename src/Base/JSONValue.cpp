#include "Base/JSONValue.h"

#include "Base/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace veltry {

namespace {

constexpr double exactIntegers = 9007199254740992.0; // 2^53
constexpr std::size_t longestReason = 200; // bytes; the parser's own holds all of a string that it was reading

/// Builds a JSONValue from the parser's events. The containers that are still open stand in `open_`, innermost last.
class Builder : public nlohmann::json_sax<nlohmann::json> {
public:
    JSONValue take() { return std::move(root_); }

    const std::string& problem() const { return problem_; }

    void refuse(std::string problem) { problem_ = std::move(problem); }

    bool null() override { return add(nullptr); }

    bool boolean(bool value) override { return add(value); }

    bool number_integer(number_integer_t value) override { return add(value); }

    bool number_unsigned(number_unsigned_t value) override { return add(value); }

    bool number_float(number_float_t value, const string_t& /*text*/) override { return add(value); }

    bool string(string_t& value) override { return add(std::move(value)); }

    bool binary(binary_t& /*value*/) override { return false; } // no such thing in text

    bool start_object(std::size_t /*count*/) override { return push(JSONValue::Object()); }

    bool start_array(std::size_t /*count*/) override { return push(JSONValue::Array()); }

    bool end_object() override { return pop(); }

    bool end_array() override { return pop(); }

    bool key(string_t& value) override
    {
        key_ = std::move(value);
        return true;
    }

    bool parse_error(
        std::size_t position, const std::string& /*token*/, const nlohmann::detail::exception& error) override
    {
        const std::string_view reason = error.what();
        refuse(fmt::format("not JSON at byte {}: {}", position, reason.substr(0, longestReason)));
        return false;
    }

private:
    JSONValue& place()
    {
        if (open_.empty())
            return root_;
        if (JSONValue::Object* object = open_.back()->object())
            return (*object)[std::move(key_)];
        return open_.back()->array()->emplace_back();
    }

    bool add(JSONValue value)
    {
        place() = std::move(value);
        return true;
    }

    bool push(JSONValue container)
    {
        if (open_.size() == JSONValue::maximumDepth) {
            refuse(fmt::format("more than {} levels of arrays and objects", JSONValue::maximumDepth));
            return false;
        }
        JSONValue& there = place();
        there = std::move(container);
        open_.push_back(&there); // stays put: its parent isn't touched while it is open
        return true;
    }

    bool pop()
    {
        open_.pop_back();
        return true;
    }

    JSONValue root_;
    std::vector<JSONValue*> open_;
    std::string key_;
    std::string problem_;
};

/// False if the text isn't JSON; the builder then knows why.
bool build(std::string_view text, Builder& builder)
{
    // The parser takes a NUL byte for the end of the text, whatever follows.
    if (const std::size_t place = text.find('\0'); place != std::string_view::npos) {
        builder.refuse(fmt::format("not JSON at byte {}: a NUL byte", place + 1));
        return false;
    }
    return nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
}

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
    Builder builder;
    if (!build(text, builder))
        throw Failure(builder.problem());
    return builder.take();
}

std::optional<JSONValue> JSONValue::parseIfValid(std::string_view text)
{
    Builder builder;
    if (!build(text, builder))
        return std::nullopt; // the reason is for parse()
    return builder.take();
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
