#include "Host/Registration/ClientConfiguration.h"

#include "Base/JSONValue.h"
#include "Experiments/Computer.h"
#include "Experiments/Lab.h"
#include "Host/Context.h"
#include "Literature/OpenAlex.h"
#include "Projects/ProjectStore.h"

#include <fmt/format.h>

#include <algorithm>
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
        {"timeout", ClientConfiguration::patience * 1000},
        {"env", members(server.environment)}};
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
        {"timeout", ClientConfiguration::patience * 1000},
        {"environment", members(server.environment)}};
    return JSONValue::object({{"mcp", JSONValue::object({{"veltry", std::move(entry)}})}}).prettyText() + "\n";
}

/// TOML, whose strings are written as JSON's are.
std::string codex(const ClientConfiguration& server)
{
    std::string text = fmt::format(
        "[mcp_servers.veltry]\ncommand = {}\nargs = {}\ntool_timeout_sec = {}\n\n[mcp_servers.veltry.env]\n",
        JSONValue(server.command.string()).text(), list(server.arguments).text(), ClientConfiguration::patience);
    for (const auto& [name, value] : server.environment)
        text += fmt::format("{} = {}\n", name, JSONValue(value).text());
    return text;
}

/// The kinds that differ from "common" in how the block is written.
struct Form {
    std::string_view kind;
    std::string (*block)(const ClientConfiguration& server);
    std::string_view environment; ///< where it keeps variables
};

constexpr std::array forms = {
    Form{"codex", &codex, "env table"},
    Form{"opencode", &openCode, "\"environment\""},
};

constexpr Form commonForm{"common", &common, "\"env\""};

const Form& formOf(std::string_view kind)
{
    const auto form = std::ranges::find(forms, kind, &Form::kind);
    return form == forms.end() ? commonForm : *form;
}

} // namespace

std::string_view ClientConfiguration::kindOf(std::string_view harness)
{
    struct Row {
        std::string_view harness;
        std::string_view kind;
    };
    constexpr std::array rows = {Row{"Claude Code", "claude"}, Row{"Codex", "codex"}, Row{"OpenCode", "opencode"}};
    const auto row = std::ranges::find(rows, harness, &Row::harness);
    return row == rows.end() ? commonForm.kind : row->kind;
}

ClientConfiguration ClientConfiguration::of(
    const ProjectStore& store, const Project& project, const Conversation& conversation,
    const ChildProcess::Environment& environment, std::string_view kind)
{
    ClientConfiguration server{
        .kind = std::string(kind),
        .command = Context::tools(),
        .arguments =
            {"mcp", "--db", store.path().string(), "--project", project.id.text(), "--runs",
             Lab::defaultRuns().string(), "--settings", Context::settingsPath().string(), "--conversation",
             conversation.id.text()},
        .environment = {{Computer::clientVariable, std::string(kind)}}};
    for (const char* name : passedOn)
        if (const auto found = environment.find(name); found != environment.end() && !found->second.empty())
            server.environment.insert(*found);
    return server;
}

std::string ClientConfiguration::text() const
{
    return formOf(kind).block(*this);
}

std::vector<std::string> ClientConfiguration::notes() const
{
    std::vector<std::string> lines;
    if (environment.contains(OpenAlex::keyVariable))
        lines.push_back(fmt::format("The block holds your {}: keep it out of a repository.", OpenAlex::keyVariable));
    else
        lines.push_back(fmt::format(
            "{} isn't set here, so searches for papers share a daily budget. To use a key of your own, add it to the "
            "block's {}: a client passes only a handful of variables on.",
            OpenAlex::keyVariable, formOf(kind).environment));
    if (formOf(kind).kind == commonForm.kind)
        lines.push_back(fmt::format(
            "A wait for runs may take half an hour. \"timeout\" says so in milliseconds; write {} there for a client "
            "that "
            "reads seconds, and set the limit of one that keeps it elsewhere.",
            patience));
    return lines;
}

} // namespace veltry
