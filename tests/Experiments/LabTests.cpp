#include "Experiments/Lab.h"
#include "Experiments/RunProcesses.h"
#include "Platform/ChildProcess.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Refusal.h"
#include "Support/Eventually.h"
#include "Support/TestLab.h"

#include <gmock/gmock.h>

#include <csignal>

namespace veltry {
namespace {

using test::eventually;
using test::refusal;
using test::TestLab;
using testing::HasSubstr;

TEST(Lab, NamesBranchesAfterTitles)
{
    const TestLab test;

    const struct {
        std::string title, slug;
    } cases[] = {
        {"LR 3e-5", "lr-3e-5"},
        {"  LR 3e-5\n", "lr-3e-5-2"},
        {"lr--3e 5!", "lr-3e-5-3"},
        {"Größe: 5%", "gr-e-5"},
        {"日本語", "experiment"},
        {"---", "experiment-2"},
        {std::string(60, 'a'), std::string(40, 'a')},
        {std::string(60, 'A'), std::string(40, 'a') + "-2"}, // the suffix isn't counted
        {std::string(39, 'b') + " c", std::string(39, 'b')}, // no dash is left by the cut
        {"left behind", "left-behind-2"},
        {"in the way", "in-the-way-2"},
    };

    test.repository.git({"branch", "veltry/left-behind"});
    test.repository.write(".veltry/worktrees/in-the-way", "a file");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        const Experiment node = test.baseline("true", c.title);
        EXPECT_EQ(node.slug, c.slug);
        EXPECT_EQ(node.branch, "veltry/" + c.slug);
        EXPECT_TRUE(Files::isFolder(test.repository.path() / ".veltry/worktrees" / c.slug));
    }
    EXPECT_EQ(test.repository.git({"status", "--porcelain"}), "") << "the worktrees don't show in the project";
}

TEST(Lab, RefusesANodeThatCannotBe)
{
    const TestLab test;
    const Experiment parent = test.baseline(" python3 train.py ");
    EXPECT_EQ(parent.runCommand, "python3 train.py");
    const Experiment orphan = test.baseline("true", "Orphan");
    test.repository.git({"worktree", "remove", "--force", test.lab.worktree(orphan).string()});
    test.repository.git({"branch", "-D", orphan.branch});

    const struct {
        std::string name;
        Lab::NewNode node;
        std::string error;
    } cases[] = {
        {"blank title", {" \n", "", {}, "true", {}}, "title_required: Give the experiment a title: the idea it tests."},
        {"a command of its own",
         {"A", "", parent.id, "python3 train.py ", {}},
         "run_command_inherited: A child runs its parent's command: python3 train.py. Leave run_command out, and "
         "change "
         "the code on the child's branch instead."},
        {"no id",
         {"A", "", NodeName::parse("Base"), {}, {}},
         "experiment_not_found: No experiment Base in this project. Call experiment_tree for the ids."},
        {"the parent's branch is gone",
         {"A", "", orphan.id, {}, {}},
         "branch_missing: The parent's branch veltry/orphan is gone from the repository."},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(refusal([&] { return test.lab.create(c.node); }), c.error);
    }
    // Passing exactly the parent's command is no change.
    const Experiment child = test.lab.create({"Child", "why", parent.id, "python3 train.py", {}});
    EXPECT_EQ(child.parentID, parent.id);
    EXPECT_EQ(child.notes, "why");

    const TestLab empty({.identity = true, .commit = false});
    EXPECT_EQ(
        refusal([&] { return empty.baseline("true"); }),
        "no_commits: The repository has no commits. Commit the project's code first.");
    const test::TemporaryFolder plain;
    const Lab elsewhere(
        test.store, test.store->createProject("Plain", {plain.path()}), test.runs(), test::toolsProgram());
    EXPECT_EQ(
        refusal([&] { return elsewhere.create({"A", "", NodeName::parse("no id"), {}, {}}); }),
        "not_a_repository: " + plain.path().string() +
            " is not a git repository. Run `git init` and commit the code first.");
}

TEST(Lab, AChildBeginsWithWhatItsParentCommitted)
{
    const TestLab test;
    const Experiment parent = test.baseline("true");
    test.write(parent, "committed.py", "1");
    const auto run = test.lab.launch(parent.id, 0);
    test.write(parent, "pending.py", "2");
    const Experiment child = test.child(parent, "Child");
    EXPECT_TRUE(Files::exists(test.lab.worktree(child) / "committed.py"));
    EXPECT_FALSE(Files::exists(test.lab.worktree(child) / "pending.py"));
    EXPECT_EQ(test.repository.git({"rev-parse", child.branch}), run.commit);
}

TEST(Lab, ARunSeesTheCommittedFilesAndFreezesItsNodeWithItsResult)
{
    const TestLab test;
    const Experiment node =
        test.baseline("cat data.txt; pwd; test ! -e ignored; cp data.txt \"$HARROWICK_RESULT_PATH\"");
    test.write(node, ".gitignore", "ignored\n");
    test.write(node, "ignored", "not to be seen");
    test.write(node, "data.txt", " {\"loss\": 1}\n");

    const auto queued = test.lab.launch(node.id, 0);
    EXPECT_EQ(queued.status, Run::Status::queued);
    EXPECT_EQ(queued.number, 1);
    EXPECT_EQ(queued.directory, test.runs() / queued.id.text());
    EXPECT_EQ(queued.commit, test.repository.git({"rev-parse", "veltry/baseline"}));
    EXPECT_EQ(test.repository.git({"log", "-1", "--format=%s", "veltry/baseline"}), "Baseline: run 1");

    const auto run = test.finished(queued.id);
    EXPECT_EQ(run.status, Run::Status::succeeded);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.result, "{\"loss\": 1}");
    EXPECT_EQ(Files::read(run.log()), " {\"loss\": 1}\n" + run.source().string() + "\n");
    EXPECT_TRUE(test.lab.isFrozen(node));
    EXPECT_EQ(
        refusal([&] { return test.lab.launch(node.id, 0); }),
        "frozen: Run 1 answered Baseline, so its code is fixed. Create a child with create_experiment to try something "
        "else.");
}

