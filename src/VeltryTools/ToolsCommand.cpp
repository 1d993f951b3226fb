#include "VeltryTools/ToolsCommand.h"

#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Experiments/Supervisor.h"
#include "Literature/OpenAlex.h"
#include "Platform/ProcessFacts.h"
#include "VeltryTools/MCPServer.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

namespace veltry::ToolsCommand {

namespace {

constexpr std::string_view usage = "usage: veltry-tools mcp|supervise --db <path> …\n";
constexpr auto longestFarewell = std::chrono::seconds(1);

void say(std::string_view line)
{
    // In one write, so that lines of several processes with one log don't mix; if it fails there is nobody left to
    // tell.
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

std::optional<std::string> option(const Options& options, const std::string& name)
{
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second);
}

std::string requiredOption(const Options& options, const std::string& name)
{
    if (std::optional<std::string> value = option(options, name))
        return std::move(*value);
    throw LabError(LabError::Code::missingOption, fmt::format("Pass {}.", name), {.name = name});
}

std::shared_ptr<ProjectStore> openStore(const Options& options)
{
    return std::make_shared<ProjectStore>(requiredOption(options, "--db"));
}

Project findProject(const ProjectStore& store, const std::string& id)
{
    std::vector<Project> projects = store.projects();
    const auto found = std::ranges::find(projects, id, [](const Project& project) { return project.id.text(); });
    if (found == projects.end())
        throw LabError(LabError::Code::projectNotFound, fmt::format("No project {}.", id), {.name = id});
    return std::move(*found);
}

/// Leaves without the destructors of libraries, which threads of theirs may still use.
[[noreturn]] void leave()
{
    ::_exit(EXIT_SUCCESS);
}

/// What came before the end of input is answered, as far as it doesn't wait; a peer that doesn't read gets a moment.
asio::awaitable<void> bidFarewell(std::shared_ptr<JSONRPCConnection> connection)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    co_await asio::post(executor, asio::use_awaitable);     // behind the handlers of every request that was read
    asio::steady_timer patience(executor, longestFarewell); // only from here on: handlers may have taken longer
    patience.async_wait([](const asio::error_code&) { leave(); });
    co_await connection->flush();
    leave();
}

} // namespace

int main(const std::vector<std::string>& arguments)
{
    std::signal(SIGPIPE, SIG_IGN); // a peer that went away is a failed write
    const std::string mode = arguments.size() < 2 ? "" : arguments[1];
    if (mode != "mcp" && mode != "supervise") {
        say(usage);
        return 2;
    }
    try {
        const Options options = parseOptions({arguments.begin() + 1, arguments.end()});
        if (mode == "mcp")
            serve(options);
        else
            supervise(options);
        return 0;
    } catch (const std::exception& error) {
        say(fmt::format("veltry-tools: {}\n", describe(error)));
        return 1;
    }
}

Options parseOptions(const std::vector<std::string>& words)
{
    Options options;
    for (std::size_t index = 0; index + 1 < words.size(); ++index)
        if (words[index].starts_with("--")) {
            options[words[index]] = words[index + 1];
            ++index;
        }
    return options;
}

void serve(const Options& options)
{
    std::shared_ptr<ProjectStore> store = openStore(options);
    Project project = findProject(*store, requiredOption(options, "--project"));
    const std::optional<std::string> runs = option(options, "--runs");
    const std::optional<std::string> conversation = option(options, "--conversation");
    std::optional<std::filesystem::path> settings;
    if (const std::optional<std::string> path = option(options, "--settings"))
        settings = std::filesystem::absolute(*path);
    Lab lab(
        std::move(store), std::move(project), runs ? std::filesystem::absolute(*runs) : Lab::defaultRuns(),
        ProcessFacts::executable());
    MCPServer server(
        std::move(lab), conversation ? UUID::parse(*conversation) : std::nullopt, std::move(settings),
        ProcessFacts::variable(OpenAlex::keyVariable));

    asio::io_context executor(1);
    const auto transport =
        PipeTransport::make(executor.get_executor(), FileDescriptor(STDIN_FILENO), FileDescriptor(STDOUT_FILENO));
    const auto connection = std::make_shared<std::weak_ptr<JSONRPCConnection>>();
    const auto onEnd = [connection] { return bidFarewell(connection->lock()); };
    *connection = MCPServer::serve(std::move(server), executor.get_executor(), transport, onEnd);
    executor.run();
    leave(); // not reached: the end of input leaves before the executor runs out of work
}

void supervise(const Options& options)
{
    const std::shared_ptr<ProjectStore> store = openStore(options);
    const std::optional<UUID> run = UUID::parse(requiredOption(options, "--run"));
    if (!run)
        throw LabError(LabError::Code::runNotFound, "--run takes a run's id.");
    Supervisor::supervise(*run, *store);
}

} // namespace veltry::ToolsCommand
