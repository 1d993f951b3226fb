#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

#include <algorithm>
#include <unordered_set>

namespace veltry {

namespace {

/// The last row of all projects: SQLite finds the end of the table at once, but not the end of a project's rows.
std::int64_t lastRowID(Connection& connection)
{
    return connection.firstInteger("SELECT MAX(rowid) FROM run").value_or(0);
}

std::optional<Run> runWithID(Connection& connection, const UUID& id)
{
    return decodeFirst<Run>(connection.query("SELECT * FROM run WHERE id = ?", id));
}

} // namespace

std::vector<Run> ProjectStore::runs(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Run>(connection.query("SELECT * FROM run WHERE project_id = ? ORDER BY number", projectID));
    });
}

std::vector<Run> ProjectStore::runsOfExperiment(const UUID& experimentID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Run>(
            connection.query("SELECT * FROM run WHERE experiment_id = ? ORDER BY number", experimentID));
    });
}

std::vector<Run> ProjectStore::unfinishedRuns() const
{
    return database_->read([](Connection& connection) {
        return decodeAll<Run>(
            connection.query("SELECT * FROM run WHERE status IN ('queued', 'running') ORDER BY created_at"));
    });
}

std::optional<Run> ProjectStore::run(const UUID& id) const
{
    return database_->read([&](Connection& connection) { return runWithID(connection, id); });
}

std::optional<Run> ProjectStore::run(std::int64_t number, const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeFirst<Run>(
            connection.query("SELECT * FROM run WHERE project_id = ? AND number = ?", projectID, number));
    });
}

ProjectStore::RunLook ProjectStore::runsInFlight(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return RunLook{
            .runs = decodeAll<Run>(connection.query(
                R"(SELECT * FROM run
WHERE project_id = ? AND status IN ('queued', 'running') ORDER BY number)",
                projectID)),
            .lastRowID = lastRowID(connection),
        };
    });
}

ProjectStore::RunLook ProjectStore::lookAgain(
    const UUID& projectID, std::span<const UUID> ids, std::int64_t after) const
{
    return database_->read([&](Connection& connection) {
        // The sign keeps SQLite from the index on project_id, which leads through the whole history.
        RunLook look{
            .runs = decodeAll<Run>(
                connection.query("SELECT * FROM run WHERE rowid > ? AND +project_id = ?", after, projectID)),
            // In the same snapshot as the rows, so that no row lies between this look and the next.
            .lastRowID = lastRowID(connection),
        };
        // Those that are waited for may be among the new rows as well.
        std::unordered_set<UUID> seen;
        for (const Run& run : look.runs)
            seen.insert(run.id);
        for (const UUID& id : ids) {
            if (!seen.insert(id).second)
                continue;
            if (std::optional<Run> run = runWithID(connection, id))
                look.runs.push_back(std::move(*run));
        }
        std::ranges::sort(look.runs, {}, &Run::number);
        return look;
    });
}

Run ProjectStore::insertRun(
    const UUID& id, const Experiment& experiment, const std::string& commit, const std::filesystem::path& directory)
{
    return database_->write([&](Connection& connection) {
        // In one transaction with the INSERT, so that two processes can't take the same number.
        const std::optional<std::int64_t> number = connection.firstInteger(
            "SELECT COALESCE(MAX(number), 0) + 1 FROM run WHERE project_id = ?", experiment.projectID);
        Run run{
            .id = id,
            .experimentID = experiment.id,
            .projectID = experiment.projectID,
            .number = number.value_or(1),
            .status = Run::Status::queued,
            .commit = commit,
            .command = experiment.runCommand,
            .directory = directory,
            .pid = {},
            .exitCode = {},
            .result = {},
            .cancelRequested = false,
            .createdAt = Date::now(),
            .endedAt = {},
        };
        connection.execute(
            R"(INSERT INTO run
  (id, experiment_id, project_id, number, status, commit_sha, command, directory,
   created_at)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?))",
            run.id, run.experimentID, run.projectID, run.number, toWord(run.status), run.commit, run.command,
            run.directory, run.createdAt);
        return run;
    });
}

void ProjectStore::markRunning(const UUID& id, std::int32_t pid)
{
    database_->write([&](Connection& connection) {
        // A run that was cancelled or given up for dead while it was queued stays so.
        connection.execute("UPDATE run SET status = 'running', pid = ? WHERE id = ? AND status = 'queued'", pid, id);
    });
}

void ProjectStore::finishRun(
    const UUID& id, Run::Status status, std::optional<std::int32_t> exitCode, const std::optional<std::string>& result)
{
    database_->write([&](Connection& connection) {
        // The supervisor and whoever finds it gone may both come here, and the first one counts.
        connection.execute(
            R"(UPDATE run SET status = ?, exit_code = ?, result = ?, ended_at = ?
WHERE id = ? AND status IN ('queued', 'running'))",
            toWord(status), exitCode, result, Date::now(), id);
    });
}

void ProjectStore::requestCancel(const UUID& id)
{
    // Only a wish, which the supervisor of the run looks for: the status changes when the run has ended.
    database_->write(
        [&](Connection& connection) { connection.execute("UPDATE run SET cancel_requested = 1 WHERE id = ?", id); });
}

} // namespace veltry
