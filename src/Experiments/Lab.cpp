#include "Experiments/Lab.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/RunProcesses.h"
#include "Experiments/Spawn.h"
#include "Experiments/Supervisor.h"
#include "Experiments/Telemetry/TelemetryLayout.h"
#include "Platform/ChildProcess.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/StandardFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace veltry {

namespace {

using Code = LabError::Code;

/// A run this young counts as live without a look at its lock: its supervisor may still be starting.
constexpr double startingSeconds = 10.0;
constexpr std::size_t slugLength = 40;

bool isLive(const Run& run)
{
    const double age = Date::now().secondsSince2001 - run.createdAt.secondsSince2001;
    return age <= startingSeconds || Supervisor::isAlive(run);
}

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

Run Lab::launch(const NodeName& name, std::int64_t maxRuns) const
{
    const Experiment node = experiment(name);
    const Run run = admit(node, maxRuns);
    std::string reason;
    try {
        // Without the launch lock, since writing a large repository out may take long.
        repository().snapshot(run.commit, run.source());
        startSupervisor(run);
        return run;
    } catch (const std::exception& error) {
        reason = describe(error);
    }
    store->finishRun(run.id, Run::Status::failed, std::nullopt, std::nullopt);
    throw LabError(
        Code::launchFailed, fmt::format("Run {} could not start: {}", run.number, reason),
        {.reason = reason, .run = run.number});
}

/// All that has to hold before a run may exist, and its row. The lock is the kernel's and spans every server of the
/// store, whichever runs folder it has: between the look and the row nobody else gets in, and two commits in one
/// worktree can't meet at git's own lock.
Run Lab::admit(const Experiment& experiment, std::int64_t maxRuns) const
{
    const FileLock lock = FileLock::take(store->path().string() + ".launch");
    checkLimit(maxRuns);
    const ExperimentTree look = alone(experiment);
    const ExperimentTree::Node& node = look.nodes().front();
    if (node.isFrozen())
        throw LabError(
            Code::frozen,
            fmt::format(
                "Run {} answered {}, so its code is fixed. Create a child with create_experiment to try something "
                "else.",
                node.answer->number, experiment.title),
            {.title = experiment.title, .run = node.answer->number});
    for (const Run* run : node.runs)
        if (!run->isFinished())
            throw LabError(
                Code::alreadyRunning,
                fmt::format(
                    "Run {} of {} is still running. Wait for it with wait_for_runs, or stop it with cancel_run.",
                    run->number, experiment.title),
                {.title = experiment.title, .run = run->number});

    // After the looks at the node, so that a launch refused by them commits nothing.
    const std::string commit = commitPending(experiment, node.runs.size());
    try {
        static_cast<void>(TelemetryLayout::read(worktree(experiment)));
    } catch (const TelemetryLayout::Invalid& invalid) {
        const std::string reason = invalid.description();
        throw LabError(
            Code::telemetryInvalid,
            fmt::format("telemetry.toml {}. Fix it in the node's worktree and call run_experiment again.", reason),
            {.reason = reason});
    }
    const UUID runID = UUID::random();
    return store->insertRun(runID, experiment, commit, runsFolder / runID.text());
}

void Lab::checkLimit(std::int64_t maxRuns) const
{
    if (maxRuns < 1)
        return;
    // A row whose supervisor is gone may not have been failed yet, and takes no place.
    const std::int64_t live = std::ranges::count_if(store->unfinishedRuns(), isLive);
    if (live >= maxRuns)
        throw LabError(
            Code::tooManyRuns,
            fmt::format(
                "{} going, and settings.toml allows {} at once. Wait for one with wait_for_runs, or raise "
                "experiments.max_runs.",
                counted(live, "run is", "runs are"), maxRuns),
            {.count = live, .limit = maxRuns});
}

/// The tip of the node's branch, with what was pending in the worktree committed to it.
std::string Lab::commitPending(const Experiment& experiment, std::size_t runsSoFar) const
{
    const Git git = repository();
    const std::filesystem::path folder = worktree(experiment);
    try {
        if (git.hasChanges(folder))
            git.commitAll(folder, fmt::format("{}: run {}", experiment.title, runsSoFar + 1));
    } catch (const Git::Failure& failure) {
        throw LabError::of(failure);
    }
    std::optional<std::string> commit = git.resolve(Git::branchReference(experiment.branch));
    if (!commit)
        throw LabError(
            Code::branchMissing, fmt::format("The branch {} is gone.", experiment.branch),
            {.branch = experiment.branch});
    return std::move(*commit);
}

void Lab::startSupervisor(const Run& run) const
{
    // In a session of its own, so that the run goes on when this server and its terminal are gone.
    const ProcessID supervisor = Spawn::start({
        .executable = tools,
        .arguments = {"supervise", "--db", store->path().string(), "--run", run.id.text()},
        .environment = ProcessFacts::environment(),
        .directory = run.directory,
        .log = run.directory / "supervisor.log",
        .group = false,
    });
    if (adopt)
        adopt(supervisor);
}

Run Lab::cancel(const RunName& name) const
{
    Run run = this->run(name);
    if (run.isFinished())
        return run;
    // Before the signal: the supervisor looks for the request when the shell has ended, and without it the run has
    // failed.
    store->requestCancel(run.id);
    // The number may be another program's by now.
    if (RunProcesses::mayReachGroup(run))
        ChildProcess::terminateGroup(*run.pid);
    return store->run(run.id).value_or(std::move(run));
}

void Lab::reconcile() const
{
    std::vector<Run> runs = store->runsInFlight(project.id).runs;
    reconcile(runs);
}

void Lab::reconcile(std::vector<Run>& runs) const
{
    for (Run& run : runs) {
        if (run.isFinished() || isLive(run))
            continue;
        store->finishRun(run.id, Run::Status::failed, std::nullopt, std::nullopt);
        // The supervisor may have been the first to end it.
        if (std::optional<Run> fresh = store->run(run.id))
            run = std::move(*fresh);
    }
}

} // namespace veltry
