#include "Experiments/RunLog/RunLog.h"
#include "Experiments/Spawn.h"
#include "Experiments/Supervisor.h"
#include "Platform/Files.h"
#include "SupervisedRun.h"
#include "Support/Eventually.h"
#include "Support/SmallDisk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>
#include <thread>

namespace veltry {
namespace {

using test::eventually;
using test::SmallDisk;
using test::SupervisedRun;
using test::TemporaryFolder;
using testing::HasSubstr;

using Status = veltry::Run::Status;

TEST(Supervisor, TheRowTellsHowTheCommandEnded)
{
    const struct {
        std::string_view command;
        Status status;
        std::optional<std::int32_t> exitCode;
        std::string_view log;
    } cases[] = {
        {"echo out; echo err >&2", Status::succeeded, 0, "out\nerr\n"},
        {"exit 3", Status::failed, 3, ""},
        {"no-such-command 2> /dev/null", Status::failed, 127, ""},
        {"kill -KILL $$", Status::failed, 137, ""},
        {"kill -TERM 0", Status::failed, 143, ""},
        {"printf 'no line feed'", Status::succeeded, 0, "no line feed"},
        {"exec 1>&- 2>&-; sleep 0.01", Status::succeeded, 0, ""},
        {"mkdir $HARROWICK_RESULT_PATH", Status::succeeded, 0, ""},
        {"mkfifo $HARROWICK_RESULT_PATH", Status::succeeded, 0, ""},
        {"ln -s /no/such $HARROWICK_RESULT_PATH", Status::succeeded, 0, ""},
        {"ln -s /dev/zero $HARROWICK_RESULT_PATH", Status::succeeded, 0, ""},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        SupervisedRun run(c.command);
        run.supervise();
        const veltry::Run row = run.row();
        EXPECT_EQ(row.status, c.status);
        EXPECT_EQ(row.exitCode, c.exitCode);
        EXPECT_EQ(row.result, std::nullopt);
        EXPECT_TRUE(row.pid.has_value());
        EXPECT_TRUE(row.endedAt.has_value());
        EXPECT_EQ(Files::read(row.log()), c.log);
        EXPECT_FALSE(Supervisor::isAlive(row));
        EXPECT_EQ(Files::read(row.directory / "supervisor.lock"), "");
    }
}

TEST(Supervisor, TheCommandSeesItsPathsAndItsNumber)
{
    ::setenv("HARROWICK_RUN", "999", 1);
    ::setenv("FROM_THE_SERVER", "kept", 1);
    SupervisedRun run(
        R"(echo "$HARROWICK_RESULT_PATH|$HARROWICK_TELEMETRY_PATH|$HARROWICK_RUN|$FROM_THE_SERVER"; pwd; ls /proc/self/fd)");
    run.supervise();
    const std::string folder = run.row().directory.string();
    EXPECT_EQ(
        Files::read(run.row().log()),
        folder + "/result.json|" + folder + "/telemetry.jsonl|1|kept\n" + folder + "/src\n0\n1\n2\n3\n")
        << "ls itself opens descriptor 3";
}

TEST(Supervisor, OnlyOneJSONObjectOf64KiBIsAResult)
{
    const std::string longest = "{\"a\":\"" + std::string(65536 - 8, 'x') + "\"}";
    const std::string note =
        "\nVeltry: result.json is not one JSON object of 64 KiB or less, so the run has no result.\n";

    const struct {
        std::string_view name;
        std::string file;
        std::optional<std::string> result;
    } cases[] = {
        {"kept byte for byte", "\n {\"b\" : 1.0,\n \"a\":2e0}\t\n", "{\"b\" : 1.0,\n \"a\":2e0}"},
        {"as long as may be", longest, longest},
        {"a byte too long", longest + " ", std::nullopt},
        {"an array", "[1]", std::nullopt},
        {"a number", "3", std::nullopt},
        {"empty", "", std::nullopt},
        {"two objects", "{}{}", std::nullopt},
        {"not JSON", "{'a': 1}", std::nullopt},
        {"not UTF-8", "{\"a\":\"\xFF\"}", std::nullopt},
        {"too deep", "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}", std::nullopt},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SupervisedRun run("exit 1");
        run.write("result.json", c.file);
        run.supervise();
        EXPECT_EQ(run.row().status, Status::failed) << "a failed run can have a result";
        EXPECT_EQ(run.row().result, c.result);
        EXPECT_EQ(Files::read(run.row().log()), c.result ? "" : note);
    }
}

TEST(Supervisor, ANoteStandsOnALineOfItsOwn)
{
    const struct {
        std::string_view command;
        std::string_view before;
    } cases[] = {
        {"printf 'no line feed'; printf 3 > $HARROWICK_RESULT_PATH", "no line feed\n"},
        {"echo whole; printf 3 > $HARROWICK_RESULT_PATH", "whole\n\n"},
        {"echo gone; rm ../log; printf 3 > $HARROWICK_RESULT_PATH", ""},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        SupervisedRun run(c.command);
        run.supervise();
        EXPECT_THAT(Files::read(run.row().log()), testing::StartsWith(std::string(c.before) + "Veltry: result.json"));
        EXPECT_EQ(run.row().status, Status::succeeded);
    }
    Supervisor::note("nowhere to go", "/no/such/folder/log");
}

TEST(Supervisor, WithoutASnapshotTheRunFailsAndTheLogSaysWhy)
{
    SupervisedRun run("true");
    std::filesystem::remove_all(run.row().source());
    run.supervise();
    EXPECT_EQ(run.row().status, Status::failed);
    EXPECT_EQ(run.row().exitCode, std::nullopt);
    EXPECT_EQ(run.row().pid, std::nullopt);
    const std::string shell = Spawn::loginShell().string();
    const std::string line = "Veltry could not start the run: Failure(executable: \"" + shell + "\", code: 2)";
    EXPECT_EQ(Files::read(run.row().log()), "\n" + line + "\n");
    const std::vector<RunLog::Line> lines = RunLog::tail(run.row().log(), 1);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].number, 2) << "the stamper's last look comes after the note";
}

