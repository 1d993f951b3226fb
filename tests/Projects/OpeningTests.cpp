#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Projects/Migrations.h"
#include "Projects/ProjectStore.h"
#include "StoreSupport.h"
#include "Support/LogLines.h"

#include <sqlite3.h>

#include <cstdlib>
#include <future>

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

class OpeningTest : public testing::Test {
protected:
    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            result.push_back(entry.path().filename());
        return result;
    }

    void write(const std::string& suffix, std::string_view bytes) const
    {
        Files::writeAtomically(path.string() + suffix, bytes);
    }

    /// A WAL of another connection's, as long as the result lives.
    std::unique_ptr<ProjectStore> makeStoreWithWAL() const
    {
        auto store = std::make_unique<ProjectStore>(path);
        store->createProject("kept", {"/kept"});
        return store;
    }

    TemporaryFolder folder;
    std::filesystem::path path = folder / "veltry.sqlite";
    LogLines log{"store"};
};

TEST_F(OpeningTest, MakesFolderAndStoreOnce)
{
    const std::filesystem::path deep = folder / "a/b/veltry.sqlite";
    EXPECT_EQ(ProjectStore(deep).path(), deep);
    for (const char* made : {"a", "a/b"})
        EXPECT_EQ(std::filesystem::status(folder / made).permissions(), std::filesystem::perms::owner_all) << made;
    EXPECT_EQ(rows(deep, "PRAGMA journal_mode"), std::vector<std::string>{"wal"});
    const std::string first = Files::read(deep);
    EXPECT_EQ(ProjectStore::openOrReplace(deep).movedAside, std::nullopt);
    EXPECT_TRUE(Files::read(deep) == first);

    EXPECT_TRUE(ProjectStore("relative.sqlite").path().is_absolute());
    std::filesystem::remove("relative.sqlite");
    write("", ""); // an empty file is an empty store
    EXPECT_EQ(ProjectStore::openOrReplace(path).movedAside, std::nullopt);
    EXPECT_THAT(rows(path, "SELECT * FROM grdb_migrations"), SizeIs(10));
    EXPECT_THROW(ProjectStore(path / "veltry.sqlite"), SystemError);
}

TEST_F(OpeningTest, FindsTheDefaultPath)
{
    ::setenv("XDG_DATA_HOME", "/data", 1);
    EXPECT_EQ(ProjectStore::defaultPath(), "/data/Harrowick Veltry/veltry.sqlite");
    ::setenv("VELTRY_DATABASE_PATH", "odd/../place", 1);
    EXPECT_EQ(ProjectStore::defaultPath(), "odd/../place");
    ::unsetenv("VELTRY_DATABASE_PATH");
    ::unsetenv("XDG_DATA_HOME");
}

TEST_F(OpeningTest, ReplacesOnlyWhatCannotBeRead)
{
    static_cast<void>(ProjectStore(path));
    std::string corrupt = Files::read(path);
    corrupt[100] = '\xFF'; // the kind of the schema's root page

    const struct {
        std::string_view name, bytes;
        int code;
    } cases[] = {
        {"no database",
         "These are notes, and rather more of them than a page header would hold. "
         "They go on for a while, so that the file isn't too short to be a database.",
         SQLITE_NOTADB},
        {"broken pages", corrupt, SQLITE_CORRUPT},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const TemporaryFolder own;
        const std::filesystem::path file = own / "s.db";
        Files::writeAtomically(file, c.bytes);
        EXPECT_EQ(failureOf([&] { ProjectStore store(file); }).primaryCode(), c.code);
        EXPECT_TRUE(Files::read(file) == c.bytes);

        const ProjectStore::Opened opened = ProjectStore::openOrReplace(file);
        ASSERT_TRUE(opened.movedAside);
        EXPECT_THAT(opened.movedAside->string(), MatchesRegex(file.string() + "\\.unreadable-[0-9]+"));
        EXPECT_TRUE(Files::read(*opened.movedAside) == c.bytes);
        EXPECT_THAT(opened.store->projects(), IsEmpty());
        EXPECT_FALSE(Files::exists(opened.movedAside->string() + "-shm"));
    }
    EXPECT_THAT(log.lines, SizeIs(2));
    EXPECT_EQ(
        log.lines.front(), "the database is unreadable, moving it aside: SQLite error 26: file is not a database "
                           "- while executing `SELECT * FROM sqlite_master LIMIT 1`");
}

TEST_F(OpeningTest, TheOldWALGoesAsideAsItWas)
{
    static_cast<void>(makeStoreWithWAL());
    const std::string notes(5000, 'n'); // nor is it a WAL, but what it was is not for us to judge
    write("", notes);
    write("-wal", "what was written last");
    write("-wal.before-open", "from a crash");
    const ProjectStore::Opened opened = ProjectStore::openOrReplace(path);
    ASSERT_TRUE(opened.movedAside);
    EXPECT_EQ(Files::read(opened.movedAside->string() + "-wal"), "what was written last");
    EXPECT_FALSE(Files::exists(path.string() + "-wal.before-open"));
}

