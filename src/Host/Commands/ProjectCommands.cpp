#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/Git.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Registration/Init.h"
#include "Host/Terminal/Prompt.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/RecordJSON.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;
using Scope = Command::Scope;

void init(Context& context, const Arguments& arguments)
{
    Init::run(
        context, {.folder = arguments.text("FOLDER").value_or("."),
                  .name = arguments.text("--name"),
                  .client = arguments.text("--client").value_or("common")});
}

/// A project's newest conversations, below its own row.
void addConversations(TextTable& table, std::vector<Conversation> all, const Terminal& terminal)
{
    constexpr std::size_t most = 3;
    std::erase_if(all, [](const Conversation& each) { return each.archivedAt.has_value(); });
    const std::string mark = terminal.isUTF8() ? "└ " : "- ";
    for (std::size_t shown = 0; shown < std::min(most, all.size()); ++shown) {
        const Conversation& conversation = all[all.size() - 1 - shown];
        table.add({
            {mark + conversation.title},
            {conversation.harness, Style::dim},
            {Times::ago(conversation.createdAt)},
            {conversation.id.text(), Style::dim},
        });
    }
    if (all.size() > most)
        table.add({{fmt::format("{}{} more: veltry conversations", mark, all.size() - most), Style::dim}});
}

void projects(Context& context, const Arguments& /*arguments*/)
{
    const std::vector<Project> all = context.store()->projects();
    if (context.json()) {
        JSONValue::Array list;
        for (const Project& project : all)
            list.push_back(RecordJSON::of(project));
        return context.printJSON(JSONValue(std::move(list)));
    }
    TextTable table(
        {{.heading = "project"}, {.heading = "folder", .mayBeCut = true}, {.heading = "since"}, {.heading = "id"}});
    for (const Project& project : all) {
        table.add({
            {project.name, Style::bold},
            {project.folders.empty() ? "" : project.folders.front().string()},
            {Times::ago(project.createdAt)},
            {project.id.text(), Style::dim},
        });
        if (!project.collapsed)
            addConversations(table, context.store()->conversations(project.id), context.out());
    }
    if (table.isEmpty())
        return context.note("No project is registered yet. Go to the folder of your code and call veltry init.");
    context.print(table.text(context.out()));
}

void renameProject(Context& context, const Arguments& arguments)
{
    const Project project = context.project();
    const std::string given = arguments.required("NAME");
    const std::string_view name = text::trimmed(given);
    if (name.empty())
        throw UsageError("The new name is blank.");
    context.store()->renameProject(project.id, name);
    context.note(fmt::format("{} is now called {}.", project.name, name));
}

void addFolder(Context& context, const Arguments& arguments)
{
    const Project project = context.project();
    const std::filesystem::path given = arguments.required("FOLDER");
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::canonical(given, error);
    if (error || !Files::isFolder(folder))
        throw Refusal(fmt::format("There is no folder {}.", given.string()));
    if (std::ranges::find(project.folders, folder) != project.folders.end())
        return context.note(fmt::format("{} already has the folder {}.", project.name, folder.string()));
    context.store()->addFolder(folder, project.id);
    context.note(fmt::format("{} now has the folder {} too.", project.name, folder.string()));
}

/// The worktrees and the repository name each other by paths, which git mends for those it is told of.
void repairWorktrees(const Context& context, const Project& project, const std::vector<Experiment>& nodes)
{
    const Git repository(project.folders.front());
    for (const Experiment& node : nodes) {
        const std::filesystem::path worktree = project.folders.front() / Lab::worktrees / node.slug;
        if (!Files::isFolder(worktree))
            continue;
        try {
            static_cast<void>(repository.run({"worktree", "repair", worktree.string()}));
        } catch (const Git::Failure& failure) {
            context.note(fmt::format("git couldn't repair the worktree {}: {}", worktree.string(), failure.output));
        }
    }
}

void moveProject(Context& context, const Arguments& arguments)
{
    Project project = context.project();
    ProjectStore& store = *context.store();
    const std::filesystem::path top = Init::repositoryTop(arguments.required("FOLDER"), context);
    if (project.folders.empty())
        throw Refusal(
            fmt::format("The project {} has no folder. Add its repository: veltry project add-folder.", project.name));
    const std::filesystem::path old = project.folders.front();
    const bool isThere = Context::realFolder(old) == top;
    if (!isThere && Files::isFolder(old))
        throw Refusal(fmt::format(
            "{} is still there, and is the folder of {}. Move it first: mv {} {}.", old.string(), project.name,
            old.string(), top.string()));
    for (const Project& other : store.projects())
        if (other.id != project.id && !other.folders.empty() && Context::realFolder(other.folders.front()) == top)
            throw Refusal(fmt::format(
                "{} is the folder of another project, {}. Remove that one first if it was made by mistake: veltry "
                "project remove --project {}.",
                top.string(), other.name, other.id.text()));
    const std::vector<Experiment> nodes = store.experiments(project.id);
    const auto isKnown = [&](const Experiment& node) {
        return Git(top).resolve(Git::branchReference(node.branch)).has_value();
    };
    if (!nodes.empty() && std::ranges::none_of(nodes, isKnown))
        throw Refusal(fmt::format(
            "{} is another repository: it has none of the {}'s branches, like {}.", top.string(), project.name,
            nodes.front().branch));
    store.moveProject(project.id, top);
    project.folders.front() = top;
    repairWorktrees(context, project, nodes);
    context.note(fmt::format("{} lies in {} now. Clients attached to it find it there.", project.name, top.string()));
}

