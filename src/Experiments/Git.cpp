#include "Experiments/Git.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry {

namespace {

constexpr const char* gitProgram = "/usr/bin/git";
constexpr const char* tarProgram = "/usr/bin/tar";
// git refuses commits of somebody without a name and an address, and a run begins with a commit.
constexpr const char* fallbackName = "user.name=Harrowick Veltry";
constexpr const char* fallbackEmail = "user.email=veltry@localhost";

/// What `git rev-parse --local-env-vars` lists, but for what carries configuration, and what a receiving hook sets.
// A server that was started by a hook has these, and git would work in the hook's repository.
constexpr std::array repositoryVariables = {
    "GIT_ALTERNATE_OBJECT_DIRECTORIES",
    "GIT_COMMON_DIR",
    "GIT_DIR",
    "GIT_GRAFT_FILE",
    "GIT_IMPLICIT_WORK_TREE",
    "GIT_INDEX_FILE",
    "GIT_INTERNAL_SUPER_PREFIX",
    "GIT_NAMESPACE",
    "GIT_OBJECT_DIRECTORY",
    "GIT_PREFIX",
    "GIT_QUARANTINE_PATH",
    "GIT_SHALLOW_FILE",
    "GIT_WORK_TREE",
};

ChildProcess::Environment ownEnvironment()
{
    ChildProcess::Environment environment = ProcessFacts::environment();
    for (const char* name : repositoryVariables)
        environment.erase(name);
    return environment;
}

std::string stripped(std::string_view output)
{
    return std::string(text::trimmed(text::repaired(output)));
}

} // namespace

std::string Git::Failure::description() const
{
    return fmt::format("Failure(command: {}, output: {})", text::quoted(command), text::quoted(output));
}

std::string Git::run(
    const Arguments& arguments, const std::optional<std::filesystem::path>& in, const Environment& environment) const
{
    return stripped(output(arguments, in, environment));
}

std::string Git::output(
    const Arguments& arguments, const std::optional<std::filesystem::path>& in, const Environment& environment) const
{
    ChildProcess::Command command{
        .executable = gitProgram,
        .arguments = {"-C", in.value_or(directory).string()},
        .environment = ownEnvironment()};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    for (const auto& [name, value] : environment)
        command.environment[name] = value;
    // Nobody could answer, and the server would wait for good.
    command.environment["GIT_TERMINAL_PROMPT"] = "0";

    ChildProcess::Output result = ChildProcess::run(std::move(command));
    if (result.exitNumber == 0)
        return std::move(result.output);
    // Some commands tell on standard output why they failed: `git commit` does where there is nothing to commit.
    std::string error = stripped(result.error);
    throw Failure(
        text::repaired("git " + text::joined(arguments, " ")),
        error.empty() ? stripped(result.output) : std::move(error), result.exitNumber);
}

std::optional<std::string> Git::resolve(std::string_view revision) const
{
    try {
        return run({"rev-parse", "--verify", "--quiet", fmt::format("{}^{{commit}}", revision)});
    } catch (const Error&) {
        return std::nullopt; // no such commit, no repository, no git
    }
}

std::string Git::branchReference(std::string_view branch)
{
    // In full, since git prefers a tag to a branch of the same name.
    return fmt::format("refs/heads/{}", branch);
}

bool Git::isRepository() const
{
    try {
        return run({"rev-parse", "--is-inside-work-tree"}) == "true";
    } catch (const Error&) {
        return false; // no repository, no git
    }
}

std::optional<std::filesystem::path> Git::topLevel() const
{
    try {
        return run({"rev-parse", "--show-toplevel"});
    } catch (const Error&) {
        return std::nullopt; // no work tree, no git
    }
}

std::optional<std::string> Git::fileOf(std::string_view commit, std::string_view path) const
{
    try {
        return run({"cat-file", "blob", fmt::format("{}:{}", commit, path)});
    } catch (const Error&) {
        return std::nullopt; // no such file or commit, no repository, no git
    }
}

void Git::excludePrivately(std::string_view entry) const
{
    // In the folder that all worktrees share: git reads no other. The path may be absolute, and then replaces the
    // first.
    const std::filesystem::path common = directory / run({"rev-parse", "--git-common-dir"});
    Files::createFolders(common / "info");
    const std::filesystem::path file = common / "info" / "exclude";
    std::string lines = Files::readIfPossible(file).value_or("");
    const std::vector<std::string_view> present = text::split(lines, '\n');
    if (std::ranges::find(present, entry) != present.end())
        return;
    if (!lines.empty() && !lines.ends_with('\n'))
        lines += '\n';
    // The file is the person's: what stands there stays, and an interruption must not cut it.
    Files::writeAtomically(file, lines.append(entry) + '\n');
}

std::string Git::configured(const std::string& key, const std::filesystem::path& in) const
{
    try {
        return run({"config", key}, in);
    } catch (const Error&) {
        return {}; // no value is an exit status of 1
    }
}

bool Git::hasIdentity(const std::filesystem::path& in) const
{
    return !configured("user.email", in).empty();
}

bool Git::hasChanges(const std::filesystem::path& in) const
{
    return !run({"status", "--porcelain"}, in).empty();
}

void Git::commitAll(const std::filesystem::path& in, const std::string& message) const
{
    commitAll(in, message, {});
}

void Git::commitAll(const std::filesystem::path& in, const std::string& message, const Arguments& options) const
{
    run({"add", "--all"}, in);
    Arguments arguments;
    if (!hasIdentity(in))
        arguments = {"-c", fallbackName, "-c", fallbackEmail};
    // The person's hooks check what they commit themselves; one that fails must not keep a run from starting.
    for (const char* argument : {"commit", "--quiet", "--no-verify", "-m"})
        arguments.emplace_back(argument);
    arguments.push_back(message);
    arguments.insert(arguments.end(), options.begin(), options.end());
    run(arguments, in);
}

void Git::initialize(const std::string& message) const
{
    Arguments arguments = {"init", "--quiet"};
    // The name that the person chose for their repositories counts.
    if (configured("init.defaultBranch", directory).empty())
        arguments.insert(arguments.end(), {"--initial-branch", "main"});
    run(arguments);
    // A node's branch needs a commit to begin at, also where the folder is empty.
    commitAll(directory, message, {"--allow-empty"});
}

void Git::snapshot(const std::string& commit, const std::filesystem::path& to) const
{
    Files::createPrivateFolders(to);
    const ChildProcess::Environment environment = ownEnvironment();
    const ChildProcess::Output result = ChildProcess::runPipeline(
        {.executable = gitProgram,
         .arguments = {"-C", directory.string(), "archive", "--format=tar", commit},
         .environment = environment},
        {.executable = tarProgram, .arguments = {"-x", "--no-unquote", "-C", to.string()}, .environment = environment});
    if (result.exitNumber != 0)
        throw Failure(fmt::format("git archive {} | tar -x", commit), text::repaired(result.error));
}

} // namespace veltry