TEST(Lab, ANodeWithoutAnAnswerRunsAgainAndOneWithARunInFlightDoesNot)
{
    const TestLab test;
    const Experiment node = test.baseline("exit $(cat status)");
    test.write(node, "status", "3");
    const auto first = test.finished(test.lab.launch(node.id, 0).id);
    EXPECT_EQ(first.status, Run::Status::failed);
    EXPECT_EQ(first.exitCode, 3);
    EXPECT_FALSE(test.lab.isFrozen(node));

    // Nothing pending: the same commit runs again, and no empty one is made.
    const auto second = test.finished(test.lab.launch(node.id, 0).id);
    EXPECT_EQ(second.commit, first.commit);

    const Experiment slow = test.baseline("sleep 60", "Slow");
    test.lab.launch(slow.id, 0);
    EXPECT_EQ(
        refusal([&] { return test.lab.launch(slow.id, 0); }),
        "already_running: Run 3 of Slow is still running. Wait for it with wait_for_runs, or stop it with cancel_run.");
    // A result counts whatever the status.
    test.insertFinished(node, Run::Status::failed, 1, "{}");
    EXPECT_THAT(refusal([&] { return test.lab.launch(node.id, 0); }), HasSubstr("frozen: Run 4 answered"));
}

TEST(Lab, TheLimitCountsLiveRunsOfAllProjects)
{
    const TestLab test;
    const Experiment node = test.baseline("sleep 60");
    const test::Repository other;
    const Lab elsewhere(test.store, test.store->createProject("Q", {other.path()}), test.runs(), test::toolsProgram());
    const Experiment foreign = elsewhere.create({"Foreign", "", {}, "true", {}});
    const UUID young = UUID::random();
    test.store->insertRun(
        young, foreign, "commit", test.runs() / young.text()); // no supervisor, but it may be starting

    EXPECT_EQ(
        refusal([&] { return test.lab.launch(node.id, 1); }),
        "too_many_runs: 1 run is going, and settings.toml allows 1 at once. Wait for one with wait_for_runs, or raise "
        "experiments.max_runs.");
    test.lab.launch(node.id, 2);
    EXPECT_THAT(
        refusal([&] { return test.lab.launch(node.id, 2); }),
        HasSubstr("2 runs are going, and settings.toml allows 2 at once"));

    // The limit is looked at before the node, and a dead run counts no more.
    test.backdate(young, 11);
    EXPECT_THAT(refusal([&] { return test.lab.launch(node.id, 2); }), HasSubstr("already_running"));
    EXPECT_THAT(refusal([&] { return test.lab.launch(node.id, -1); }), HasSubstr("already_running"));
}

