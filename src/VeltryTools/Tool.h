#pragma once

#include "Base/JSONValue.h"

#include <asio/awaitable.hpp>

#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace veltry {

/// Tells a client that a call still waits, in a sentence of plain words. Empty where the client asked for no such
/// notices.
using Progress = std::function<void(const std::string& message)>;

/// One tool: what `tools/list` shows of it, and what answers its calls.
struct Tool {
    /// Answers before it returns. Most tools do: the store and git block the executor anyway.
    using AtOnce = std::function<std::string(const JSONValue& arguments)>;
    /// Answers in a task that gives the executor up while it waits.
    using Waiting = std::function<asio::awaitable<std::string>(JSONValue arguments, Progress progress)>;

    std::string name;
    std::string description;
    JSONValue schema; ///< the JSON Schema of its arguments
    /// Gives the text that the agent reads, or throws what went wrong. It keeps alive what it works with.
    std::variant<AtOnce, Waiting> handler;
};

/// What a call is answered with: the tool's text, or the text form of what it threw.
struct ToolOutcome {
    std::string text;
    bool isError = false;
};

/// Calls the tool of this name, or tells that there is none. What a tool throws is an outcome as well.
[[nodiscard]] std::variant<ToolOutcome, asio::awaitable<ToolOutcome>> callTool(
    std::span<const Tool> tools, std::string_view name, const JSONValue& arguments, Progress progress);

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
