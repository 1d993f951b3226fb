#pragma once

#include "Experiments/Lab.h"
#include "Support/McpProcess.h"
#include "Support/Repository.h"
#include "Support/TemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace veltry::test {

/// A lab over a real repository, a store and a runs folder of its own, which starts the real supervisor.
class TestLab {
public:
    TestLab() : TestLab(Repository::Options{}) {}

    /// `database` is where the store lies, if not in the lab's own folder.
    explicit TestLab(Repository::Options options, const std::filesystem::path& database = {});
    /// Ends the runs that still go and waits for their supervisors.
    ~TestLab();
    TestLab(const TestLab&) = delete;
    TestLab& operator=(const TestLab&) = delete;

    [[nodiscard]] std::filesystem::path database() const { return store->path(); }

    [[nodiscard]] std::filesystem::path runs() const { return folder_ / "Runs"; }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return folder_ / name; }

    /// The arguments of a server for this project.
    [[nodiscard]] std::vector<std::string> serverArguments() const;

    /// A server with these arguments behind its own; of an option that stands there twice the last counts.
    [[nodiscard]] McpProcess serve(
        const std::vector<std::string>& more = {}, const ChildProcess::Environment& environment = {}) const;

    /// A baseline with that command.
    Experiment baseline(const std::string& command, const std::string& title = "Baseline") const;
    Experiment child(const Experiment& parent, const std::string& title) const;
    /// Puts a file into the node's worktree.
    void write(const Experiment& node, std::string_view name, std::string_view contents) const;

    /// The run's row once it has ended; throws after half a minute.
    [[nodiscard]] Run finished(const UUID& id) const;
    /// Inserts an ended run that no process carried out.
    Run insertFinished(
        const Experiment& node, Run::Status status = Run::Status::succeeded, std::optional<std::int32_t> exitCode = 0,
        const std::optional<std::string>& result = std::nullopt) const;
    /// Makes a run older than it is, as if it had been started that long ago.
    void backdate(const UUID& run, double seconds) const;

    /// The supervisors that `lab` has started.
    std::vector<pid_t> supervisors;

private:
    TemporaryFolder folder_;

public:
    Repository repository;
    std::shared_ptr<ProjectStore> store;
    Lab lab;
};

} // namespace veltry::test
