#include "Projects/Database.h"
#include "Projects/ProjectStore.h"

namespace veltry {

namespace {

struct ExperimentRow {
    using Record = Experiment;

    explicit ExperimentRow(const Statement& rows)
        : id(rows.column("id")), projectID(rows.column("project_id")), parentID(rows.column("parent_id")),
          slug(rows.column("slug")), branch(rows.column("branch")), title(rows.column("title")),
          notes(rows.column("notes")), runCommand(rows.column("run_command")), archived(rows.column("archived")),
          conversationID(rows.column("conversation_id")), createdAt(rows.column("created_at"))
    {
    }

    std::optional<Experiment> operator()(const Statement& row) const
    {
        const std::optional<UUID> ownID = row.id(id);
        const std::optional<UUID> project = row.id(projectID);
        if (!ownID || !project)
            return std::nullopt;
        return Experiment{
            .id = *ownID,
            .projectID = *project,
            .parentID = row.id(parentID),
            .slug = row.string(slug),
            .branch = row.string(branch),
            .title = row.string(title),
            .notes = row.string(notes),
            .runCommand = row.string(runCommand),
            .archived = row.flag(archived),
            .conversationID = row.id(conversationID),
            .createdAt = row.date(createdAt),
        };
    }

    int id, projectID, parentID, slug, branch, title, notes, runCommand, archived, conversationID, createdAt;
};

void requireChange(const Connection& connection, const UUID& id)
{
    if (connection.changes() < 1)
        throw ExperimentStoreError(ExperimentStoreError::Kind::notFound, id.text());
}

} // namespace

std::vector<Experiment> ProjectStore::experiments(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<ExperimentRow>(
            connection.query("SELECT * FROM experiment WHERE project_id = ? ORDER BY created_at, rowid", projectID));
    });
}

std::optional<Experiment> ProjectStore::experiment(const UUID& id) const
{
    return database_->read([&](Connection& connection) {
        return decodeFirst<ExperimentRow>(connection.query("SELECT * FROM experiment WHERE id = ?", id));
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
