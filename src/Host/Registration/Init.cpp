#include "Host/Registration/Init.h"

#include "Base/Text.h"
#include "Config/VeltrySettings.h"
#include "Experiments/Git.h"
#include "Experiments/Lab.h"
#include "Experiments/LoginPython.h"
#include "Experiments/Spawn.h"
#include "Host/Context.h"
#include "Host/Registration/ClientConfiguration.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Projects/ProjectStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace veltry::Init {

using namespace std::chrono_literals;

namespace {

std::filesystem::path existingFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::path real = std::filesystem::canonical(folder, error);
    if (error && folder.is_relative())
        static_cast<void>(std::filesystem::current_path()); // throws where that is what is gone
    if (error)
        throw Refusal(fmt::format(
            "There is no folder {}. Make it and commit the project's code in it, or name another: veltry init FOLDER.",
            folder.string()));
    if (!Files::isFolder(real))
        throw Refusal(fmt::format("{} is not a folder. Name the folder of your project.", real.string()));
    return real;
}

/// git's words in one language, so that "there is none" is told from what git refuses: another owner's folder, a bare
/// repository.
std::filesystem::path topOf(const std::filesystem::path& folder)
{
    try {
        return Git(folder).topLevel();
    } catch (const Git::Failure& failure) {
        if (failure.output.contains("not a git repository"))
            throw Refusal(fmt::format(
                "{} is not a git repository. Run `git init` there and commit the project's code, then call veltry init "
                "again.",
                folder.string()));
        throw Refusal(fmt::format(
            "git refuses {}. Do as it says, then call veltry init again. It says: {}", folder.string(),
            failure.output));
    } catch (const ChildProcess::StartFailure& failure) {
        throw Refusal(fmt::format(
            "git is needed and {}. Install it, so that {} is there, then call veltry init again.",
            failure.description(), failure.executable));
    }
}

Project findOrCreate(
    ProjectStore& store, const std::filesystem::path& top, const std::optional<std::string>& name,
    const Context& context)
{
    for (Project& project : store.projects())
        if (!project.folders.empty() && Context::realFolder(project.folders.front()) == top) {
            context.note(fmt::format("{} is registered already, as the project {}.", top.string(), project.name));
            if (const std::string wanted(text::trimmed(name.value_or(""))); !wanted.empty() && wanted != project.name)
                context.note(fmt::format(
                    "It keeps that name. To rename it: veltry project rename {} --project {}", text::quoted(wanted),
                    project.id.text().substr(0, 8)));
            return std::move(project);
        }
    Project project = store.createProject(name.value_or(""), {top});
    context.note(
        fmt::format("Registered {} as the project {} in {}.", top.string(), project.name, store.path().string()));
    return project;
}

void writeSettings(const Context& context)
{
    const std::filesystem::path path = Context::settingsPath();
    if (Files::exists(path))
        return;
    Files::createPrivateFolders(path.parent_path());
    Files::writeAtomically(path, VeltrySettings::templateText(VeltrySettings()));
    context.note(fmt::format("Wrote the settings to {}.", path.string()));
}

Conversation findOrCreateConversation(ProjectStore& store, const Project& project, const std::string& harness)
{
    if (std::optional<Conversation> found = conversationOfClients(store, project))
        return std::move(*found);
    return store.createConversation(project.id, conversationTitle, harness);
}

} // namespace

std::filesystem::path repositoryTop(const std::filesystem::path& given, const Context& context)
{
    const std::filesystem::path folder = existingFolder(given);
    std::filesystem::path top = topOf(folder);
    const std::string path = top.string();
    if (const std::size_t node = path.find(fmt::format("/{}/", Lab::worktrees)); node != std::string::npos)
        throw Refusal(
            fmt::format("{} is the worktree of an experiment. Its project is {}.", path, path.substr(0, node)));
    if (top != folder)
        context.note(
            fmt::format("{} lies in the repository {}, whose top is the project's folder.", folder.string(), path));
    return top;
}

std::optional<Conversation> conversationOfClients(const ProjectStore& store, const Project& project)
{
    for (Conversation& conversation : store.conversations(project.id))
        if (conversation.title == conversationTitle)
            return std::move(conversation);
    return std::nullopt;
}

void run(Context& context, const Options& options)
{
    const std::filesystem::path top = repositoryTop(options.folder, context);
    if (!Git(top).resolve("HEAD"))
        context.note(fmt::format(
            "{} has no commit yet. Commit the project's code before the first experiment: git add --all && git "
            "commit.",
            top.string()));
    ProjectStore& store = *context.storeMadeIfMissing();
    const Project project = findOrCreate(store, top, options.name, context);
    writeSettings(context);
    const Conversation conversation = findOrCreateConversation(store, project, Context::settings().defaultAgent);
    static_cast<void>(LoginPython::kept(LoginPython::file(Context::settingsPath()), Spawn::loginShell(), 0s));
    const ClientConfiguration client =
        ClientConfiguration::of(store, project, conversation, ProcessFacts::environment(), options.client);
    context.note("Give this to your MCP client:");
    context.print(client.text());
    for (const std::string& line : client.notes())
        context.note(line);
}

} // namespace veltry::Init