TEST_F(OpeningTest, LooksAndRecoversAtOnceWithoutChangingWhatACrashLeft)
{
    const std::filesystem::path crashed = folder / "crashed";
    static_cast<void>(ProjectStore(path)); // so that the WAL doesn't hold the damaged page
    {
        const std::unique_ptr<ProjectStore> store = makeStoreWithWAL();
        for (const char* suffix : {"", "-wal"})
            Files::copy(path.string() + suffix, crashed.string() + suffix);
    }
    EXPECT_FALSE(ProjectStore::isForeign(crashed));
    std::string damaged = Files::read(crashed);
    damaged[0] = 'X';
    Files::writeAtomically(crashed, damaged);
    const std::string wal = Files::read(crashed.string() + "-wal");
    ASSERT_FALSE(wal.empty());
    EXPECT_THROW(static_cast<void>(ProjectStore::isForeign(crashed)), DatabaseError);
    EXPECT_THROW(ProjectStore store(crashed), DatabaseError);

    std::vector<std::future<std::optional<std::filesystem::path>>> recoveries;
    for (int count = 0; count < 6; ++count)
        recoveries.push_back(
            std::async(std::launch::async, [&] { return ProjectStore::openOrReplace(crashed).movedAside; }));
    std::vector<std::filesystem::path> aside;
    for (auto& recovery : recoveries)
        if (const auto moved = recovery.get())
            aside.push_back(*moved);
    ASSERT_THAT(aside, SizeIs(1));
    EXPECT_TRUE(Files::read(aside[0]) == damaged);
    EXPECT_TRUE(Files::read(aside[0].string() + "-wal") == wal);
    EXPECT_THAT(ProjectStore::integrityProblems(crashed), IsEmpty());
}

TEST_F(OpeningTest, ALookTellsAForeignDatabaseAndWritesNothing)
{
    const std::filesystem::path foreign = folder / "a %?#.db";
    execute(foreign, "CREATE TABLE theirs (x)");
    write("", "");
    static_cast<void>(ProjectStore(folder / "ours"));
    const std::vector<std::string> before = names();
    EXPECT_TRUE(ProjectStore::isForeign(foreign));
    EXPECT_FALSE(ProjectStore::isForeign(path));
    EXPECT_FALSE(ProjectStore::isForeign(folder / "ours"));
    EXPECT_THAT(names(), UnorderedElementsAreArray(before));
}

TEST_F(OpeningTest, AStoreInUseIsOpenedBesideItsWAL)
{
    const std::unique_ptr<ProjectStore> first = makeStoreWithWAL();
    ASSERT_GT(std::filesystem::file_size(path.string() + "-wal"), 0U);
    write("-wal.before-open", "from a crash");
    const ProjectStore::Opened second = ProjectStore::openOrReplace(path);
    EXPECT_EQ(second.movedAside, std::nullopt);
    EXPECT_THAT(second.store->projects(), SizeIs(1));
    EXPECT_THAT(names(), UnorderedElementsAre("veltry.sqlite", "veltry.sqlite-wal", "veltry.sqlite-shm"));
}

TEST_F(OpeningTest, ANewerStoreStaysAsItIs)
{
    static_cast<void>(ProjectStore(path));
    execute(path, "INSERT INTO grdb_migrations VALUES ('v11'); DELETE FROM grdb_migrations WHERE identifier = 'v3'");
    const std::string before = Files::read(path);
    EXPECT_THROW(static_cast<void>(ProjectStore::openOrReplace(path)), ProjectStoreError);
    EXPECT_TRUE(Files::read(path) == before);
    EXPECT_THAT(names(), ElementsAre("veltry.sqlite"));
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(OpeningTest, EightProcessesOpenOneStoreAtOnce)
{
    for (int round = 0; round < 5; ++round) {
        const std::filesystem::path missing = folder / ("missing" + std::to_string(round));
        EXPECT_THAT(inProcesses(8, missing), IsEmpty());

        const std::filesystem::path old = folder / ("old" + std::to_string(round));
        {
            Database database(old);
            Migrations::apply(database, "v6");
            database.write([](Connection& connection) {
                connection.execute(
                    R"(INSERT INTO project (id, name, created_at) VALUES ('P', 'p', 1);
INSERT INTO conversation (id, project_id, title, harness, created_at) VALUES ('C', 'P', 't', 'h', 1);
INSERT INTO conversation_transcript VALUES ('C', CAST('[{"id":"1","kind":{"user":{"_0":"hello"}}}]' AS BLOB)))");
            });
        }
        EXPECT_THAT(inProcesses(8, old), IsEmpty());
        EXPECT_THAT(rows(old, "SELECT text FROM conversation_text"), ElementsAre("hello"));
        for (const std::filesystem::path& store : {missing, old})
            EXPECT_THAT(
                rows(store, "SELECT identifier FROM grdb_migrations ORDER BY rowid"),
                ElementsAre("v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10"));
    }
}

} // namespace
} // namespace veltry::test
