#include "Programs.h"

#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

ChildProcess::Command program(const std::filesystem::path& executable, std::vector<std::string> arguments)
{
    return {.executable = executable, .arguments = std::move(arguments), .environment = ProcessFacts::environment()};
}

ChildProcess::Command veltryCommand(const Workplace& place, std::vector<std::string> arguments, const Lab* lab)
{
    if (lab) {
        Files::createFolders(lab->project.folders.front());
        arguments.insert(arguments.end(), {"--db", lab->store->path().string(), "--project", lab->project.name});
    }
    ChildProcess::Command command = program(place.tools.parent_path() / "veltry", std::move(arguments));
    command.environment["XDG_DATA_HOME"] = (place.folder / "data").string();
    command.environment["VELTRY_SETTINGS_PATH"] = (place.folder / "settings.toml").string();
    command.directory = place.folder;
    return command;
}

void runProgram(const ChildProcess::Command& command)
{
    if (const ChildProcess::Output output = ChildProcess::run(command); output.exitNumber != 0)
        throw std::runtime_error(output.error);
}

void runScript(const std::string& script)
{
    runProgram(program("/bin/sh", {"-c", script}));
}

Lab makeLab(
    const std::filesystem::path& folder, const std::filesystem::path& project, const std::filesystem::path& tools,
    std::string_view name)
{
    auto store = std::make_shared<ProjectStore>(folder / fmt::format("{}.sqlite", name));
    Project made = store->createProject("Bench", {project});
    return {std::move(store), std::move(made), folder / "runs", tools};
}

std::vector<std::string> serverArguments(const Lab& lab)
{
    return {"mcp",
            "--db",
            lab.store->path().string(),
            "--project",
            lab.project.id.text(),
            "--runs",
            lab.runsFolder.string()};
}

} // namespace veltry::bench
