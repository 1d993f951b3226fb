#pragma once

#include "Experiments/Changes/Changes.h"
#include "Experiments/ExperimentTree.h"
#include "Experiments/Git.h"
#include "Experiments/LabError.h"
#include "Experiments/Names.h"
#include "Projects/ProjectStore.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// The rules of one project's experiment tree, over its git repository and the store.
///
/// A node is a branch with a worktree of its own. Its first run with a result freezes its code; until then it is
/// provisional and may be changed and run again. A node without a parent is a baseline and names the run command that
/// all nodes below it run. Nothing here removes a branch, a worktree, a run folder or a row.
///
/// A value without state of its own. Every operation blocks, may be called from any thread and from several processes
/// at once, and throws LabError for what its caller can mend; errors of the store, of starting git and of the file
/// system pass through.
class Lab {
public:
    /// `project` has at least one folder; the first is the repository. `tools` is the `veltry-tools` executable, which
    /// is started to supervise each run.
    Lab(std::shared_ptr<ProjectStore> store, Project project, std::filesystem::path runsFolder,
        std::filesystem::path tools);

    /// Below the project's first folder.
    static constexpr std::string_view worktrees = ".veltry/worktrees";
    /// The runs folder that is used when nobody names one: "Harrowick Veltry/Runs" in the application-support folder.
    [[nodiscard]] static std::filesystem::path defaultRuns();

    /// The node of this project with that name.
    [[nodiscard]] Experiment experiment(const NodeName& name) const;
    /// All nodes, archived ones too, the oldest first.
    [[nodiscard]] std::vector<Experiment> experiments() const;
    /// The run of this project with that name.
    [[nodiscard]] Run run(const RunName& name) const;
    [[nodiscard]] std::filesystem::path worktree(const Experiment& experiment) const;

    /// The whole project. Reads each of its tables once, and closes runs whose supervisor is gone as reconcile() does.
    [[nodiscard]] ExperimentTree tree() const;
    /// All nodes and citations of the project, but only the runs of the named nodes, of their parents and of their
    /// baselines: what it costs doesn't grow with the runs of the others. Throws LabError experiment_not_found.
    [[nodiscard]] ExperimentTree treeAround(const std::vector<UUID>& nodes) const;
    /// True if a run of the node has a result, whatever its status.
    [[nodiscard]] bool isFrozen(const Experiment& experiment) const;

    /// Compares the node's code with what it grew from: its parent's branch or, for a baseline, what the repository has
    /// checked out. Of a provisional node it shows the worktree as it stands at that moment, with what is neither
    /// committed nor added, and touches neither it nor its index; where the worktree is gone, the branch's last commit.
    /// A frozen node is shown by the commit of its last run with a result.
    ///
    /// The person's git configuration and attributes have no say, the project's own .gitattributes do. LabError:
    /// branch_missing for a side that is gone, git_failed for what git refuses.
    [[nodiscard]] Changes changes(const Experiment& experiment) const;

    struct NewNode {
        std::string title;
        std::string notes{};
        std::optional<NodeName> parent{};        ///< none for a baseline
        std::optional<std::string> runCommand{}; ///< for a baseline alone
        std::optional<UUID> conversation{};
    };
    /// Makes the node's branch, worktree and row. A step that fails leaves what the steps before it made.
    [[nodiscard]] Experiment create(const NewNode& node) const;

    void setNotes(const NodeName& name, std::string_view notes) const;
    void setArchived(const NodeName& name, bool archived) const;

    /// Commits what is pending in the node's worktree and starts a run of that commit, whose row it returns as it was
    /// made: queued. Refused for a frozen node, for one with a run in flight, for an invalid telemetry.toml, and where
    /// `maxRuns` runs of all projects are in flight already (0 or less is no limit). From the first of these checks to
    /// the row it holds a lock beside the store, so that of two processes one comes second.
    Run launch(const NodeName& name, std::int64_t maxRuns) const;

    /// Asks the run to stop, with one SIGTERM to all its processes, and returns its row as it stands then. A run that
    /// has ended is returned unchanged.
    Run cancel(const RunName& name) const;

    /// Fails the project's runs in flight whose supervisor is gone.
    void reconcile() const;
    /// The same for `runs` alone, each of which is of this project; a run that was closed is replaced by its fresh row.
    void reconcile(std::vector<Run>& runs) const;

    std::shared_ptr<ProjectStore> store;
    Project project;
    std::filesystem::path runsFolder;
    std::filesystem::path tools;
    /// Told the pid of each supervisor that launch() starts. The supervisor outlives this process and is waited for by
    /// nobody here, so a process that stays has to reap it when it ends.
    std::function<void(ProcessID supervisor)> adopt;

private:
    [[nodiscard]] Git repository() const { return Git(project.folders.front()); }
    /// A tree of this node alone, which costs what its own runs cost.
    [[nodiscard]] ExperimentTree alone(const Experiment& experiment) const;
    [[nodiscard]] std::string freeSlug(std::string_view title) const;
    [[nodiscard]] Run admit(const Experiment& experiment, std::int64_t maxRuns) const;
    void checkLimit(std::int64_t maxRuns) const;
    [[nodiscard]] std::string commitPending(const Experiment& experiment, std::size_t runsSoFar) const;
    void startSupervisor(const Run& run) const;
};

} // namespace veltry
