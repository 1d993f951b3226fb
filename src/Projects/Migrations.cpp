#include "Projects/Migrations.h"

#include "Projects/Database.h"
#include "Projects/ProjectStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace veltry::Migrations {

namespace {

// clang-format off: the scripts are SQL, and what stands in a trigger is stored to the byte.
// Other programs open the same stores and know these names and scripts: what stands here stays, and what changes is a
// new row at the end.
constexpr Migration migrations[] = {
    {"v1", R"sql(
CREATE TABLE project (
  id TEXT PRIMARY KEY NOT NULL,
  name TEXT NOT NULL,
  created_at DOUBLE NOT NULL);
CREATE TABLE project_folder (
  project_id TEXT NOT NULL REFERENCES project ON DELETE CASCADE,
  position INTEGER NOT NULL,
  path TEXT NOT NULL,
  PRIMARY KEY (project_id, position));
CREATE TABLE conversation (
  id TEXT PRIMARY KEY NOT NULL,
  project_id TEXT NOT NULL REFERENCES project ON DELETE CASCADE,
  title TEXT NOT NULL,
  harness TEXT NOT NULL,
  created_at DOUBLE NOT NULL);
CREATE INDEX conversation_on_project_id ON conversation (project_id);
)sql"},
    {"v2", R"sql(
ALTER TABLE conversation ADD COLUMN agent_session_id TEXT;
CREATE TABLE conversation_transcript (
  conversation_id TEXT PRIMARY KEY NOT NULL REFERENCES conversation ON DELETE CASCADE,
  items BLOB NOT NULL);
)sql"},
    {"v3", R"sql(
ALTER TABLE project ADD COLUMN import_dismissed BOOLEAN NOT NULL DEFAULT 0;
)sql"},
    {"v4", R"sql(
CREATE TABLE experiment (
  id TEXT PRIMARY KEY NOT NULL,
  project_id TEXT NOT NULL REFERENCES project ON DELETE CASCADE,
  parent_id TEXT REFERENCES experiment ON DELETE SET NULL,
  slug TEXT NOT NULL,
  branch TEXT NOT NULL,
  title TEXT NOT NULL,
  notes TEXT NOT NULL DEFAULT '',
  run_command TEXT NOT NULL,
  archived BOOLEAN NOT NULL DEFAULT 0,
  conversation_id TEXT,
  created_at DOUBLE NOT NULL,
  UNIQUE (project_id, slug));
CREATE INDEX experiment_on_project_id ON experiment (project_id);
CREATE TABLE run (
  id TEXT PRIMARY KEY NOT NULL,
  experiment_id TEXT NOT NULL REFERENCES experiment ON DELETE CASCADE,
  project_id TEXT NOT NULL REFERENCES project ON DELETE CASCADE,
  number INTEGER NOT NULL,
  status TEXT NOT NULL,
  commit_sha TEXT NOT NULL,
  command TEXT NOT NULL,
  directory TEXT NOT NULL,
  pid INTEGER,
  exit_code INTEGER,
  result TEXT,
  cancel_requested BOOLEAN NOT NULL DEFAULT 0,
  created_at DOUBLE NOT NULL,
  ended_at DOUBLE);
CREATE INDEX run_on_experiment_id ON run (experiment_id);
CREATE INDEX run_on_project_id ON run (project_id);
)sql"},
    {"v5", R"sql(
ALTER TABLE project ADD COLUMN collapsed BOOLEAN NOT NULL DEFAULT 0;
ALTER TABLE conversation ADD COLUMN archived_at DOUBLE;
)sql"},
    {"v6", R"sql(
CREATE TABLE question (
  id TEXT PRIMARY KEY NOT NULL,
  conversation_id TEXT NOT NULL REFERENCES conversation ON DELETE CASCADE,
  questions TEXT NOT NULL,
  answers TEXT,
  status TEXT NOT NULL,
  created_at DOUBLE NOT NULL,
  answered_at DOUBLE);
CREATE INDEX question_on_conversation_id ON question (conversation_id);
)sql"},
    {"v7", R"sql(
CREATE VIRTUAL TABLE conversation_text USING fts5(
  text, conversation_id UNINDEXED, item_id UNINDEXED,
  tokenize = 'unicode61 remove_diacritics 2');
CREATE TRIGGER conversation_text_insert AFTER INSERT ON conversation_transcript BEGIN
  INSERT INTO conversation_text (text, conversation_id, item_id)
SELECT coalesce(json_extract(j.value, '$.kind.user._0'), json_extract(j.value, '$.kind.agent._0')),
NEW.conversation_id, json_extract(j.value, '$.id') FROM json_each(CASE WHEN json_valid(CAST(NEW.items AS TEXT)) THEN CAST(NEW.items AS TEXT) ELSE '[]' END) AS j
WHERE json_extract(j.value, '$.kind.user._0') IS NOT NULL
OR json_extract(j.value, '$.kind.agent._0') IS NOT NULL;
END;
CREATE TRIGGER conversation_text_update AFTER UPDATE OF items ON conversation_transcript
BEGIN
  DELETE FROM conversation_text WHERE conversation_id = OLD.conversation_id;
  INSERT INTO conversation_text (text, conversation_id, item_id)
SELECT coalesce(json_extract(j.value, '$.kind.user._0'), json_extract(j.value, '$.kind.agent._0')),
NEW.conversation_id, json_extract(j.value, '$.id') FROM json_each(CASE WHEN json_valid(CAST(NEW.items AS TEXT)) THEN CAST(NEW.items AS TEXT) ELSE '[]' END) AS j
WHERE json_extract(j.value, '$.kind.user._0') IS NOT NULL
OR json_extract(j.value, '$.kind.agent._0') IS NOT NULL;
END;
CREATE TRIGGER conversation_text_delete AFTER DELETE ON conversation_transcript BEGIN
  DELETE FROM conversation_text WHERE conversation_id = OLD.conversation_id;
END;
INSERT INTO conversation_text (text, conversation_id, item_id)
SELECT coalesce(json_extract(j.value, '$.kind.user._0'), json_extract(j.value, '$.kind.agent._0')),
t.conversation_id, json_extract(j.value, '$.id')
FROM conversation_transcript AS t, json_each(CASE WHEN json_valid(CAST(t.items AS TEXT)) THEN CAST(t.items AS TEXT) ELSE '[]' END) AS j
WHERE json_extract(j.value, '$.kind.user._0') IS NOT NULL
OR json_extract(j.value, '$.kind.agent._0') IS NOT NULL;
)sql"},
    {"v8", R"sql(
CREATE TABLE library_paper (
  id TEXT PRIMARY KEY NOT NULL,
  paper TEXT NOT NULL,
  saved_at DOUBLE NOT NULL);
)sql"},
    {"v9", R"sql(
CREATE TABLE citation (
  experiment_id TEXT NOT NULL REFERENCES experiment ON DELETE CASCADE,
  paper_id TEXT NOT NULL,
  paper TEXT NOT NULL,
  reason TEXT NOT NULL,
  created_at DOUBLE NOT NULL,
  PRIMARY KEY (experiment_id, paper_id));
CREATE INDEX citation_on_paper_id ON citation (paper_id);
)sql"},
    {"v10", R"sql(
CREATE TABLE project_paper (
  project_id TEXT NOT NULL REFERENCES project ON DELETE CASCADE,
  paper_id TEXT NOT NULL REFERENCES library_paper ON DELETE CASCADE,
  saved_at DOUBLE NOT NULL,
  PRIMARY KEY (project_id, paper_id));
CREATE INDEX project_paper_on_paper_id ON project_paper (paper_id);
INSERT OR IGNORE INTO project_paper (project_id, paper_id, saved_at)
SELECT e.project_id, c.paper_id, min(c.created_at)
FROM citation AS c
JOIN experiment AS e ON e.id = c.experiment_id
JOIN library_paper AS l ON l.id = c.paper_id
GROUP BY e.project_id, c.paper_id
)sql"},
};
// clang-format on

bool isKnown(std::string_view identifier)
{
    return std::ranges::any_of(migrations, [&](const Migration& one) { return one.identifier == identifier; });
}

std::vector<std::string> applied(Connection& connection)
{
    return connection.texts("SELECT identifier FROM grdb_migrations");
}

bool isApplied(Connection& connection, const Migration& migration)
{
    return connection.firstInteger("SELECT 1 FROM grdb_migrations WHERE identifier = ?", migration.identifier)
        .has_value();
}

/// Before the commit: keys that were off while the step ran aren't checked when they come on again.
void refuseDanglingKeys(Connection& connection)
{
    Statement violation = connection.query("PRAGMA foreign_key_check");
    if (violation.step())
        throw DatabaseError(
            SQLITE_CONSTRAINT_FOREIGNKEY,
            "a row of " + violation.string(0) + " refers to a row of " + violation.string(2) + " that isn't there");
}

/// Foreign keys are off while a step runs. The pragma does nothing inside a transaction, hence around it.
class ForeignKeysOff {
public:
    explicit ForeignKeysOff(Connection& connection) : connection_(connection)
    {
        connection.execute("PRAGMA foreign_keys = OFF");
    }

