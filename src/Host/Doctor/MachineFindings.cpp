#include "Host/Doctor/MachineFindings.h"

#include "ACP/ACPClient/Harness.h"
#include "Base/Numbers.h"
#include "Experiments/Git.h"
#include "Experiments/Spawn.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/GPUFacts.h"
#include "Platform/LoginFacts.h"
#include "Platform/MachineFacts.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

namespace veltry::MachineFindings {

namespace {

using Level = Finding::Level;

constexpr const char* tarProgram = "/usr/bin/tar";
constexpr double gibibyte = 1024.0 * 1024.0 * 1024.0;

Finding git()
{
    try {
        // In a folder that is always there: what is asked for has nothing to do with a repository.
        const std::string version = Git("/").run({"--version"});
        return {"git", Level::good, version};
    } catch (const Error& error) {
        return {"git", Level::wrong, error.description(), "Install it: apt install git. Nodes are branches."};
    }
}

Finding identity(const std::filesystem::path& folder)
{
    if (Git(folder).hasIdentity(folder))
        return {"identity", Level::good, "Commits bear your name."};
    return {
        "identity", Level::advice, "git doesn't know your name, so commits bear Harrowick Veltry <veltry@localhost>.",
        "Tell it: git config --global user.name NAME, git config --global user.email ADDRESS."};
}

Finding tar()
{
    if (Files::isExecutable(tarProgram))
        return {"tar", Level::good, tarProgram};
    return {
        "tar", Level::wrong,
        fmt::format("There is no {}, and each run begins with a snapshot that it unpacks.", tarProgram),
        "Install it: apt install tar."};
}

Finding shell()
{
    const std::filesystem::path shell = Spawn::loginShell();
    if (!Files::isExecutable(shell))
        return {"shell", Level::wrong, "There is no zsh, bash or sh in /bin.", "Install one: apt install zsh."};
    if (shell.filename() == "zsh")
        return {"shell", Level::good, fmt::format("Runs start in {}.", shell.string())};
    return {
        "shell", Level::advice,
        fmt::format(
            "Runs start in {}, which reads /etc/profile: on Debian that sets PATH anew, and a virtual environment "
            "that was active isn't found.",
            shell.string()),
        "Install zsh, or name programs by their absolute paths."};
}

Finding node(const std::string& path)
{
    const std::optional<std::filesystem::path> program = ChildProcess::find("node", path);
    if (!program || !ChildProcess::find("npx", path))
        return {
            "Node", Level::advice, "There is no Node with npx, with which veltry agent starts agents.",
            fmt::format("Install it ({}), or attach agents as MCP clients, which need none of it.", Harness::nodePage)};
    return {"Node", Level::good, program->string()};
}

Finding agent(const Harness& harness, const std::string& path, bool isDefault)
{
    const std::optional<Harness::Missing> missing = harness.missing(path);
    const std::string_view role = isDefault ? " It is the default one." : "";
    if (!missing)
        return {harness.name, Level::good, fmt::format("veltry agent can start it.{}", role)};
    const bool lacksNode = *missing == Harness::Missing::node;
    Finding finding{
        harness.name, isDefault ? Level::advice : Level::absent,
        lacksNode
            ? fmt::format("It can't be started without Node.{}", role)
            : fmt::format("Its command {} isn't on the PATH.{}", harness.command.value_or(harness.executable), role)};
    if (!lacksNode && harness.installPage && isDefault)
        finding.advice =
            fmt::format("See {}; or choose another one by the setting agents.default.", *harness.installPage);
    return finding;
}

} // namespace

std::vector<Finding> programs(const std::filesystem::path& folder, const std::filesystem::path& tools)
{
    std::vector<Finding> findings = {git()};
    // Without git the question for a name would only fail in the same way.
    if (findings.front().level == Level::good)
        findings.push_back(identity(folder));
    findings.push_back(tar());
    findings.push_back(shell());
    findings.push_back(
        Files::isExecutable(tools)
            ? Finding{"veltry-tools", Level::good, tools.string()}
            : Finding{
                  "veltry-tools", Level::wrong, fmt::format("There is no {}: agents and runs need it.", tools.string()),
                  "Install both programs in one folder."});
    return findings;
}

std::vector<Finding> agents(const std::string& defaultAgent)
{
    const std::string path = ProcessFacts::variable("PATH").value_or("");
    std::vector<Finding> findings = {node(path)};
    for (const Harness& harness : Harness::all())
        findings.push_back(agent(harness, path, harness.name == defaultAgent));
    return findings;
}

Capacity capacity()
{
    const MachineFacts::CoreCounts cores = MachineFacts::cores();
    return {
        .cores = cores.performance + cores.efficiency,
        .memory = MachineFacts::memory(),
        .gpus = static_cast<std::int64_t>(GPUFacts::utilizations().size())};
}

std::vector<Finding> fit(const Capacity& capacity, std::int64_t maxRuns)
{
    std::vector<Finding> findings;
    findings.push_back(
        {"GPU", capacity.gpus == 0 ? Level::absent : Level::good,
         capacity.gpus == 0
             ? "None that tells how busy it is. Runs may use one all the same; veltry top doesn't show it."
         : capacity.gpus == 1 ? "One that tells how busy it is."
                              : fmt::format("{} that tell how busy they are.", capacity.gpus)});
    const double memory = static_cast<double>(capacity.memory) / gibibyte;
    const std::string machine = fmt::format("{} cores and {:.0f} GiB of memory", capacity.cores, memory);
    const std::string setting = "Change it: veltry settings set experiments.max_runs NUMBER.";
    Finding runs{"max_runs", Level::good, fmt::format("{} at once, on {}.", maxRuns, machine)};
    if (maxRuns == 0)
        runs = {
            "max_runs", Level::advice, fmt::format("There is no limit to the runs at once, on {}.", machine), setting};
    else if (maxRuns > capacity.cores)
        runs = {
            "max_runs", Level::advice, fmt::format("{} runs at once are more than the cores: {}.", maxRuns, machine),
            setting};
    else if (memory / static_cast<double>(maxRuns) < 1)
        runs = {
            "max_runs", Level::advice,
            fmt::format("{} runs at once have less than 1 GiB of memory each: {}.", maxRuns, machine), setting};
    else if (capacity.gpus > 0 && maxRuns > capacity.gpus)
        runs = {
            "max_runs", Level::advice,
            fmt::format(
                "{} runs at once share {}, and nothing divides the memory of a GPU among them.", maxRuns,
                counted(capacity.gpus, "GPU", "GPUs")),
            "Where that is too much: veltry settings set experiments.max_runs " + std::to_string(capacity.gpus) + "."};
    findings.push_back(std::move(runs));
    return findings;
}

Finding logins()
{
    const std::optional<LoginFacts::Logins> facts = LoginFacts::logins();
    if (!facts)
        return {
            "lingering", Level::good,
            "Nothing here ends the processes of a user who logs out, so runs outlive the login."};
    if (facts->lingers)
        return {"lingering", Level::good, "It is on for you, so runs outlive the login."};
    if (facts->endsProcesses || facts->isInService)
        return {
            "lingering", Level::advice, "Runs end when you log out of this machine for the last time.",
            "Let them outlive it: loginctl enable-linger."};
    return {"lingering", Level::good, "Processes of a login may stay on this machine, so runs outlive it."};
}

} // namespace veltry::MachineFindings
