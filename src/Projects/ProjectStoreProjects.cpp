#include "Base/Text.h"
#include "Platform/SystemError.h"
#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

#include <algorithm>
#include <unordered_map>

namespace veltry {

namespace {

using Path = std::filesystem::path;
using FoldersByProject = std::unordered_map<std::string, std::vector<Path>>; ///< by the text of the project's id

/// All folders by one query; asking for each project's would cost a query a project.
FoldersByProject readFolders(Connection& connection)
{
    FoldersByProject folders;
    Statement rows = connection.query("SELECT project_id, path FROM project_folder ORDER BY project_id, position");
    while (rows.step())
        folders[rows.string(0)].push_back(rows.path(1));
    return folders;
}

Path standard(const Path& folder)
{
    std::error_code error;
    Path result = std::filesystem::absolute(folder, error).lexically_normal();
    if (error)
        throw SystemError("could not find the path " + folder.string(), error.value());
    return result.has_filename() ? result : result.parent_path(); // "/a/b/" is "/a/b", and "/" stays
}

std::vector<Path> standardOnce(const std::vector<Path>& folders)
{
    std::vector<Path> result;
    for (const Path& folder : folders) {
        Path one = standard(folder);
        if (std::ranges::find(result, one) == result.end())
            result.push_back(std::move(one));
    }
    return result;
}

void insertFolder(Connection& connection, const UUID& projectID, std::int64_t position, const Path& folder)
{
    connection.execute(
        "INSERT INTO project_folder (project_id, position, path) VALUES (?, ?, ?)", projectID, position, folder);
}

} // namespace

std::vector<Project> ProjectStore::projects() const
{
    return database_->read([](Connection& connection) {
        const FoldersByProject folders = readFolders(connection);
        std::vector<Project> projects;
        Statement rows = connection.query("SELECT * FROM project ORDER BY created_at, rowid");
        while (rows.step()) {
            std::optional<Project> project = decodeRow<Project>(rows);
            if (!project)
                continue;
            // By the stored text: another program may write an id in other letters than ours.
            if (const auto own = folders.find(rows.string(rows.column("id"))); own != folders.end())
                project->folders = own->second;
            projects.push_back(std::move(*project));
        }
        return projects;
    });
}

Project ProjectStore::createProject(std::string_view name, const std::vector<Path>& folders)
{
    Project project;
    project.folders = standardOnce(folders);
    if (project.folders.empty())
        throw ProjectStoreError(ProjectStoreError::Kind::noFolders);
    project.name = text::trimmed(name);
    if (project.name.empty()) {
        const Path& first = project.folders.front();
        project.name = first.has_filename() ? first.filename().string() : first.string();
    }
    project.id = UUID::random();
    project.createdAt = Date::now();

    database_->write([&](Connection& connection) {
        connection.execute(
            "INSERT INTO project (id, name, created_at) VALUES (?, ?, ?)", project.id, project.name, project.createdAt);
        std::int64_t position = 0;
        for (const Path& folder : project.folders)
            insertFolder(connection, project.id, position++, folder);
    });
    return project;
}

void ProjectStore::renameProject(const UUID& id, std::string_view name)
{
    const std::string_view trimmed = text::trimmed(name);
    if (trimmed.empty())
        return;
    database_->write(
        [&](Connection& connection) { connection.execute("UPDATE project SET name = ? WHERE id = ?", trimmed, id); });
}

void ProjectStore::dismissImport(const UUID& id)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE project SET import_dismissed = 1 WHERE id = ?", id);
    });
}

void ProjectStore::setCollapsed(const UUID& id, bool collapsed)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE project SET collapsed = ? WHERE id = ?", collapsed, id);
    });
}

void ProjectStore::addFolder(const Path& folder, const UUID& projectID)
{
    const Path added = standard(folder);
    database_->write([&](Connection& connection) {
        const std::vector<std::string> present =
            connection.texts("SELECT path FROM project_folder WHERE project_id = ?", projectID);
        if (std::ranges::find(present, added.native()) != present.end())
            return;
        // In one transaction with the look before, so that two who add don't take the same position.
        const std::optional<std::int64_t> position =
            connection.firstInteger("SELECT MAX(position) + 1 FROM project_folder WHERE project_id = ?", projectID);
        insertFolder(connection, projectID, position.value_or(0), added);
    });
}

void ProjectStore::removeProject(const UUID& id)
{
    database_->write([&](Connection& connection) { connection.execute("DELETE FROM project WHERE id = ?", id); });
}

} // namespace veltry
