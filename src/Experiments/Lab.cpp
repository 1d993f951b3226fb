#include "Experiments/Lab.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/StandardFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace veltry {

namespace {

using Code = LabError::Code;

constexpr std::size_t slugLength = 40;

/// Lower-case ASCII letters and digits, joined by single hyphens.
std::string slug(std::string_view title)
{
    std::string result;
    for (char c : text::lowercased(title)) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
            result += c;
        else if (!result.empty() && result.back() != '-')
            result += '-';
    }
    result.resize(std::min(result.size(), slugLength));
    while (result.ends_with('-'))
        result.pop_back();
    return result.empty() ? "experiment" : result;
}

LabError noExperiment(const NodeName& name)
{
    return LabError(
        Code::experimentNotFound,
        fmt::format("No experiment {} in this project. Call experiment_tree for the ids.", name.text()),
        {.name = name.text()});
}

} // namespace

Lab::Lab(
    std::shared_ptr<ProjectStore> openStore, Project served, std::filesystem::path runs,
    std::filesystem::path executable)
    : store(std::move(openStore)), project(std::move(served)), runsFolder(std::move(runs)), tools(std::move(executable))
{
}

std::filesystem::path Lab::defaultRuns()
{
    return StandardFolders::applicationSupport() / "Harrowick Veltry" / "Runs";
}

Experiment Lab::experiment(const NodeName& name) const
{
    if (name.id())
        if (std::optional<Experiment> found = store->experiment(*name.id()); found && found->projectID == project.id)
            return std::move(*found);
    throw noExperiment(name);
}

std::vector<Experiment> Lab::experiments() const
{
    return store->experiments(project.id);
}

Run Lab::run(const RunName& name) const
{
    std::optional<Run> found;
    if (name.number())
        found = store->run(*name.number(), project.id);
    else if (name.id())
        found = store->run(*name.id());
    if (!found || found->projectID != project.id)
        throw LabError(
            Code::runNotFound, fmt::format("No run {} in this project.", name.text()), {.name = name.text()});
    return std::move(*found);
}

std::filesystem::path Lab::worktree(const Experiment& experiment) const
{
    return project.folders.front() / worktrees / experiment.slug;
}

ExperimentTree Lab::tree() const
{
    std::vector<Experiment> nodes = experiments();
    std::vector<Run> runs = store->runs(project.id);
    reconcile(runs);
    return ExperimentTree(std::move(nodes), std::move(runs), store->citations(project.id));
}

ExperimentTree Lab::treeAround(const std::vector<UUID>& nodes) const
{
    ExperimentTree tree(experiments());
    std::set<const ExperimentTree::Node*> asked;
    for (const UUID& id : nodes) {
        const ExperimentTree::Node* node = tree.find(id);
        if (!node)
            throw noExperiment(id);
        // A node's values are measured by those of its parent and its baseline.
        asked.insert({node, node->parent, node->baseline});
    }
    asked.erase(nullptr);
    std::vector<Run> runs;
    for (const ExperimentTree::Node* node : asked)
        std::ranges::move(store->runsOfExperiment(node->record.id), std::back_inserter(runs));
    reconcile(runs);
    // They came node by node, and the tree takes the last answered run of a node as its answer.
    std::ranges::sort(runs, {}, &Run::number);
    const std::vector<const ExperimentTree::Node*> read(asked.begin(), asked.end());
    return std::move(tree).withRunsOf(read, std::move(runs), store->citations(project.id));
}

ExperimentTree Lab::alone(const Experiment& experiment) const
{
    return ExperimentTree({experiment}, store->runsOfExperiment(experiment.id));
}

bool Lab::isFrozen(const Experiment& experiment) const
{
    return alone(experiment).nodes().front().isFrozen();
}

Experiment Lab::create(const NewNode& node) const
{
    const std::string title(text::trimmed(node.title));
    if (title.empty())
        throw LabError(Code::titleRequired, "Give the experiment a title: the idea it tests.");
    const Git git = repository();
    if (!git.isRepository()) {
        const std::string folder = project.folders.front().string();
        throw LabError(
            Code::notARepository,
            fmt::format("{} is not a git repository. Run `git init` and commit the code first.", folder),
            {.folder = folder});
    }

    std::optional<Experiment> parent;
    std::optional<std::string> base;
    std::string command;
    if (node.parent) {
        parent = experiment(*node.parent);
        if (node.runCommand && *node.runCommand != parent->runCommand)
            throw LabError(
                Code::runCommandInherited,
                fmt::format(
                    "A child runs its parent's command: {}. Leave run_command out, and change the code on the child's "
                    "branch instead.",
                    parent->runCommand),
                {.command = parent->runCommand});
        base = git.resolve(Git::branchReference(parent->branch));
        if (!base)
            throw LabError(
                Code::branchMissing, fmt::format("The parent's branch {} is gone from the repository.", parent->branch),
                {.branch = parent->branch});
        command = parent->runCommand;
    } else {
        command = text::trimmed(node.runCommand.value_or(""));
        if (command.empty())
            throw LabError(
                Code::runCommandRequired,
                "A baseline names the run command every node under it runs. Pass run_command.");
        base = git.resolve("HEAD");
        if (!base)
            throw LabError(Code::noCommits, "The repository has no commits. Commit the project's code first.");
    }

    const std::string name = freeSlug(title);
    const Experiment made{
        .id = UUID::random(),
        .projectID = project.id,
        .parentID = parent ? std::optional(parent->id) : std::nullopt,
        .slug = name,
        .branch = "veltry/" + name,
        .title = title,
        .notes = node.notes,
        .runCommand = command,
        .archived = false,
        .conversationID = node.conversation,
        .createdAt = Date::now()};
    try {
        // The worktrees lie in the person's repository, whose status must not show them.
        git.excludePrivately("/.veltry/");
        git.run({"branch", made.branch, *base});
        git.run({"worktree", "add", "--quiet", worktree(made).string(), made.branch});
    } catch (const Git::Failure& failure) {
        throw LabError::of(failure);
    }
    // Last: a branch without a row only keeps its slug, but a row without a branch would be a node that can't run.
    store->insertExperiment(made);
    return made;
}

/// A slug that no node, no branch and no folder of the worktrees has. What an earlier attempt left keeps its
/// slug.
std::string Lab::freeSlug(std::string_view title) const
{
    std::set<std::string> taken;
    for (Experiment& node : experiments())
        taken.insert(std::move(node.slug));
    const std::string wanted = slug(title);
    const std::filesystem::path folder = project.folders.front() / worktrees;
    // The slug becomes a branch and a folder, and a person may have made either by hand.
    std::string candidate = wanted;
    for (int suffix = 2; taken.contains(candidate) || Files::exists(folder / candidate) ||
                         repository().resolve(Git::branchReference("veltry/" + candidate));
         ++suffix)
        candidate = fmt::format("{}-{}", wanted, suffix);
    return candidate;
}

void Lab::setNotes(const NodeName& name, std::string_view notes) const
{
    store->setNotes(experiment(name).id, notes);
}

void Lab::setArchived(const NodeName& name, bool archived) const
{
    store->setArchived(experiment(name).id, archived);
}

} // namespace veltry