TEST(Lab, AnInvalidLayoutIsCommittedButSpendsNoNumber)
{
    const TestLab test;
    const Experiment node = test.baseline("true");
    test.write(node, "telemetry.toml", "zoom = 1\n");
    EXPECT_EQ(
        refusal([&] { return test.lab.launch(node.id, 0); }),
        "telemetry_invalid: telemetry.toml the file has \"zoom\", which is not one of x, panel, stat. Fix it in the "
        "node's worktree and call run_experiment again.");
    EXPECT_EQ(test.repository.git({"log", "-1", "--format=%s", node.branch}), "Baseline: run 1");
    test.write(node, "telemetry.toml", "");
    EXPECT_EQ(test.lab.launch(node.id, 0).number, 1);
}

TEST(Lab, ALaunchThatFailsSaysWhyAndLeavesAFailedRun)
{
    const TestLab test;
    const Experiment node = test.baseline("true");
    Lab broken = test.lab;
    broken.tools = "/nowhere/veltry-tools";
    EXPECT_EQ(
        refusal([&] { return broken.launch(node.id, 0); }),
        "launch_failed: Run 1 could not start: Failure(executable: \"/nowhere/veltry-tools\", code: 2)");
    EXPECT_EQ(test.lab.run(1).status, Run::Status::failed);
    EXPECT_EQ(test.lab.run(1).exitCode, std::nullopt);

    broken = test.lab;
    broken.runsFolder = test / "veltry.sqlite"; // a file in the folder's place
    EXPECT_THAT(refusal([&] { return broken.launch(node.id, 0); }), HasSubstr("launch_failed: Run 2 could not start:"));

    test.repository.git({"worktree", "remove", "--force", test.lab.worktree(node).string()});
    EXPECT_THAT(refusal([&] { return test.lab.launch(node.id, 0); }), HasSubstr("git_failed: git status"));
}

TEST(Lab, FindsARunByNumberOrIdWithinItsProject)
{
    const TestLab test;
    const Experiment node = test.baseline("true");
    const auto run = test.insertFinished(node);
    for (const std::string& text :
         {std::string("1"), std::string("#1"), std::string("#1#"), std::string("+1"), run.id.text()})
        EXPECT_EQ(test.lab.run(RunName::parse(text)), run) << text;
    for (const char* text : {"#", "2", "1.0", " 1", "", "99999999999999999999"})
        EXPECT_EQ(
            refusal([&] { return test.lab.run(RunName::parse(text)); }),
            std::string("run_not_found: No run ") + text + " in this project.");

    const Lab other(test.store, test.store->createProject("Q", {"/q"}), test.runs(), test::toolsProgram());
    EXPECT_THAT(refusal([&] { return other.run(run.id); }), HasSubstr("run_not_found"));
    EXPECT_THAT(refusal([&] { return other.experiment(node.id); }), HasSubstr("experiment_not_found"));
}