TEST(Supervisor, ARunThatIsNotQueuedIsLeftAlone)
{
    SupervisedRun run("true");
    run.store().finishRun(run.id(), Status::cancelled, {}, {});
    run.supervise();
    EXPECT_EQ(run.row().status, Status::cancelled);
    EXPECT_FALSE(Files::exists(run.row().directory / "supervisor.lock"));
    Supervisor::supervise(UUID::random(), run.store());
}

TEST(Supervisor, OfManySupervisorsOneRunsTheCommand)
{
    SupervisedRun run("echo once");
    {
        std::vector<std::jthread> supervisors;
        for (int count = 0; count < 4; ++count)
            supervisors.emplace_back([&] { Supervisor::supervise(run.id(), run.store()); });
    }
    EXPECT_EQ(Files::read(run.row().log()), "once\n");
    EXPECT_EQ(run.row().status, Status::succeeded);
}

TEST(Supervisor, ACancelledRunKeepsItsExitCodeAndItsResult)
{
    // The shell waits and starts nothing when the signal comes: a child that is being forked would run the trap as
    // well.
    const struct {
        std::string_view command;
        std::int32_t exitCode;
    } cases[] = {
        {"trap 'echo {} > $HARROWICK_RESULT_PATH; exit 0' TERM; sleep 60 & echo ready; wait", 0},
        {"echo {} > $HARROWICK_RESULT_PATH; sleep 60 & echo ready; wait", 143},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        SupervisedRun run(c.command);
        std::jthread supervisor([&] { run.supervise(); });
        ASSERT_TRUE(eventually([&] { return Files::readIfPossible(run.row().log()) == "ready\n" && run.row().pid; }));
        EXPECT_TRUE(Supervisor::isAlive(run.row()));
        EXPECT_EQ(run.row().status, Status::running);
        run.store().requestCancel(run.id());
        ::kill(-*run.row().pid, SIGTERM);
        supervisor.join();
        EXPECT_EQ(run.row().status, Status::cancelled);
        EXPECT_EQ(run.row().exitCode, c.exitCode);
        EXPECT_EQ(run.row().result, "{}");
    }
}

TEST(Supervisor, ARunWithoutASideFileRunsAllTheSame)
{
    SupervisedRun run("echo fine");
    Files::createFolders(run.row().directory / "log.times");
    run.supervise();
    EXPECT_EQ(run.row().status, Status::succeeded);
    EXPECT_EQ(RunLog::tail(run.row().log(), 9), (std::vector<RunLog::Line>{{.number = {}, .at = {}, .text = "fine"}}));
}

TEST(Supervisor, ADiskThatFillsUpCostsLinesAndTimesAlone)
{
    const TemporaryFolder folder;
    const SmallDisk disk(folder / "runs");
    if (!disk.mounted)
        GTEST_SKIP() << "mounting a file system takes root";
    // Full, then two lines that fit in what is freed.
    SupervisedRun run(
        "echo first; dd if=/dev/zero of=../fill bs=4k 2> ../dd; yes 2> /dev/null; yes > ../more 2> /dev/null\n"
        "rm ../fill ../more; echo; echo last; printf 3 > $HARROWICK_RESULT_PATH; exit 5",
        folder / "runs");
    run.supervise();
    EXPECT_EQ(run.row().status, Status::failed);
    EXPECT_EQ(run.row().exitCode, 5);
    EXPECT_EQ(run.row().result, std::nullopt);
    EXPECT_THAT(Files::read(run.row().log()), HasSubstr("\nVeltry: result.json is not one JSON object"));
    EXPECT_EQ(std::filesystem::file_size(RunLog::times(run.row().log())) % 30, 0U);
    EXPECT_TRUE(RunLog::tail(run.row().log(), 1).at(0).at) << "later lines have their times again";
}

TEST(Supervisor, AStoreOnAFullDiskKeepsItsRowsAndTheErrorComesOut)
{
    const TemporaryFolder folder;
    const SmallDisk disk(folder / "disk");
    if (!disk.mounted)
        GTEST_SKIP() << "mounting a file system takes root";
    SupervisedRun run("cat /dev/zero > ../../fill 2> /dev/null; true", folder / "disk", folder / "disk/store.sqlite");
    EXPECT_THROW(run.supervise(), DatabaseError);
    EXPECT_FALSE(Supervisor::isAlive(run.row())) << "so that the next look finds it";
    EXPECT_EQ(run.row().status, Status::running);
    Files::remove(folder / "disk/fill");
    ProjectStore again(folder / "disk/store.sqlite");
    again.finishRun(run.id(), Status::failed, {}, {});
    EXPECT_EQ(again.run(run.id())->status, Status::failed);
}

} // namespace
} // namespace veltry
