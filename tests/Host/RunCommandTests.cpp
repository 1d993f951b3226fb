#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/ProcessTable.h"
#include "Support/Eventually.h"
#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(RunCommands, MakeANodeRunItAndWaitForIt)
{
    const test::HostLab lab;
    const std::string command = "echo \"{\\\"loss\\\": 2}\" > $HARROWICK_RESULT_PATH; cat number";
    const std::string worktree = lab.veltry({"create", "Base", "--command", command, "--notes", "Why"}).output;
    ASSERT_EQ(worktree, (lab.repository.path() / ".veltry/worktrees/base").string() + "\n");
    EXPECT_EQ(lab.veltry({"notes", "base"}).output, "Why\n");
    EXPECT_THAT(lab.veltry({"notes", "base", "Because."}).error, HasSubstr("The notes of base are saved."));

    const ChildProcess::Output failed = lab.veltry({"run", "base", "--wait"}); // there is no file, and it is a result
    EXPECT_EQ(failed.exitNumber, 1);
    EXPECT_THAT(failed.output, HasSubstr("Run #1 failed after "));
    EXPECT_EQ(
        failed.error.substr(failed.error.find("veltry: ")),
        "veltry: Run #1 failed. veltry log 1 shows what it printed.\n");
    EXPECT_EQ(
        lab.veltry({"run", "base"}).error, "veltry: Run 1 answered Base, so its code is fixed. Create a child with "
                                           "veltry create to try something else.\n");

    Files::writeAtomically(
        std::string(*lab.json({"create", "Child", "--parent", "base"}).find("worktree")->string()) + "/number", "5\n");
    EXPECT_THAT(
        lab.veltry({"run", "child"}).output,
        AllOf(HasSubstr("Run #2 of child started, on commit "), Not(HasSubstr("\033"))));
    const ChildProcess::Output waited = lab.veltry({"wait", "2"});
    EXPECT_EQ(waited.exitNumber, 0) << waited.error;
    EXPECT_THAT(waited.output, HasSubstr("Run #2 succeeded after "));
    EXPECT_EQ(*lab.json({"notes", "base"}).find("notes")->string(), "Because.");
    EXPECT_EQ(lab.veltry({"wait"}).error, "No run is in flight.\n");
    EXPECT_EQ(lab.veltry({"cancel", "2"}).exitNumber, 0);
    EXPECT_THAT(
        lab.veltry({"create", "Twin", "--parent", "base", "--command", "false"}).error,
        HasSubstr("Leave --command out, and change the code on the child's branch instead."));
}

TEST(RunCommands, ArchiveNodesAndBringThemBack)
{
    const test::HostHistory lab;
    EXPECT_EQ(lab.veltry({"archive", "leaf", "nothing"}).exitNumber, 1);
    EXPECT_FALSE(lab.lab.experiment(lab.leaf.id).archived);
    EXPECT_EQ(lab.veltry({"archive", "leaf", lab.node.branch}).exitNumber, 0);
    EXPECT_TRUE(lab.lab.experiment(lab.leaf.id).archived);
    EXPECT_EQ(lab.veltry({"archive", "--restore", "leaf"}).exitNumber, 0);
    EXPECT_FALSE(lab.lab.experiment(lab.leaf.id).archived);
    EXPECT_TRUE(lab.lab.experiment(lab.node.id).archived);
}

TEST(RunCommands, EndWhateverIsLeftOfARunByForce)
{
    const struct {
        std::string name, command;
        std::vector<std::string> arguments;
        bool byForce;
    } cases[] = {
        {"one that obeys", "echo $$ > $MARK; exec sleep 600", {"--wait"}, false},
        {"one that obeys in its grace", "echo $$ > $MARK; exec sleep 600", {"--kill-after", "60"}, false},
        {"one that doesn't listen",
         "trap '' TERM; echo $$ > $MARK; while true; do sleep 0.1; done",
         {"--kill-after", "0.3"},
         true},
        {"a daemon that left the group",
         "(trap '' TERM; exec setsid sh -c 'echo $$ > $MARK; sleep 600') & sleep 600",
         {"--kill-after", "0.3"},
         true},
        {"one of the group without the environment",
         "(trap '' TERM; exec env -i sh -c 'echo $$ > '$MARK'; while true; do sleep 0.1; done') & sleep 600",
         {"--kill-after", "0.3"},
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const test::HostLab lab;
        const std::filesystem::path mark = lab / "mark";
        const Experiment node = lab.baseline("export MARK=" + mark.string() + "; " + c.command);
        const auto run = lab.lab.launch(node.id, 0);
        std::optional<std::int64_t> process;
        ASSERT_TRUE(test::eventually([&] {
            process = text::integer(text::trimmed(Files::readIfPossible(mark).value_or("")));
            return process && lab.store->run(run.id)->pid;
        }));
        std::vector<std::string> arguments{"cancel", "1"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ChildProcess::Output output = lab.veltry(arguments);
        EXPECT_EQ(output.exitNumber, 0) << output.error;
        EXPECT_THAT(output.output, HasSubstr("Run #1 was cancelled after "));
        EXPECT_EQ(output.error.contains("by force"), c.byForce) << output.error;
        EXPECT_TRUE(test::eventually([&] { return !ProcessTable::usage(static_cast<pid_t>(*process)); }));
        EXPECT_EQ(lab.finished(run.id).status, Run::Status::cancelled);
    }
}

TEST(RunCommands, WaitForAllOrForOneAndGiveUpInTime)
{
    const test::HostLab lab;
    const auto first = lab.lab.launch(lab.baseline("sleep 600", "A").id, 0);
    const auto second = lab.lab.launch(lab.baseline("sleep 1; exit 3", "B").id, 0);
    const ChildProcess::Output any = lab.veltry({"wait", "--any"});
    EXPECT_EQ(any.exitNumber, 1);
    EXPECT_THAT(any.output, HasSubstr("Run #2 failed after "));
    EXPECT_EQ(any.error, "veltry: These runs did not succeed: #2.\n");
    EXPECT_EQ(lab.finished(second.id).exitCode, 3);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"wait", "--timeout", "0.2"}, {"wait", "1", "--timeout", "0.2"}}) {
        const ChildProcess::Output output = lab.veltry(arguments);
        EXPECT_EQ(output.exitNumber, 1);
        EXPECT_THAT(output.error, HasSubstr("is over."));
    }
    EXPECT_EQ(lab.json({"cancel", "1", "--wait"}).find("status")->text(), "\"cancelled\"");
    EXPECT_EQ(lab.store->run(first.id)->status, Run::Status::cancelled);
    EXPECT_EQ(lab.veltry({"wait", "--timeout", "never"}).exitNumber, 2);
}

} // namespace
} // namespace veltry
