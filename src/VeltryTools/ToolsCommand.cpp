#include "VeltryTools/ToolsCommand.h"

#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Config/VeltrySettings.h"
#include "Experiments/Computer.h"
#include "Experiments/Machine.h"
#include "Experiments/Playbook.h"
#include "Experiments/Supervisor.h"
#include "Literature/OpenAlex.h"
#include "Platform/Async/WatchedChild.h"
#include "Platform/ProcessEnd.h"
#include "Platform/ProcessFacts.h"
#include "Platform/StandardStreams.h"
#include "VeltryTools/LabTools.h"
#include "VeltryTools/MCPServer.h"
#include "VeltryTools/PaperTools.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace veltry::ToolsCommand {

namespace {

constexpr std::string_view usage = "usage: veltry-tools mcp|supervise --db <path> …\n";
constexpr auto longestFarewell = std::chrono::seconds(1);

void say(std::string_view line)
{
    StandardStreams::writeOnce(StandardStreams::error, line); // if it fails there is nobody left to tell
}

std::optional<std::string> option(const Options& options, const std::string& name)
{
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second);
}

std::string requiredOption(const Options& options, const std::string& name)
{
    if (std::optional<std::string> value = option(options, name); value && !value->empty())
        return std::move(*value);
    throw LabError(LabError::Code::missingOption, fmt::format("Pass {}.", name), {.name = name});
}

std::shared_ptr<ProjectStore> openStore(const Options& options)
{
    return std::make_shared<ProjectStore>(requiredOption(options, "--db"));
}

/// Not one of the lab's failures, whose codes are closed: without a folder there is no lab.
struct NoFolder : Error {
    explicit NoFolder(std::string name) : project(std::move(name)) {}
    [[nodiscard]] std::string description() const override
    {
        return fmt::format("The project {} has no folder. Add its repository: veltry project add-folder.", project);
    }
    std::string project;
};

Project findProject(const ProjectStore& store, const std::string& id)
{
    std::vector<Project> projects = store.projects();
    const auto found = std::ranges::find(projects, id, [](const Project& project) { return project.id.text(); });
    if (found == projects.end())
        throw LabError(LabError::Code::projectNotFound, fmt::format("No project {}.", id), {.name = id});
    // Every tool of the tree works in the first folder.
    if (found->folders.empty())
        throw NoFolder(found->name);
    return std::move(*found);
}

/// An empty path is a file that isn't there, whose settings are the defaults.
std::optional<std::filesystem::path> settingsFile(const Options& options)
{
    const std::optional<std::string> file = option(options, "--settings");
    if (!file || file->empty())
        return file;
    return std::filesystem::absolute(*file);
}

/// Who attaches by a block that veltry made is told of this computer as it is; any other client of a computer that the
/// section for all was written for.
std::string instructions(const std::filesystem::path& runs, const std::optional<std::filesystem::path>& settings)
{
    if (ProcessFacts::variable(Computer::clientVariable).value_or("").empty())
        return Playbook::instructions(Machine::current());
    const std::int64_t maxRuns = settings ? VeltrySettings::load(*settings).maxRuns : 0;
    const bool hasFile = settings && !settings->empty();
    return Playbook::instructions(
        Computer::current(runs, maxRuns, hasFile ? LoginPython::read(LoginPython::file(*settings)) : std::nullopt));
}

/// The tools of one project, in the order in which an agent is shown them.
std::vector<Tool> makeTools(Lab served, const Options& options)
{
    const auto lab = std::make_shared<const Lab>(std::move(served));
    LabTools labTools{.lab = lab};
    if (const std::optional<std::string> conversation = option(options, "--conversation"))
        labTools.conversation = UUID::parse(*conversation);
    labTools.settings = settingsFile(options);
    const auto key = [key = ProcessFacts::variable(OpenAlex::keyVariable)] { return key; };
    const PaperTools paperTools{
        .lab = lab,
        .search = std::make_shared<const OpenAlex>(key, HTTPSession::shared()),
        .files = PaperFiles::beside(lab->store->path())};
    std::vector<Tool> tools = labTools.tools();
    std::ranges::move(paperTools.tools(), std::back_inserter(tools));
    return tools;
}

/// Leaves without the destructors of libraries, which threads of theirs may still use.
[[noreturn]] void leave()
{
    ProcessEnd::leave(0);
}

/// What came before the end of input is answered, as far as it doesn't wait; a peer that doesn't read gets a moment.
asio::awaitable<void> bidFarewell(std::shared_ptr<JSONRPCConnection> connection)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    // After what handlers of requests that were read have posted; and only from then on is there a limit, since a
    // handler may take longer than that.
    co_await asio::post(executor, asio::use_awaitable);
    asio::steady_timer patience(executor, longestFarewell);
    patience.async_wait([](const asio::error_code&) { leave(); });
    co_await connection->flush();
    leave();
}

} // namespace

int main(const std::vector<std::string>& arguments)
{
    ProcessEnd::ignoreBrokenPipes(); // a peer that went away is a failed write
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
    // The store comes before the mode's own options: what is wrong with it is told first.
    std::shared_ptr<ProjectStore> store = openStore(options);
    Project project = findProject(*store, requiredOption(options, "--project"));
    std::optional<std::string> runs = option(options, "--runs");
    if (runs && runs->empty())
        runs = requiredOption(options, "--runs");
    Lab lab(
        std::move(store), std::move(project), runs ? std::filesystem::absolute(*runs) : Lab::defaultRuns(),
        // The supervisors that it starts are this same program.
        ProcessFacts::executable());
    asio::io_context executor(1);
    lab.adopt = [&executor](ProcessID supervisor) {
        // So that a supervisor that has ended leaves no zombie.
        asio::co_spawn(executor, reaped(supervisor), asio::detached);
    };
    const auto told = [runs = lab.runsFolder, settings = settingsFile(options)] {
        return instructions(runs, settings);
    };
    MCPServer server(makeTools(std::move(lab), options), told);

    const auto transport = PipeTransport::make(
        executor.get_executor(), FileDescriptor(StandardStreams::input), FileDescriptor(StandardStreams::output));
    // The end of input needs the connection, which is made with what runs at that end.
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
