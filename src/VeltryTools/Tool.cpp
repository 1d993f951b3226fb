#include "VeltryTools/Tool.h"

#include "Experiments/LabError.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace veltry {

namespace {

ToolOutcome failed(const std::exception& error)
{
    return {.text = describe(error), .isError = true};
}

/// A failure of the work passes one frame alone. Each frame of a coroutine throws it again, at a microsecond each.
asio::awaitable<ToolOutcome> outcomeOf(asio::awaitable<std::string> work)
{
    try {
        std::string text = co_await std::move(work);
        co_return ToolOutcome{.text = std::move(text)};
    } catch (const std::exception& error) {
        co_return failed(error);
    }
}

} // namespace

std::variant<ToolOutcome, asio::awaitable<ToolOutcome>> callTool(
    std::span<const Tool> tools, std::string_view name, const JSONValue& arguments, Progress progress)
{
    const auto tool = std::ranges::find(tools, name, &Tool::name);
    if (tool == tools.end())
        return failed(LabError(
            LabError::Code::unknownTool, fmt::format("There is no tool {}.", name), {.name = std::string(name)}));
    if (const auto* waiting = std::get_if<Tool::Waiting>(&tool->handler))
        return outcomeOf((*waiting)(arguments, std::move(progress)));
    try {
        return ToolOutcome{.text = std::get<Tool::AtOnce>(tool->handler)(arguments)};
    } catch (const std::exception& error) {
        return failed(error);
    }
}

namespace schema {

namespace {

Property property(std::string_view name, bool required, std::string_view description, const char* type)
{
    return {name, required, JSONValue::object({{"type", type}, {"description", description}})};
}

} // namespace

Property string(std::string_view name, bool required, std::string_view description)
{
    return property(name, required, description, "string");
}

Property integer(std::string_view name, bool required, std::string_view description)
{
    return property(name, required, description, "integer");
}

Property boolean(std::string_view name, bool required, std::string_view description)
{
    return property(name, required, description, "boolean");
}

Property list(
    std::string_view name, bool required, std::string_view description, JSONValue items, int minimum, int maximum)
{
    Property made = property(name, required, description, "array");
    JSONValue::Object& members = *made.schema.object();
    members.emplace("items", std::move(items));
    if (minimum >= 0)
        members.emplace("minItems", minimum);
    if (maximum >= 0)
        members.emplace("maxItems", maximum);
    return made;
}

JSONValue object(std::initializer_list<Property> properties)
{
    JSONValue::Object members;
    JSONValue::Array required;
    for (const Property& property : properties) {
        members.emplace(property.name, property.schema);
        if (property.required)
            required.emplace_back(property.name);
    }
    return JSONValue::object(
        {{"type", "object"}, {"properties", std::move(members)}, {"required", std::move(required)}});
}

} // namespace schema

} // namespace veltry
