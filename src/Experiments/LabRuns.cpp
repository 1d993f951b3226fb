// How runs of the lab begin and end.

#include "Base/Numbers.h"
#include "Experiments/Lab.h"
#include "Experiments/RunProcesses.h"
#include "Experiments/Spawn.h"
#include "Experiments/Supervisor.h"
#include "Experiments/Telemetry/TelemetryLayout.h"
#include "Platform/ChildProcess.h"
#include "Platform/FileLock.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

using Code = LabError::Code;

/// A run this young counts as live without a look at its lock: its supervisor may still be starting.
constexpr double startingSeconds = 10.0;

bool isLive(const Run& run)
{
    const double age = Date::now().secondsSince2001 - run.createdAt.secondsSince2001;
    return age <= startingSeconds || Supervisor::isAlive(run);
}

} // namespace

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
