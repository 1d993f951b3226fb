// What records know beyond their fields.

#include "ACP/ACPClient/ConfigOptions.h"
#include "ACP/ACPClient/Handshake.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "ACP/ACPClient/Sessions.h"

#include <algorithm>
#include <initializer_list>

namespace veltry {

namespace {

/// The value at the end of a path of keys; null where it is missing.
const JSONValue* at(const std::optional<JSONValue>& value, std::initializer_list<std::string_view> keys)
{
    const JSONValue* found = value ? &*value : nullptr;
    for (const std::string_view key : keys)
        found = found ? found->find(key) : nullptr;
    return found;
}

bool isTrue(const JSONValue* value)
{
    return value && value->boolean() && *value->boolean();
}

} // namespace

InitializeParams InitializeParams::from(Implementation client)
{
    return {
        .protocolVersion = 1,
        .clientCapabilities = {.fs = {.readTextFile = true, .writeTextFile = true}, .terminal = false},
        .clientInfo = std::move(client),
    };
}

bool InitializeResult::loadsSessions() const
{
    return isTrue(at(agentCapabilities, {"loadSession"}));
}

bool InitializeResult::resumesSessions() const
{
    return at(agentCapabilities, {"sessionCapabilities", "resume"}) != nullptr;
}

bool InitializeResult::listsSessions() const
{
    return at(agentCapabilities, {"sessionCapabilities", "list"}) != nullptr;
}

bool InitializeResult::takesSystemPrompt() const
{
    return at(agentCapabilities, {"sessionCapabilities", "systemPrompt"}) != nullptr;
}

bool InitializeResult::steers() const
{
    return isTrue(at(meta, {"steering", "supported"}));
}

SystemPrompt SystemPrompt::appending(std::string text)
{
    return {.mode = "append", .content = {ContentBlock::text(std::move(text))}};
}

std::optional<Date> SessionInfo::updated() const
{
    return updatedAt ? Date::parseISO8601(*updatedAt) : std::nullopt;
}

SteerParams SteerParams::from(std::string sessionId, std::vector<ContentBlock> prompt)
{
    return {
        .sessionId = std::move(sessionId),
        .prompt = std::move(prompt),
        .meta = JSONValue::object({{"steering", JSONValue::object({{"idleBehavior", "promptRequired"}})}}),
    };
}

std::optional<ConfigChoice> ConfigOption::currentChoice() const
{
    const std::string* value = currentValue ? currentValue->string() : nullptr;
    if (!value)
        return std::nullopt;
    const auto found = std::ranges::find(choices, *value, &ConfigChoice::value);
    return found == choices.end() ? std::nullopt : std::optional(*found);
}

ConfigOption ConfigOption::choosing(std::string value) const
{
    ConfigOption option = *this;
    option.currentValue = std::move(value);
    return option;
}

} // namespace veltry
