#include "Projects/Migrations.h"
#include "Projects/ProjectStore.h"
#include "StoreProcesses.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    EXPECT_THAT(
        rows(
            path,
            "SELECT type, name, tbl_name FROM sqlite_master WHERE type != 'table' AND name NOT LIKE "
            "'sqlite_autoindex%' "
            "ORDER BY type, name",
            3),
        ElementsAre(
            "index|citation_on_paper_id|citation", "index|conversation_on_project_id|conversation",
            "index|experiment_on_project_id|experiment", "index|project_paper_on_paper_id|project_paper",
            "index|question_on_conversation_id|question", "index|run_on_experiment_id|run",
            "index|run_on_project_id|run", "trigger|conversation_text_delete|conversation_transcript",
            "trigger|conversation_text_insert|conversation_transcript",
            "trigger|conversation_text_update|conversation_transcript"));

    // name, type, NOT NULL, default, place in the primary key
    const struct {
        std::string table;
        std::vector<std::string> columns;
    } tables[] = {
        {"citation",
         {"experiment_id|TEXT|1||1", "paper_id|TEXT|1||2", "paper|TEXT|1||0", "reason|TEXT|1||0",
          "created_at|DOUBLE|1||0"}},
        {"conversation",
         {"id|TEXT|1||1", "project_id|TEXT|1||0", "title|TEXT|1||0", "harness|TEXT|1||0", "created_at|DOUBLE|1||0",
          "agent_session_id|TEXT|0||0", "archived_at|DOUBLE|0||0"}},
        {"conversation_text", {"text||0||0", "conversation_id||0||0", "item_id||0||0"}},
        {"conversation_transcript", {"conversation_id|TEXT|1||1", "items|BLOB|1||0"}},
        {"experiment",
         {"id|TEXT|1||1", "project_id|TEXT|1||0", "parent_id|TEXT|0||0", "slug|TEXT|1||0", "branch|TEXT|1||0",
          "title|TEXT|1||0", "notes|TEXT|1|''|0", "run_command|TEXT|1||0", "archived|BOOLEAN|1|0|0",
          "conversation_id|TEXT|0||0", "created_at|DOUBLE|1||0"}},
        {"grdb_migrations", {"identifier|TEXT|1||1"}},
        {"library_paper", {"id|TEXT|1||1", "paper|TEXT|1||0", "saved_at|DOUBLE|1||0"}},
        {"project",
         {"id|TEXT|1||1", "name|TEXT|1||0", "created_at|DOUBLE|1||0", "import_dismissed|BOOLEAN|1|0|0",
          "collapsed|BOOLEAN|1|0|0"}},
        {"project_folder", {"project_id|TEXT|1||1", "position|INTEGER|1||2", "path|TEXT|1||0"}},
        {"project_paper", {"project_id|TEXT|1||1", "paper_id|TEXT|1||2", "saved_at|DOUBLE|1||0"}},
        {"question",
         {"id|TEXT|1||1", "conversation_id|TEXT|1||0", "questions|TEXT|1||0", "answers|TEXT|0||0", "status|TEXT|1||0",
          "created_at|DOUBLE|1||0", "answered_at|DOUBLE|0||0"}},
        {"run",
         {"id|TEXT|1||1", "experiment_id|TEXT|1||0", "project_id|TEXT|1||0", "number|INTEGER|1||0", "status|TEXT|1||0",
          "commit_sha|TEXT|1||0", "command|TEXT|1||0", "directory|TEXT|1||0", "pid|INTEGER|0||0",
          "exit_code|INTEGER|0||0", "result|TEXT|0||0", "cancel_requested|BOOLEAN|1|0|0", "created_at|DOUBLE|1||0",
          "ended_at|DOUBLE|0||0"}},
    };

    std::vector<std::string> names;
    for (const auto& table : tables) {
        names.push_back(table.table);
        const std::string sql =
            "SELECT name, type, \"notnull\", coalesce(dflt_value, ''), pk FROM pragma_table_info('" + table.table +
            "')";
        EXPECT_EQ(rows(path, sql, 5), table.columns) << table.table;
    }
    EXPECT_EQ(
        rows(
            path, "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'conversation_text\\__%' "
                  "ESCAPE '\\' ORDER BY name"),
        names);
    EXPECT_THAT(
        rows(
            path,
            "SELECT m.name, k.\"from\", k.\"table\", k.on_delete, k.on_update FROM sqlite_master AS m, "
            "pragma_foreign_key_list(m.name) AS k WHERE m.type = 'table' ORDER BY m.name, k.\"from\"",
            5),
        ElementsAre(
            "citation|experiment_id|experiment|CASCADE|NO ACTION", "conversation|project_id|project|CASCADE|NO ACTION",
            "conversation_transcript|conversation_id|conversation|CASCADE|NO ACTION",
            "experiment|parent_id|experiment|SET NULL|NO ACTION", "experiment|project_id|project|CASCADE|NO ACTION",
            "project_folder|project_id|project|CASCADE|NO ACTION",
            "project_paper|paper_id|library_paper|CASCADE|NO ACTION",
            "project_paper|project_id|project|CASCADE|NO ACTION",
            "question|conversation_id|conversation|CASCADE|NO ACTION", "run|experiment_id|experiment|CASCADE|NO ACTION",
            "run|project_id|project|CASCADE|NO ACTION"));
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
    try {
        ProjectStore store(path);
        FAIL() << "it was opened";
    } catch (const DatabaseError& failure) {
        EXPECT_EQ(failure.extendedCode, SQLITE_CONSTRAINT_FOREIGNKEY);
    }
    EXPECT_THAT(rows(path, "SELECT * FROM grdb_migrations"), SizeIs(6));
}

} // namespace
} // namespace veltry::test
