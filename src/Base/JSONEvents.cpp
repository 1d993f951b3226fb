#include "Base/JSONEvents.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace veltry {

namespace {

constexpr std::size_t usualLength = 4;     // of an array; growing one from nothing costs more than the room
constexpr std::size_t longestReason = 200; // bytes; the parser's own holds all of a string that it was reading

using Parser = nlohmann::json;

/// Hands the parser's events on, and refuses what lies too deep.
class Reader {
public:
    explicit Reader(JSONEvents& events) : events_(events) {}

    bool null() { return told(nullptr); }

    bool boolean(bool value) { return told(value); }

    bool number_integer(Parser::number_integer_t value) { return told(value); }

    bool number_unsigned(Parser::number_unsigned_t value) { return told(value); }

    bool number_float(Parser::number_float_t value, const std::string& /*text*/) { return told(value); }

    bool string(std::string& value) { return told(std::move(value)); }

    bool binary(Parser::binary_t& /*value*/) { return false; } // no such thing in text

    bool key(std::string& name)
    {
        events_.key(std::move(name));
        return true;
    }

    bool start_object(std::size_t /*count*/)
    {
        deepen();
        events_.beginObject();
        return true;
    }

    bool end_object()
    {
        --depth_;
        events_.endObject();
        return true;
    }

    bool start_array(std::size_t /*count*/)
    {
        deepen();
        events_.beginArray();
        return true;
    }

    bool end_array()
    {
        --depth_;
        events_.endArray();
        return true;
    }

    bool parse_error(std::size_t position, const std::string& /*token*/, const Parser::exception& error)
    {
        const std::string_view reason = error.what();
        throw JSONValue::Failure(fmt::format("not JSON at byte {}: {}", position, reason.substr(0, longestReason)));
    }

private:
    bool told(JSONValue value)
    {
        events_.value(std::move(value));
        return true;
    }

    void deepen()
    {
        // The parser has no limit of its own, and values are written and freed by recursion.
        if (depth_++ == JSONValue::maximumDepth)
            throw JSONValue::Failure(fmt::format("more than {} levels of arrays and objects", JSONValue::maximumDepth));
    }

    JSONEvents& events_;
    std::size_t depth_ = 0;
};

} // namespace

void readJSON(std::string_view text, JSONEvents& events)
{
    // The parser takes a NUL byte for the end of the text, whatever follows.
    if (const std::size_t place = text.find('\0'); place != std::string_view::npos)
        throw JSONValue::Failure(fmt::format("not JSON at byte {}: a NUL byte", place + 1));
    Reader reader(events);
    Parser::sax_parse(text.begin(), text.end(), &reader);
}

JSONValue& JSONBuilder::place(JSONValue value)
{
    if (open_.empty())
        return root_ = std::move(value);
    if (JSONValue::Object* object = open_.back()->object()) // whose keys often come sorted
        return object->insert_or_assign(object->end(), std::move(key_), std::move(value))->second;
    JSONValue::Array& array = *open_.back()->array();
    if (array.empty())
        array.reserve(usualLength);
    return array.emplace_back(std::move(value));
}

} // namespace veltry