TEST(Lab, CancellingReachesEverythingThatARunStarted)
{
    const TestLab test;
    const Experiment node = test.baseline("sleep 60 & sleep 60 | sleep 60");
    const auto run = test.lab.launch(node.id, 0);
    ASSERT_TRUE(test::eventually([&] { return test.lab.run(1).pid.has_value(); }));
    const auto asked = test.lab.cancel(1);
    EXPECT_TRUE(asked.cancelRequested);
    const auto ended = test.finished(run.id);
    EXPECT_EQ(ended.status, Run::Status::cancelled);
    EXPECT_EQ(ended.exitCode, 128 + SIGTERM);
    EXPECT_TRUE(test::eventually([&] { return ::kill(-*ended.pid, 0) != 0; })) << "a process of the group is left";
    EXPECT_EQ(test.lab.cancel(1), test.lab.run(1)) << "asking again changes nothing";
}

TEST(Lab, CancellingReachesNoStranger)
{
    TestLab test;
    const Experiment node = test.baseline("true");
    const struct {
        std::string_view name;
        std::optional<double> lockAge; ///< seconds before the leader began; nothing for no lock
        bool isHeld, isReached;
    } cases[] = {
        {"its own, whose supervisor was lost", 1, false, true},
        {"a pid that was used again", 3600, false, false},
        {"an old run whose supervisor lives", 3600, true, true},
        {"no lock", {}, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ProcessID leader = ChildProcess::start(
            {.executable = "/bin/sleep", .arguments = {"60"}, .environment = {}, .group = ChildProcess::Group::own});
        const UUID id = UUID::random();
        test.store->insertRun(id, node, "commit", test.runs() / id.text());
        test.store->markRunning(id, leader);
        const std::filesystem::path lock = test.runs() / id.text() / "supervisor.lock";
        std::optional<FileLock> held;
        if (c.lockAge) {
            Files::createFolders(lock.parent_path());
            held = FileLock::tryTake(lock);
            const auto age = std::chrono::milliseconds(static_cast<int>(*c.lockAge * 1000));
            std::filesystem::last_write_time(lock, std::filesystem::file_time_type::clock::now() - age);
        }
        if (!c.isHeld)
            held.reset();
        static_cast<void>(test.lab.cancel(id));
        EXPECT_EQ(
            eventually([&] { return ChildProcess::reapIfEnded(leader); }, std::chrono::seconds(c.isReached ? 10 : 1)),
            c.isReached);
        if (!c.isReached)
            ChildProcess::endGroup(leader, std::chrono::seconds(0));
        test.store->finishRun(id, Run::Status::cancelled, {}, {});
    }
    for (const ProcessID pid : {0, 1, -1}) {
        veltry::Run run = test.lab.run(1);
        run.pid = pid;
        EXPECT_FALSE(RunProcesses::mayReachGroup(run)) << pid;
    }
}

TEST(Lab, ReconcilingFailsOldRunsWhoseSupervisorIsGone)
{
    const TestLab test;
    const Experiment node = test.baseline("sleep 60");
    const auto live = test.lab.launch(node.id, 0);
    ASSERT_TRUE(test::eventually([&] { return test.lab.run(1).status == Run::Status::running; }));
    const UUID young = UUID::random();
    const UUID old = UUID::random();
    test.store->insertRun(young, node, "commit", test.runs() / "none");
    test.store->insertRun(old, node, "commit", test.runs() / "none");
    test.backdate(live.id, 11);
    test.backdate(old, 11);

    test.lab.reconcile();
    EXPECT_EQ(test.store->run(live.id)->status, Run::Status::running);
    EXPECT_EQ(test.store->run(young)->status, Run::Status::queued);
    EXPECT_EQ(test.store->run(old)->status, Run::Status::failed);
    EXPECT_TRUE(test.store->run(old)->endedAt);

    ::kill(test.supervisors.front(), SIGKILL); // its run goes on as an orphan, and the row tells the truth
    EXPECT_TRUE(test::eventually([&] { return test.lab.tree().runs().front().status == Run::Status::failed; }));
    EXPECT_EQ(::kill(-*test.lab.run(1).pid, 0), 0);
    ::kill(-*test.lab.run(1).pid, SIGKILL);
}

} // namespace
} // namespace veltry
