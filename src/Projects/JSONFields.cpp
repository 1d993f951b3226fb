#include "Projects/JSONFields.h"

#include <cmath>

namespace veltry {

JSONFields::JSONFields(const JSONValue& value)
{
    if (const JSONValue::Object* members = value.object())
        members_ = *members;
}

const JSONValue& JSONFields::member(std::string_view key) const
{
    static const JSONValue null;
    const auto found = members_.find(key);
    return found == members_.end() ? null : found->second;
}

std::string JSONFields::string(std::string_view key)
{
    if (const std::string* text = member(key).string())
        return *text;
    refuse();
    return {};
}

std::string JSONFields::nonEmptyString(std::string_view key)
{
    std::string text = string(key);
    if (text.empty())
        refuse();
    return text;
}

std::vector<std::string> JSONFields::strings(std::string_view key)
{
    std::vector<std::string> texts;
    const JSONValue::Array* elements = member(key).array();
    if (!elements) {
        refuse();
        return texts;
    }
    for (const JSONValue& element : *elements) {
        if (const std::string* text = element.string())
            texts.push_back(*text);
        else
            refuse();
    }
    return texts;
}

std::int64_t JSONFields::integer(std::string_view key)
{
    const JSONValue& value = member(key);
    const std::optional<std::int64_t> whole = value.integer();
    if (whole && std::trunc(*value.number()) == *value.number())
        return *whole;
    refuse();
    return 0;
}

bool JSONFields::flag(std::string_view key)
{
    if (const bool* flag = member(key).boolean())
        return *flag;
    refuse();
    return false;
}

UUID JSONFields::id(std::string_view key)
{
    if (const std::string* text = member(key).string())
        if (const std::optional<UUID> id = UUID::parse(*text))
            return *id;
    refuse();
    return {};
}

Date JSONFields::date(std::string_view key)
{
    if (const double* seconds = member(key).number())
        return {*seconds};
    refuse();
    return {};
}

} // namespace veltry
