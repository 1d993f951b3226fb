#include "VeltryTools/ToolTable.h"

#include "Base/Error.h"

namespace veltry {

asio::awaitable<ToolOutcome> outcomeOf(asio::awaitable<std::string> work)
{
    ToolOutcome outcome;
    try {
        outcome.text = co_await std::move(work);
    } catch (const std::exception& error) {
        outcome.text = describe(error);
        outcome.isError = true;
    }
    co_return outcome;
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
