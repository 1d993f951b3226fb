#include "VeltryTools/ToolArguments.h"

#include "Base/Text.h"
#include "Experiments/LabError.h"

#include <fmt/format.h>

namespace veltry::ToolArguments {

std::string requiredString(std::string_view key, const JSONValue& arguments)
{
    if (std::optional<std::string> text = optionalString(key, arguments))
        return std::move(*text);
    throw LabError(LabError::Code::missingArgument, fmt::format("Pass {}.", key), {.name = std::string(key)});
}

std::optional<std::string> optionalString(std::string_view key, const JSONValue& arguments)
{
    const JSONValue* value = arguments.find(key);
    const std::string* string = value ? value->string() : nullptr;
    // Agents pass an empty text for what they mean to leave out.
    if (!string || text::isBlank(*string))
        return std::nullopt;
    return *string;
}

std::optional<std::int64_t> optionalInt(std::string_view key, const JSONValue& arguments)
{
    const JSONValue* value = arguments.find(key);
    if (!value)
        return std::nullopt;
    // Agents write numbers as texts now and then.
    if (const std::string* string = value->string())
        return text::integer(*string);
    return value->integer();
}

bool isExactly(bool flag, std::string_view key, const JSONValue& arguments)
{
    const JSONValue* value = arguments.find(key);
    return value && value->boolean() && *value->boolean() == flag;
}

NodeName node(const JSONValue& arguments)
{
    return NodeName::parse(requiredString("experiment_id", arguments));
}

RunName run(const JSONValue& arguments)
{
    if (const auto number = optionalInt("run", arguments))
        return *number;
    return RunName::parse(requiredString("run", arguments));
}

} // namespace veltry::ToolArguments
