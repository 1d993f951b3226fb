#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

namespace veltry {

namespace {

/// An UPDATE that meets no row is no error to SQLite.
void requireChange(const Connection& connection, const UUID& id)
{
    if (connection.changes() < 1)
        throw ExperimentStoreError(ExperimentStoreError::Kind::notFound, id.text());
}

} // namespace

std::vector<Experiment> ProjectStore::experiments(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Experiment>(
            connection.query("SELECT * FROM experiment WHERE project_id = ? ORDER BY created_at, rowid", projectID));
    });
}

std::optional<Experiment> ProjectStore::experiment(const UUID& id) const
{
    return database_->read([&](Connection& connection) {
        return decodeFirst<Experiment>(connection.query("SELECT * FROM experiment WHERE id = ?", id));
    });
}

void ProjectStore::insertExperiment(const Experiment& experiment)
{
    database_->write([&](Connection& connection) {
        connection.execute(
            R"(INSERT INTO experiment
  (id, project_id, parent_id, slug, branch, title, notes, run_command, archived,
   conversation_id, created_at)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?))",
            experiment.id, experiment.projectID, experiment.parentID, experiment.slug, experiment.branch,
            experiment.title, experiment.notes, experiment.runCommand, experiment.archived, experiment.conversationID,
            experiment.createdAt);
    });
}

void ProjectStore::setNotes(const UUID& id, std::string_view notes)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE experiment SET notes = ? WHERE id = ?", notes, id);
        requireChange(connection, id);
    });
}

void ProjectStore::setArchived(const UUID& id, bool archived)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE experiment SET archived = ? WHERE id = ?", archived, id);
        requireChange(connection, id);
    });
}

} // namespace veltry
