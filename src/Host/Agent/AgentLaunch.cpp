#include "Host/Agent/AgentLaunch.h"

#include "ACP/ACPClient/ShellEnvironment.h"
#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <asio/this_coro.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace veltry::AgentLaunch {

namespace {

// A profile may wait for something that never comes.
constexpr auto shellPatience = std::chrono::seconds(10);

/// What an agent's own MCP client reads as its limits. A variable that the person has set stays.
struct Limit {
    std::string_view harness;
    const char* variable;
    const char* value;
};

constexpr std::array limits = {
    Limit{"Claude Code", "MCP_TOOL_TIMEOUT", "1860000"},    // milliseconds: the longest wait_for_runs and a minute
    Limit{"Claude Code", "MAX_MCP_OUTPUT_TOKENS", "60000"}, // 100 KB of text, and room
    Limit{"Codex", "MCP_TOOL_TIMEOUT", "1860000"},
    Limit{"OpenCode", "OPENCODE_CONFIG_CONTENT", R"({"experimental":{"mcp_timeout":1860000}})"},
};

std::filesystem::path loginShell()
{
    const std::optional<std::string> shell = ProcessFacts::variable("SHELL");
    return shell && Files::isExecutable(*shell) ? *shell : "/bin/sh";
}

bool isAPIKey(std::string_view name)
{
    return name.ends_with("_API_KEY");
}

std::string pathOf(const ChildProcess::Environment& environment)
{
    const auto path = environment.find("PATH");
    return path == environment.end() ? std::string() : path->second;
}

/// Throws Refusal.
void check(const Harness& harness, const ChildProcess::Environment& environment)
{
    const std::optional<Harness::Missing> missing = harness.missing(pathOf(environment));
    if (!missing)
        return;
    if (*missing == Harness::Missing::node)
        throw Refusal(fmt::format(
            "{} is started by npx, which isn't on the PATH. Install Node: {}.", harness.name, Harness::nodePage));
    throw Refusal(fmt::format(
        "{} needs its own command, {}, on the PATH. Install it{}, or name another agent with --harness or --command.",
        harness.name, harness.command.value_or(harness.executable),
        harness.installPage ? ": " + *harness.installPage : std::string()));
}

} // namespace

Harness harnessFor(
    const std::optional<std::string>& name, const std::optional<std::string>& command, const std::string& usual)
{
    if (command) {
        const std::string_view line = text::trimmed(*command);
        if (line.empty())
            throw UsageError("--command is blank. It takes a program that speaks ACP on its pipes, and its arguments.");
        const std::string_view program = line.substr(0, line.find(' '));
        return {
            .name = std::string(program.substr(program.rfind('/') + 1)),
            .executable = "/bin/sh",
            // Without a shell in between, so that ending the process ends the agent.
            .arguments = {"-c", fmt::format("exec {}", line)},
        };
    }
    std::string known;
    for (const Harness& harness : Harness::all()) {
        if (text::lowercased(harness.name) == text::lowercased(name.value_or(usual)))
            return harness;
        known += (known.empty() ? "" : ", ") + harness.name;
    }
    if (name)
        throw UsageError(fmt::format(
            "There is no harness \"{}\". These are known: {}. --command takes any other program that speaks ACP.",
            *name, known));
    return Harness::named(usual);
}

asio::awaitable<std::shared_ptr<AgentProcess>> start(
    // NOLINTNEXTLINE(cppcoreguidelines-avoid-reference-coroutine-parameters): the command's own, which waits for this
    Context& context, Harness harness, std::filesystem::path folder)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const ChildProcess::Environment found = co_await environment(context, harness);
    check(harness, found);
    co_return AgentProcess::start(executor, harness, found, folder);
}

// NOLINTNEXTLINE(cppcoreguidelines-avoid-reference-coroutine-parameters): the command's own, which waits for this
asio::awaitable<ChildProcess::Environment> environment(Context& context, Harness harness)
{
    const ChildProcess::Environment own = ProcessFacts::environment();
    const std::filesystem::path shell = loginShell();
    ChildProcess::Environment environment;
    std::string problem;
    try {
        environment = co_await ShellEnvironment::resolve(shell, own, shellPatience);
        if (environment.empty()) // not even `env` could be started
            problem = "what its profile exports is longer than the system hands to a program, 128 KiB a variable";
    } catch (const std::exception& error) {
        problem = describe(error);
    }
    if (!problem.empty()) {
        context.note(fmt::format(
            "The environment of {} can't be had ({}); continuing with this terminal's.", shell.string(), problem));
        environment = ShellEnvironment::fallback(own);
    }
    // After the shell has run, whose profile may export keys as well.
    environment = permitted(std::move(environment));
    for (const Limit& limit : limits)
        if (limit.harness == harness.name)
            environment.try_emplace(limit.variable, limit.value);
    co_return environment;
}

ChildProcess::Environment permitted(ChildProcess::Environment environment)
{
    if (!Context::settings().passAPIKeys)
        std::erase_if(environment, [](const auto& variable) { return isAPIKey(variable.first); });
    return environment;
}

std::string lastWords(const Harness& harness, const std::string& standardError)
{
    if (harness.executable == "npx" &&
        std::ranges::any_of(std::array{"E404", "ETARGET", "404 Not Found"}, [&](const char* sign) {
            return standardError.contains(sign);
        }))
        return fmt::format(
            "Its package {} isn't in the registry; --command takes another program that speaks ACP.",
            harness.arguments.at(1));
    const std::vector<std::string_view> lines = text::split(text::trimmed(standardError), '\n');
    // After what went wrong there may be a stack and the runtime's version.
    const auto telling = std::find_if(
        lines.rbegin(), lines.rend(), [](std::string_view line) { return text::lowercased(line).contains("error"); });
    const std::string said = text::oneLine(text::trimmed(telling == lines.rend() ? lines.back() : *telling));
    return said.empty() ? "It said nothing." : fmt::format("It said: {}", said);
}

} // namespace veltry::AgentLaunch
