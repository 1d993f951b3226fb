#include "Projects/Database.h"
#include "StoreSupport.h"

#include <sqlite3.h>

#include <thread>

namespace veltry::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class DatabaseTest : public testing::Test {
protected:
    DatabaseTest() { execute(path, "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'one')"); }

    TemporaryFolder folder;
    std::filesystem::path path = folder / "store";
    Database database{path, std::chrono::milliseconds(50)};
};

TEST_F(DatabaseTest, TellsWhatFailed)
{
    const DatabaseError failure = failureOf([&] {
        database.write([](Connection& c) { c.execute("CREATE UNIQUE INDEX i ON t (a)"); });
        database.write([](Connection& c) { c.execute("INSERT INTO t VALUES (?, ?)", 1, "again"); });
    });
    EXPECT_EQ(failure.extendedCode, SQLITE_CONSTRAINT_UNIQUE);
    EXPECT_EQ(failure.primaryCode(), SQLITE_CONSTRAINT);
    EXPECT_EQ(
        failure.description(),
        "SQLite error 19: UNIQUE constraint failed: t.a - while executing `INSERT INTO t VALUES (?, ?)`");
    EXPECT_EQ(failure.arguments, (std::vector<DatabaseError::Argument>{std::int64_t{1}, std::string("again")}));
    const auto doubleQuotes = [](Connection& c) { c.execute(R"(SELECT * FROM t WHERE b = "one")"); };
    // Newer versions put the name in quotes and advise.
    EXPECT_THAT(
        failureOf([&] { database.read(doubleQuotes); }).message,
        AllOf(StartsWith("no such column: "), HasSubstr("one")));
}

TEST_F(DatabaseTest, ReadsWriteNothingAndAFailureLeavesNoTrace)
{
    const auto insert = [](Connection& connection) { connection.execute("INSERT INTO t VALUES (2, 'two')"); };
    EXPECT_EQ(failureOf([&] { database.read(insert); }).primaryCode(), SQLITE_READONLY);
    EXPECT_THROW(
        database.write([&](Connection& connection) {
            insert(connection);
            throw std::runtime_error("in the middle");
        }),
        std::runtime_error);
    EXPECT_THAT(rows(path, "SELECT b FROM t"), ElementsAre("one"));
    database.write(insert); // neither left a transaction behind, or the rule of a read
    EXPECT_THAT(rows(path, "SELECT b FROM t"), ElementsAre("one", "two"));
}

TEST_F(DatabaseTest, SeesOneSnapshotAndSchemaChangesOfOthers)
{
    const auto names = [](Connection& c) { return c.texts("SELECT b FROM t ORDER BY a"); };
    database.read([&](Connection& connection) {
        EXPECT_THAT(names(connection), ElementsAre("one"));
        execute(path, "INSERT INTO t VALUES (2, 'two')");
        EXPECT_THAT(names(connection), ElementsAre("one"));
    });
    execute(path, "ALTER TABLE t ADD COLUMN c DEFAULT 7; INSERT INTO t VALUES (3, 'three', 8)");
    database.read([&](Connection& connection) {
        EXPECT_THAT(names(connection), ElementsAre("one", "two", "three"));
        Statement row = connection.query("SELECT * FROM t");
        ASSERT_TRUE(row.step());
        EXPECT_EQ(row.integer(row.column("C")), 7);
        EXPECT_EQ(failureOf([&] { static_cast<void>(row.column("d")); }).message, "no such column: d");
    });
}

TEST_F(DatabaseTest, WaitsForAnotherWriterOnlyForItsTime)
{
    Database other(path);
    other.write([&](Connection&) {
        const DatabaseError failure = failureOf([&] { database.write([](Connection&) {}); });
        EXPECT_EQ(
            failure.description(), "SQLite error 5: database is locked - while executing "
                                   "`BEGIN IMMEDIATE TRANSACTION`");
        EXPECT_EQ(database.read([](Connection& c) { return c.firstInteger("SELECT count(*) FROM t"); }), 1);
    });
    database.write([](Connection&) {});
}

TEST_F(DatabaseTest, ThreadsTakeTurns)
{
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round)
                database.write([](Connection& connection) {
                    const std::int64_t next = connection.firstInteger("SELECT max(a) + 1 FROM t").value();
                    connection.execute("INSERT INTO t VALUES (?, 'more')", next);
                });
        });
    threads.clear();
    EXPECT_THAT(rows(path, "SELECT count(DISTINCT a) || ' ' || max(a) FROM t"), ElementsAre("201 201"));
}

} // namespace
} // namespace veltry::test
