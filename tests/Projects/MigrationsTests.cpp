#include "Projects/Migrations.h"
#include "Projects/ProjectStore.h"
#include "StoreSupport.h"

#include <sqlite3.h>

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class MigrationsTest : public testing::Test {
protected:
    /// A store that stopped behind one step, with what a script puts into it.
    void makeStore(std::string_view last, std::string_view script)
    {
        Database database(path);
        Migrations::apply(database, last);
        database.withConnection([&](Connection& connection) { connection.execute(script); });
    }

    TemporaryFolder folder;
    std::filesystem::path path = folder / "store";
};

TEST_F(MigrationsTest, LeaveTheWholeSchema)
{
    static_cast<void>(ProjectStore(path));
    // "!" marks NOT NULL, "=" a default, and the number the place in the primary key.
    EXPECT_THAT(
        rows(path, R"(SELECT name || ': ' || (SELECT group_concat(rtrim(name || ' ' || type) || iif("notnull", '!', '')
    || coalesce('=' || dflt_value, '') || iif(pk, ' ' || pk, ''), ', ') FROM pragma_table_info(m.name))
FROM sqlite_master AS m WHERE type = 'table' AND name NOT LIKE 'conversation_text\__%' ESCAPE '\' ORDER BY name)"),
        ElementsAre(
            "citation: experiment_id TEXT! 1, paper_id TEXT! 2, paper TEXT!, reason TEXT!, created_at DOUBLE!",
            "conversation: id TEXT! 1, project_id TEXT!, title TEXT!, harness TEXT!, created_at DOUBLE!, "
            "agent_session_id TEXT, archived_at DOUBLE",
            "conversation_text: text, conversation_id, item_id",
            "conversation_transcript: conversation_id TEXT! 1, items BLOB!",
            "experiment: id TEXT! 1, project_id TEXT!, parent_id TEXT, slug TEXT!, branch TEXT!, title TEXT!, "
            "notes TEXT!='', run_command TEXT!, archived BOOLEAN!=0, conversation_id TEXT, created_at DOUBLE!",
            "grdb_migrations: identifier TEXT! 1", //
            "library_paper: id TEXT! 1, paper TEXT!, saved_at DOUBLE!",
            "project: id TEXT! 1, name TEXT!, created_at DOUBLE!, import_dismissed BOOLEAN!=0, collapsed BOOLEAN!=0",
            "project_folder: project_id TEXT! 1, position INTEGER! 2, path TEXT!",
            "project_paper: project_id TEXT! 1, paper_id TEXT! 2, saved_at DOUBLE!",
            "question: id TEXT! 1, conversation_id TEXT!, questions TEXT!, answers TEXT, status TEXT!, "
            "created_at DOUBLE!, answered_at DOUBLE",
            "run: id TEXT! 1, experiment_id TEXT!, project_id TEXT!, number INTEGER!, status TEXT!, commit_sha TEXT!, "
            "command TEXT!, directory TEXT!, pid INTEGER, exit_code INTEGER, result TEXT, cancel_requested BOOLEAN!=0, "
            "created_at DOUBLE!, ended_at DOUBLE"));
}

TEST_F(MigrationsTest, NameTheStepThatFailsOnOneLine)
{
    makeStore("v1", "CREATE TABLE experiment (x); CREATE TABLE run (x)");
    EXPECT_THAT(
        [&] { ProjectStore store(path); },
        testing::Throws<DatabaseError>(testing::Property(
            &DatabaseError::description,
            testing::MatchesRegex(
                "SQLite error 1: table .* already exists - while bringing the store up to date \\(v[0-9]\\)"))));
}

TEST_F(MigrationsTest, IndexOldTranscripts)
{
    makeStore("v6", R"sql(
INSERT INTO project (id, name, created_at) VALUES ('P', 'p', 1);
INSERT INTO conversation (id, project_id, title, harness, created_at)
VALUES ('A', 'P', '', '', 1), ('B', 'P', '', '', 1), ('C', 'P', '', '', 1);
INSERT INTO conversation_transcript VALUES
('A', CAST('[{"id":"1","kind":{"user":{"_0":"said"}}},{"id":"2","kind":{"tool":{"_0":"ran"}}},
  {"id":"3","kind":{"agent":{"_0":"answered"}}},{"id":"4"}]' AS BLOB)),
('B', X'FF00'),
('C', CAST('{"kind":' AS BLOB)))sql");
    static_cast<void>(ProjectStore(path));
    EXPECT_THAT(
        rows(path, "SELECT text, conversation_id, item_id FROM conversation_text", 3),
        ElementsAre("said|A|1", "answered|A|3"));
}

TEST_F(MigrationsTest, GiveProjectsThePapersTheyCite)
{
    makeStore("v9", R"sql(
INSERT INTO project (id, name, created_at) VALUES ('P', 'p', 1);
INSERT INTO experiment (id, project_id, slug, branch, title, run_command, created_at)
VALUES ('E', 'P', 'e', '', '', '', 1), ('F', 'P', 'f', '', '', '', 1);
INSERT INTO library_paper VALUES ('W1', '', 0), ('W2', '', 0);
INSERT INTO citation VALUES ('E', 'W1', '', '', 7.5), ('F', 'W1', '', '', 5.5), ('E', 'gone', '', '', 1))sql");
    static_cast<void>(ProjectStore(path));
    EXPECT_THAT(rows(path, "SELECT * FROM project_paper", 3), ElementsAre("P|W1|5.5"));
}

TEST_F(MigrationsTest, AStepThatFailsLeavesThoseBeforeIt)
{
    makeStore("v6", "CREATE TABLE library_paper (mine)");
    EXPECT_THROW(ProjectStore store(path), DatabaseError);
    EXPECT_THAT(rows(path, "SELECT * FROM grdb_migrations"), SizeIs(7));
    execute(path, "DROP TABLE library_paper");
    static_cast<void>(ProjectStore(path));
    EXPECT_THAT(rows(path, "SELECT * FROM grdb_migrations"), SizeIs(10));
}

TEST_F(MigrationsTest, AStepMeetsADanglingKey)
{
    makeStore("v6", "PRAGMA foreign_keys = OFF; INSERT INTO project_folder VALUES ('nobody', 0, '/a')");
    EXPECT_EQ(failureOf([&] { ProjectStore store(path); }).extendedCode, SQLITE_CONSTRAINT_FOREIGNKEY);
    EXPECT_THAT(rows(path, "SELECT * FROM grdb_migrations"), SizeIs(6));
}

} // namespace
} // namespace veltry::test
