#include "Host/Registration/ClientConfiguration.h"

#include "Base/JSONValue.h"
#include "Experiments/Lab.h"
#include "Host/Context.h"
#include "Literature/OpenAlex.h"
#include "Projects/ProjectStore.h"

#include <fmt/format.h>

#include <array>

namespace veltry {

namespace {

/// What `veltry-tools` reads and clients don't pass on: most give it little more than HOME and PATH.
constexpr std::array passedOn = {
    OpenAlex::keyVariable, OpenAlex::baseVariable, "https_proxy", "HTTPS_PROXY", "no_proxy", "NO_PROXY",
};

JSONValue list(const std::vector<std::string>& texts)
{
    return JSONValue::Array(texts.begin(), texts.end());
}

JSONValue members(const ChildProcess::Environment& environment)
{
    return JSONValue::Object(environment.begin(), environment.end());
}

std::string common(const ClientConfiguration& server)
{
    JSONValue::Object entry{
        {"command", server.command.string()},
        {"args", list(server.arguments)},
        {"timeout", ClientConfiguration::patience * 1000}};
    if (!server.environment.empty())
        entry.emplace("env", members(server.environment));
    return JSONValue::object({{"mcpServers", JSONValue::object({{"veltry", std::move(entry)}})}}).prettyText() + "\n";
}

std::string openCode(const ClientConfiguration& server)
{
    std::vector<std::string> command = {server.command.string()};
    command.insert(command.end(), server.arguments.begin(), server.arguments.end());
    JSONValue::Object entry{
        {"type", "local"},
        {"command", list(command)},
        {"enabled", true},
        {"timeout", ClientConfiguration::patience * 1000}};
    if (!server.environment.empty())
        entry.emplace("environment", members(server.environment));
    return JSONValue::object({{"mcp", JSONValue::object({{"veltry", std::move(entry)}})}}).prettyText() + "\n";
}

/// TOML, whose strings are written as JSON's are.
std::string codex(const ClientConfiguration& server)
{
    std::string text = fmt::format(
        "[mcp_servers.veltry]\ncommand = {}\nargs = {}\ntool_timeout_sec = {}\n",
        JSONValue(server.command.string()).text(), list(server.arguments).text(), ClientConfiguration::patience);
    if (!server.environment.empty())
        text += "\n[mcp_servers.veltry.env]\n";
    for (const auto& [name, value] : server.environment)
        text += fmt::format("{} = {}\n", name, JSONValue(value).text());
    return text;
}

} // namespace

ClientConfiguration ClientConfiguration::of(
    const ProjectStore& store, const Project& project, const Conversation& conversation,
    const ChildProcess::Environment& environment)
{
    ClientConfiguration server{
        .command = Context::tools(),
        .arguments =
            {"mcp", "--db", store.path().string(), "--project", project.id.text(), "--runs",
             Lab::defaultRuns().string(), "--settings", Context::settingsPath().string(), "--conversation",
             conversation.id.text()},
        .environment = {}};
    for (const char* name : passedOn)
        if (const auto found = environment.find(name); found != environment.end() && !found->second.empty())
            server.environment.insert(*found);
    return server;
}

std::string ClientConfiguration::text(std::string_view form) const
{
    return form == "codex" ? codex(*this) : form == "opencode" ? openCode(*this) : common(*this);
}

std::vector<std::string> ClientConfiguration::notes(std::string_view form) const
{
    std::vector<std::string> lines;
    if (environment.contains(OpenAlex::keyVariable))
        lines.push_back(fmt::format("The block holds your {}: keep it out of a repository.", OpenAlex::keyVariable));
    else
        lines.push_back(fmt::format(
            "{} isn't set here, so searches for papers share a daily budget. To use a key of your own, add it to the "
            "block's {}: a client passes only a handful of variables on.",
            OpenAlex::keyVariable,
            form == "opencode" ? "\"environment\""
            : form == "codex"  ? "env table"
                               : "\"env\""));
    if (form == "common")
        lines.push_back(fmt::format(
            "A wait for runs may take half an hour. \"timeout\" says so in milliseconds; write {} there for a client "
            "that "
            "reads seconds, and set the limit of one that keeps it elsewhere.",
            patience));
    return lines;
}

} // namespace veltry
