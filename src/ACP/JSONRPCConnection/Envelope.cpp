#include "ACP/JSONRPCConnection/Envelope.h"

#include <charconv>

namespace veltry {

namespace {

constexpr std::size_t escapeLength = 6; // of \uD83D

/// The code unit of the \u escape at `place`; nothing where there is none.
std::optional<unsigned> unitAt(std::string_view text, std::size_t place)
{
    unsigned unit = 0;
    if (place + escapeLength > text.size() || text.substr(place, 2) != "\\u")
        return std::nullopt;
    const std::string_view digits = text.substr(place + 2, 4);
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
    return failure == std::errc() && end == digits.data() + digits.size() ? std::optional(unit) : std::nullopt;
}

bool isHigh(unsigned unit)
{
    return unit >= 0xD800 && unit < 0xDC00;
}

bool isLow(unsigned unit)
{
    return unit >= 0xDC00 && unit < 0xE000;
}

/// With U+FFFD for each half of a surrogate pair that stands alone. JavaScript writes such halves where a text was cut
/// in the middle of a pair, and JSON has no place for them.
std::string withWholePairs(std::string_view line)
{
    std::string text;
    for (std::size_t place = 0; place < line.size();) {
        std::size_t length = 1;
        if (line[place] == '\\') {
            const std::optional<unsigned> unit = unitAt(line, place);
            length = unit ? escapeLength : 2;
            if (unit && isHigh(*unit) && isLow(unitAt(line, place + escapeLength).value_or(0))) {
                length = 2 * escapeLength;
            } else if (unit && (isHigh(*unit) || isLow(*unit))) {
                text += "\\uFFFD";
                place += length;
                continue;
            }
        }
        text += line.substr(place, length);
        place += length;
    }
    return text;
}

} // namespace

// Member by member, since a result may be a text of megabytes. Keys are sorted, as everywhere.
std::string Envelope::line() const
{
    std::string line = "{";
    const auto add = [&line](std::string_view key, const JSONValue& value) {
        line.append(line.size() > 1 ? ",\"" : "\"").append(key).append("\":").append(value.text());
    };
    if (error)
        add("error", error->toJSON());
    if (id)
        add("id", *id);
    add("jsonrpc", "2.0");
    if (method)
        add("method", *method);
    if (params)
        add("params", *params);
    if (result)
        add("result", *result);
    return line += '}';
}

std::optional<Envelope> Envelope::parse(std::string_view line)
{
    std::optional<JSONValue> value = JSONValue::parseIfValid(line);
    // Only for a line that failed and holds such an escape, since others needn't pay for a copy.
    if (!value && (line.contains("\\ud") || line.contains("\\uD")))
        value = JSONValue::parseIfValid(withWholePairs(line));
    JSONValue::Object* message = value ? value->object() : nullptr;
    if (!message)
        return std::nullopt;
    Envelope envelope;
    bool isVersioned = false;
    for (auto& [key, member] : *message) {
        if (member.isNull())
            continue; // counts as absent
        if (key == "id") {
            envelope.id = std::move(member);
        } else if (key == "params") {
            envelope.params = std::move(member);
        } else if (key == "result") {
            envelope.result = std::move(member);
        } else if (key == "error") {
            envelope.error = JSONRPCError::fromJSON(member);
            if (!envelope.error)
                return std::nullopt;
        } else if (key == "method") {
            if (!member.string())
                return std::nullopt;
            envelope.method = std::move(*member.string());
        } else if (key == "jsonrpc") {
            isVersioned = member.string() != nullptr;
        }
    }
    return isVersioned ? std::optional(std::move(envelope)) : std::nullopt;
}

} // namespace veltry