/// What a removal takes out of the store, and what it leaves on the disk.
std::string removalText(const ProjectStore& store, const Project& project)
{
    const std::vector<Run> runs = store.runs(project.id);
    std::string text = fmt::format(
        "Removing {} takes {}, {} and {} out of the store, for good.\nWhat stays:", project.name,
        counted(std::ssize(store.experiments(project.id)), "node", "nodes"), counted(std::ssize(runs), "run", "runs"),
        counted(std::ssize(store.conversations(project.id)), "conversation", "conversations"));
    for (const std::filesystem::path& folder : project.folders)
        text += fmt::format("\n  {}", folder.string());
    if (!project.folders.empty())
        text += fmt::format(
            "\n  the branches veltry/... in it, and the worktrees in {}",
            (project.folders.front() / Lab::worktrees).string());
    if (!runs.empty())
        text += fmt::format(
            "\n  {} with what the runs made, below {}", counted(std::ssize(runs), "folder", "folders"),
            runs.front().directory.parent_path().string());
    return text;
}

void removeProject(Context& context, const Arguments& arguments)
{
    const Project project = context.project();
    ProjectStore& store = *context.store();
    // A dead supervisor's run must not be in the way, even if the project's folder has moved.
    if (!project.folders.empty())
        Lab(context.store(), project, Lab::defaultRuns(), Context::tools()).reconcile();
    if (const std::int64_t inFlight = std::ssize(store.runsInFlight(project.id).runs); inFlight > 0)
        throw Refusal(fmt::format(
            "{} of {} {} still going. Wait with veltry wait, or cancel first.", counted(inFlight, "run", "runs"),
            project.name, plural(inFlight, "is", "are")));
    context.note(removalText(store, project));
    if (!arguments.has("--yes")) {
        if (!canAsk())
            throw Refusal("Nothing was removed, since there is nobody to ask. To remove without asking: --yes.");
        if (!Prompt::confirms(context.notes(), fmt::format("Remove {}?", project.name)))
            throw Refusal("Nothing was removed.");
    }
    store.removeProject(project.id);
    context.note(fmt::format("Removed {}.", project.name));
}

void setCollapsed(Context& context, bool collapsed)
{
    const Project project = context.project();
    context.store()->setCollapsed(project.id, collapsed);
    context.note(
        fmt::format("veltry projects shows {} {} its conversations.", project.name, collapsed ? "without" : "with"));
}

void collapse(Context& context, const Arguments& /*arguments*/)
{
    setCollapsed(context, true);
}

void expand(Context& context, const Arguments& /*arguments*/)
{
    setCollapsed(context, false);
}

constexpr std::array initOptions = {
    Option{
        "FOLDER", "", "A folder of the repository; the project is the repository's top", Count::optional,
        Completion::folder},
    Option{"--name", "NAME", "The project's name; the folder's own by default"},
    clientOption,
};
constexpr std::array renameOptions = {
    Option{"NAME", "", "The new name", Count::required},
};

constexpr std::array addFolderOptions = {
    Option{"FOLDER", "", "Another folder of the project", Count::required, Completion::folder},
};
constexpr std::array moveOptions = {
    Option{"FOLDER", "", "Where the project's first folder lies now", Count::required, Completion::folder},
};
constexpr std::array removeOptions = {
    Option{"--yes", "", "Don't ask"},
};

constexpr std::array table = {
    Command{
        .name = "init",
        .summary = "Register a git repository as a project, and print what an MCP client needs to attach to it",
        .example = "veltry init ~/code/digits --name Digits",
        .scope = Scope::store,
        .options = initOptions,
        .run = &init},
    Command{
        .name = "projects",
        .summary = "List the projects",
        .example = "veltry projects",
        .scope = Scope::store,
        .hasJSON = true,
        .options = {},
        .run = &projects},
    Command{
        .name = "project rename",
        .summary = "Give a project another name",
        .example = "veltry project rename \"Digits, second try\"",
        .options = renameOptions,
        .run = &renameProject},
    Command{
        .name = "project add-folder",
        .summary = "Add a folder to a project, after the others",
        .example = "veltry project add-folder ~/data/digits",
        .options = addFolderOptions,
        .run = &addFolder},
    Command{
        .name = "project move",
        .summary = "Say where a project's repository lies, after its folder was moved",
        .example = "veltry project move ~/code/digits --project Digits",
        .details =
            "Move the folder first, with mv. Then the store names its new place, and git mends the worktrees of the "
            "nodes.",
        .options = moveOptions,
        .run = &moveProject},
    Command{
        .name = "project remove",
        .summary = "Remove a project from the store, after asking; nothing on the disk is touched",
        .example = "veltry project remove --project Digits",
        .options = removeOptions,
        .run = &removeProject},
    Command{
        .name = "projects collapse",
        .summary = "List the project without its conversations",
        .example = "veltry projects collapse --project Digits",
        .options = {},
        .run = &collapse},
    Command{
        .name = "projects expand",
        .summary = "List the project with its conversations",
        .example = "veltry projects expand --project Digits",
        .options = {},
        .run = &expand},
};

} // namespace

Family projectCommands()
{
    return table;
}

} // namespace veltry::Commands
