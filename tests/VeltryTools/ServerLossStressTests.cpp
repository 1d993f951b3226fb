#include "Platform/Files.h"
#include "Projects/Database.h"
#include "ServerLab.h"
#include "Support/Eventually.h"
#include "Support/SmallDisk.h"
#include "Support/Stress.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <random>
#include <thread>

namespace veltry {
namespace {

using test::ServerLab;
using test::SmallDisk;
using test::stressed;
using testing::HasSubstr;

constexpr double pastStarting = 11; // seconds after which a run without a supervisor counts as lost

std::string integrity(const std::filesystem::path& store)
{
    return Database(store).withConnection(
        [](Connection& connection) { return connection.texts("PRAGMA integrity_check").at(0); });
}

/// Waits until nothing is seen to work in the lab any more: no server, supervisor, git or tar.
void waitForQuiet(const ServerLab& test)
{
    EXPECT_TRUE(test::eventually([&] {
        return test::processes::withArgument((test / "").string()).empty() &&
               test::processes::withArgument(test.repository.path().string()).empty();
    }));
}

/// The lab as it stands after a kill: a new server must tell the truth of all that is stored, and the node must run
/// again.
void checkAfterLoss(const ServerLab& test, const Experiment& node, const std::string& change)
{
    const std::vector<Run> stored = test.store->runs(test.lab.project.id);
    for (const Run& run : stored)
        if (!run.isFinished())
            test.backdate(run.id, pastStarting);
    auto server = test.serve();
    std::string tree;
    std::vector<Run> told;
    // A supervisor that is about to start, or to die, still has its run in flight, and rightly so.
    ASSERT_TRUE(test::eventually([&] {
        tree = server.call("experiment_tree");
        told = test.store->runs(test.lab.project.id);
        return std::ranges::all_of(told, [](const Run& run) { return run.isFinished(); });
    }));
    ASSERT_EQ(told.size(), stored.size());
    for (std::size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].number, static_cast<std::int64_t>(i) + 1);
        if (stored[i].isFinished()) {
            EXPECT_EQ(told[i], stored[i]) << "what was stored stays";
        }
        EXPECT_EQ(told[i].status, told[i].exitCode ? Run::Status::succeeded : Run::Status::failed);
        EXPECT_THAT(tree, HasSubstr(fmt::format("run {} of Baseline: {}", i + 1, toWord(told[i].status))));
        EXPECT_NO_THROW(test.repository.git({"cat-file", "-e", told[i].commit}));
    }
    const Run again = test.finished(test::startedRun(server.call("run_experiment", test::naming(node))));
    EXPECT_EQ(again.status, Run::Status::succeeded);
    EXPECT_EQ(test.repository.git({"show", again.commit + ":change"}), change) << "no change is lost";
}

TEST(ServerLossStress, AKillAtAnyMomentLosesNothingThatWasStored)
{
    const struct {
        std::string name;
        bool server, supervisor;
    } victims[] = {{"the server", true, false}, {"the supervisor", false, true}, {"both", true, true}};

    std::mt19937 source(7);
    for (const auto& victim : victims) {
        SCOPED_TRACE(victim.name);
        const ServerLab test;
        const Experiment node = test.baseline("true");
        const std::string supervisors = fmt::format("supervise{0}--db{0}{1}", '\0', test.database().string());
        for (int round = 0; round < std::max(stressed(60), 4); ++round) {
            const std::string change = fmt::format("{} {}", victim.name, round);
            test.write(node, "change", change);
            test.write(node, "much", std::string(1'000'000, static_cast<char>('a' + round % 26)));
            {
                auto server = test.serve(); // ends by force when it goes out of scope
                const std::int64_t call = server.sendCall("run_experiment", test::naming(node));
                if (!victim.server)
                    static_cast<void>(test::startedRun(test::toolText(server.answer(call))));
                // Not a wait for anything: the moment is what is tried.
                std::this_thread::sleep_for(std::chrono::milliseconds(source() % 200));
                if (victim.supervisor)
                    for (const pid_t supervisor : test::processes::withArgument(supervisors))
                        ::kill(supervisor, SIGKILL);
            }
            waitForQuiet(test);
            checkAfterLoss(test, node, change);
            waitForQuiet(test);
            if (HasFailure())
                return;
        }
        EXPECT_EQ(test.repository.git({"fsck", "--strict", "--no-dangling", "--no-progress"}), "");
        EXPECT_EQ(test.repository.git({"-C", test.lab.worktree(node).string(), "status", "--porcelain"}), "");
        EXPECT_EQ(integrity(test.database()), "ok");
    }
}

TEST(ServerLossStress, AStoreOnAFullDiskIsToldAndServesAgainWhenThereIsRoom)
{
    const test::TemporaryFolder folder;
    const SmallDisk disk(folder / "disk");
    if (!disk.mounted)
        GTEST_SKIP() << "mounting a file system takes root";
    const ServerLab test(disk / "veltry.sqlite");
    const Experiment node = test.baseline("true");
    const Experiment held = test.baseline(test.holding(), "Held");
    auto server = test.serve();
    const UUID run = test::startedRun(server.call("run_experiment", test::naming(held)));
    ASSERT_TRUE(test::eventually([&] { return test.store->run(run)->status == Run::Status::running; }));

    Database(test.database()).withConnection([](Connection& file) { file.execute("PRAGMA wal_checkpoint(TRUNCATE)"); });
    disk.fill();
    JSONValue notes = JSONValue::object({{"experiment_id", node.id.text()}, {"notes", std::string(100'000, 'n')}});
    for (const std::int64_t call :
         {server.sendCall("set_experiment_notes", notes), server.sendCall("run_experiment", test::naming(node))})
        EXPECT_THAT(test::toolText(server.answer(call)), HasSubstr("full"));
    EXPECT_THAT(server.call("experiment_tree"), HasSubstr("run 1 of Held: running"));
    test.letGo();
    ASSERT_TRUE(test::eventually([&] { return test::processes::childrenOf(server.pid()).empty(); }))
        << "the supervisor ends though it can't store the end";

    disk.clear();
    test.backdate(run, pastStarting);
    EXPECT_THAT(server.call("experiment_tree"), HasSubstr("run 1 of Held: failed no result"));
    EXPECT_EQ(server.call("set_experiment_notes", notes), "Notes saved.");
    const auto next = test.finished(test::startedRun(server.call("run_experiment", test::naming(node))));
    EXPECT_EQ(next.number, 2);
    EXPECT_EQ(next.status, Run::Status::succeeded);
    EXPECT_EQ(integrity(test.database()), "ok");
}

} // namespace
} // namespace veltry
