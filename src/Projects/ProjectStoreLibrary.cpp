#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

#include <algorithm>

namespace veltry {

namespace {

/// The form of the `paper` columns.
std::string stored(const Paper& paper)
{
    return toJSON(paper).text(JSONValue::Slashes::escaped);
}

/// The first paper with that id, as the paper itself says.
std::optional<Paper> paperWithID(std::string_view id, Statement rows)
{
    std::vector<Paper> papers = decodeAll<Paper>(std::move(rows));
    const auto found = std::ranges::find(papers, id, &Paper::id);
    return found == papers.end() ? std::nullopt : std::optional(std::move(*found));
}

void insertIntoLibrary(Connection& connection, const Paper& paper, const std::string& text, Date now)
{
    connection.execute(
        "INSERT OR IGNORE INTO library_paper (id, paper, saved_at) VALUES (?, ?, ?)", paper.id, text, now);
}

} // namespace

std::vector<Paper> ProjectStore::libraryPapers() const
{
    return database_->read([](Connection& connection) {
        return decodeAll<Paper>(connection.query("SELECT paper FROM library_paper ORDER BY saved_at DESC, rowid DESC"));
    });
}

std::vector<Paper> ProjectStore::libraryPapers(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Paper>(connection.query(
            R"(SELECT l.paper FROM project_paper AS p JOIN library_paper AS l ON l.id = p.paper_id
WHERE p.project_id = ? ORDER BY p.saved_at DESC, p.rowid DESC)",
            projectID));
    });
}

std::optional<Paper> ProjectStore::libraryPaper(std::string_view paperID) const
{
    return database_->read([&](Connection& connection) {
        std::optional<Paper> paper =
            paperWithID(paperID, connection.query("SELECT paper FROM library_paper WHERE id = ?", paperID));
        // Other programs may have keyed the row otherwise. What counts is what the paper says.
        return paper ? std::move(paper)
                     : paperWithID(
                           paperID, connection.query(
                                        R"(SELECT paper FROM library_paper
WHERE json_valid(paper) AND json_extract(paper, '$.id') = ? ORDER BY saved_at DESC, rowid DESC)",
                                        paperID));
    });
}

std::optional<Paper> ProjectStore::libraryPaper(std::string_view paperID, const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        std::optional<Paper> paper = paperWithID(
            paperID, connection.query(
                         R"(SELECT l.paper FROM project_paper AS p JOIN library_paper AS l ON l.id = p.paper_id
WHERE p.project_id = ? AND p.paper_id = ?)",
                         projectID, paperID));
        return paper ? std::move(paper)
                     : paperWithID(
                           paperID,
                           connection.query(
                               R"(SELECT l.paper FROM project_paper AS p JOIN library_paper AS l ON l.id = p.paper_id
WHERE p.project_id = ? AND json_valid(l.paper) AND json_extract(l.paper, '$.id') = ?
ORDER BY p.saved_at DESC, p.rowid DESC)",
                               projectID, paperID));
    });
}

std::unordered_map<UUID, std::vector<std::string>> ProjectStore::projectPapers() const
{
    return database_->read([](Connection& connection) {
        std::unordered_map<UUID, std::vector<std::string>> papers;
        Statement row =
            connection.query("SELECT project_id, paper_id FROM project_paper ORDER BY saved_at DESC, rowid DESC");
        while (row.step())
            if (const std::optional<UUID> project = row.id(0))
                papers[*project].push_back(row.string(1));
        return papers;
    });
}

void ProjectStore::savePaper(const Paper& paper, const std::optional<UUID>& projectID)
{
    const std::string text = stored(paper);
    const Date now = Date::now();
    database_->write([&](Connection& connection) {
        insertIntoLibrary(connection, paper, text, now);
        if (projectID)
            connection.execute(
                "INSERT OR IGNORE INTO project_paper (project_id, paper_id, saved_at) VALUES (?, ?, ?)", *projectID,
                paper.id, now);
    });
}

void ProjectStore::removePaper(std::string_view paperID, const std::optional<UUID>& projectID)
{
    database_->write([&](Connection& connection) {
        if (projectID)
            connection.execute("DELETE FROM project_paper WHERE project_id = ? AND paper_id = ?", *projectID, paperID);
        else
            connection.execute("DELETE FROM library_paper WHERE id = ?", paperID);
    });
}

void ProjectStore::cite(const Paper& paper, const UUID& experimentID, std::string_view reason)
{
    const std::string text = stored(paper);
    const Date now = Date::now();
    database_->write([&](Connection& connection) {
        // Citing again changes the reason alone: the paper and the date of the first time stay.
        connection.execute(
            R"(INSERT INTO citation (experiment_id, paper_id, paper, reason, created_at)
VALUES (?, ?, ?, ?, ?)
ON CONFLICT (experiment_id, paper_id) DO UPDATE SET reason = excluded.reason)",
            experimentID, paper.id, text, reason, now);
        insertIntoLibrary(connection, paper, text, now);
        connection.execute(
            R"(INSERT OR IGNORE INTO project_paper (project_id, paper_id, saved_at)
SELECT project_id, ?, ? FROM experiment WHERE id = ?)",
            paper.id, now, experimentID);
    });
}

void ProjectStore::removeCitation(std::string_view paperID, const UUID& experimentID)
{
    database_->write([&](Connection& connection) {
        connection.execute("DELETE FROM citation WHERE experiment_id = ? AND paper_id = ?", experimentID, paperID);
    });
}

std::vector<Citation> ProjectStore::citations(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Citation>(connection.query(
            R"(SELECT c.* FROM citation AS c JOIN experiment AS e ON e.id = c.experiment_id
WHERE e.project_id = ? ORDER BY c.created_at, c.rowid)",
            projectID));
    });
}

std::map<std::string, std::vector<CitingExperiment>> ProjectStore::citingExperiments() const
{
    return database_->read([](Connection& connection) {
        std::map<std::string, std::vector<CitingExperiment>> citing;
        Statement row = connection.query(
            R"(SELECT c.paper_id, c.reason, e.id, e.project_id, e.conversation_id, e.title
FROM citation AS c JOIN experiment AS e ON e.id = c.experiment_id
WHERE NOT e.archived ORDER BY c.created_at, c.rowid)");
        while (row.step()) {
            const std::optional<UUID> experiment = row.id(2);
            const std::optional<UUID> project = row.id(3);
            if (!experiment || !project)
                continue;
            citing[row.string(0)].push_back({
                .experimentID = *experiment,
                .projectID = *project,
                .conversationID = row.id(4),
                .title = row.string(5),
                .reason = row.string(1),
            });
        }
        return citing;
    });
}

} // namespace veltry
