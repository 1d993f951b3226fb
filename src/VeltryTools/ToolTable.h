#pragma once

#include "Base/JSONValue.h"
#include "Experiments/LabError.h"

#include <asio/awaitable.hpp>
#include <fmt/format.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltry {

/// One tool as `tools/list` shows it.
struct Tool {
    std::string name;
    std::string description;
    JSONValue schema; ///< the JSON Schema of its arguments
};

/// What a tool answers with. A tool never fails in any other way.
struct ToolOutcome {
    std::string text;
    bool isError = false;
};

/// Tells a client that a call still waits, in a sentence of plain words. Empty where the client asked for no such
/// notices.
using Progress = std::function<void(const std::string& message)>;

/// Runs a tool's work and makes text of whatever it throws: description() of our errors, the text form of others.
[[nodiscard]] asio::awaitable<ToolOutcome> outcomeOf(asio::awaitable<std::string> work);

/// The tools of a table whose rows hold one each, beside its handler.
template <typename Row>
[[nodiscard]] std::vector<Tool> shownTools(const std::vector<Row>& rows)
{
    std::vector<Tool> shown;
    for (const Row& row : rows)
        shown.push_back(row.tool);
    return shown;
}

/// Calls the handler that stands beside the tool of this name with `self` and the arguments that it takes. Throws
/// LabError "unknown_tool".
template <typename Row, typename Self, typename... Arguments>
[[nodiscard]] asio::awaitable<std::string> callTool(
    const std::vector<Row>& rows, const std::string& name, const Self& self, Arguments... arguments)
{
    for (const Row& row : rows)
        if (row.tool.name == name)
            return (self.*row.handler)(std::move(arguments)...);
    throw LabError(LabError::Code::unknownTool, fmt::format("There is no tool {}.", name), {.name = name});
}

/// Building blocks of the schemas. Defaults and limits stand in the descriptions alone.
namespace schema {

struct Property {
    std::string_view name;
    bool required;
    JSONValue schema;
};

[[nodiscard]] Property string(std::string_view name, bool required, std::string_view description);
[[nodiscard]] Property integer(std::string_view name, bool required, std::string_view description);
[[nodiscard]] Property boolean(std::string_view name, bool required, std::string_view description);
/// A list of objects; a limit below 0 is left out.
[[nodiscard]] Property list(
    std::string_view name, bool required, std::string_view description, JSONValue items, int minimum, int maximum);

/// The object of these properties: "type", "properties" and "required", the last in the order given, also when empty.
[[nodiscard]] JSONValue object(std::initializer_list<Property> properties);

} // namespace schema

} // namespace veltry