    ForeignKeysOff(const ForeignKeysOff&) = delete;
    ForeignKeysOff& operator=(const ForeignKeysOff&) = delete;

    ~ForeignKeysOff()
    {
        try {
            connection_.execute("PRAGMA foreign_keys = ON");
        } catch (const DatabaseError&) {
            return; // the opening fails with what led here
        }
    }

private:
    Connection& connection_;
};

void apply(Connection& connection, const Migration& migration)
{
    const ForeignKeysOff off(connection);
    Transaction transaction(connection, Transaction::Kind::writing);
    if (isApplied(connection, migration)) // by another process, since the list was read
        return;
    try {
        connection.execute(migration.script);
    } catch (const DatabaseError& failure) {
        // The step's name says more than its script, which goes over many lines.
        throw DatabaseError(
            failure.extendedCode,
            failure.message + " - while bringing the store up to date (" + std::string(migration.identifier) + ")");
    }
    // In the step's own transaction, so that a step is either whole and noted or not there at all.
    connection.execute("INSERT INTO grdb_migrations (identifier) VALUES (?)", migration.identifier);
    refuseDanglingKeys(connection);
    transaction.commit();
}

} // namespace

std::span<const Migration> all()
{
    return migrations;
}

void refuseNewer(Database& database)
{
    const std::vector<std::string> identifiers = database.read([](Connection& connection) {
        const bool isNew =
            !connection.firstInteger("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'grdb_migrations'");
        return isNew ? std::vector<std::string>() : applied(connection);
    });
    if (!std::ranges::all_of(identifiers, isKnown))
        throw ProjectStoreError(ProjectStoreError::Kind::madeByNewerVeltry);
}

void apply(Database& database, std::string_view last)
{
    database.withConnection([&](Connection& connection) {
        connection.execute("CREATE TABLE IF NOT EXISTS grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY)");
        const std::vector<std::string> done = applied(connection);
        for (const Migration& migration : migrations) {
            if (std::ranges::find(done, migration.identifier) == done.end())
                apply(connection, migration);
            if (migration.identifier == last)
                return;
        }
    });
}

} // namespace veltry::Migrations
