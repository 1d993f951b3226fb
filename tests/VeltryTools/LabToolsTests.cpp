#include "Platform/Files.h"
#include "QuickTools.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::call;
using test::quickTools;
using test::TestLab;
using testing::HasSubstr;
using testing::SizeIs;

TEST(LabTools, AnswersTheWholeRoadInWords)
{
    const TestLab test;
    LabTools tools = quickTools(test);
    tools.conversation = UUID::random();
    const auto ask = [&](const std::string& name, std::string_view arguments) {
        return call(tools, name, JSONValue::parse(arguments));
    };
    const std::string created =
        ask("create_experiment",
            R"({"title":" LR 3e-5 ","description":"why","run_command":"echo hi; echo '{}' > $HARROWICK_RESULT_PATH"})");
    const Experiment node = test.lab.experiments().at(0);
    EXPECT_EQ(
        created,
        "Created LR 3e-5 (" + node.id.text() + ") on veltry/lr-3e-5.\nWorktree: " + test.lab.worktree(node).string() +
            "\nRun command: echo hi; echo '{}' > $HARROWICK_RESULT_PATH\nMake the change in the worktree, then call "
            "run_experiment.");
    EXPECT_EQ(node.notes, "why");
    EXPECT_EQ(node.conversationID, tools.conversation);

    const std::string id = R"({"experiment_id":")" + node.id.text() + R"("})";
    const std::string started = ask("run_experiment", id);
    const auto run = test.lab.run(1);
    EXPECT_EQ(
        started, "Run 1 started (" + run.id.text() + ") at " + run.commit.substr(0, 12) +
                     ".\nLog: " + run.log().string() + "\nCall wait_for_runs to wait for it.");
    EXPECT_EQ(ask("wait_for_runs", "{}"), "run 1 of LR 3e-5: succeeded (exit 0) result {}\n0 still in flight.");
    EXPECT_EQ(ask("wait_for_runs", "{}"), "Nothing is in flight.");
    EXPECT_EQ(
        ask("get_run", R"({"run":1,"log_lines":"3"})"),
        "Run 1 of LR 3e-5\nid: " + run.id.text() + "\nstatus: succeeded\ncommit: " + run.commit +
            "\ncommand: " + run.command + "\nexit code: 0\nresult: {}\ndirectory: " + run.directory.string() +
            "\nlog, last 3 lines:\nhi");
    EXPECT_THAT(ask("get_run", R"({"run":"#1","log_lines":0})"), testing::EndsWith("log, last 0 lines:\n(empty)"));
    EXPECT_EQ(ask("cancel_run", R"({"run":"1"})"), "Asked run 1 to stop.");

    const std::string notes = R"({"experiment_id":")" + node.id.text() + R"(","notes":" n "})";
    EXPECT_EQ(ask("set_experiment_notes", notes), "Notes saved.");
    EXPECT_EQ(test.lab.experiments().at(0).notes, " n ");
    EXPECT_EQ(ask("archive_experiment", id), "Archived.");
    EXPECT_THAT(ask("experiment_tree", "{}"), HasSubstr("The tree is empty."));
    const std::string archivedAs = R"({"experiment_id":")" + node.id.text() + R"(","archived":)";
    EXPECT_EQ(ask("archive_experiment", archivedAs + "\"false\"}"), "Archived.");
    EXPECT_EQ(ask("archive_experiment", archivedAs + "false}"), "Restored.");
    EXPECT_THAT(ask("experiment_tree", "{}"), HasSubstr("- LR 3e-5 [frozen] baseline"));
}

TEST(LabTools, EveryFailureIsATextThatSaysSo)
{
    const TestLab test;
    const Experiment node = test.baseline("true");

    const struct {
        std::string tool, arguments, text;
    } cases[] = {
        {"get_run", R"({"run":9})", "run_not_found: No run 9 in this project."},
        {"cancel_run", R"({"run":"#"})", "run_not_found: No run # in this project."},
        {"create_experiment", R"({"title":7})", "missing_argument: Pass title."},
        {"create_experiment", R"({"title":"A","run_command":" "})",
         "run_command_required: A baseline names the run command every node under it runs. Pass run_command."},
        {"run_experiment", "{}", "missing_argument: Pass experiment_id."},
        {"run_experiment", R"({"experiment_id":"x"})",
         "experiment_not_found: No experiment x in this project. Call experiment_tree for the ids."},
        {"set_experiment_notes", R"({"notes":"n"})", "missing_argument: Pass experiment_id."},
        {"set_experiment_notes", R"({"experiment_id":")" + node.id.text() + R"(","notes":" "})",
         "missing_argument: Pass notes."},
        {"archive_experiment", R"({"archived":false})", "missing_argument: Pass experiment_id."},
    };

    for (const auto& c : cases)
        EXPECT_EQ(call(quickTools(test), c.tool, JSONValue::parse(c.arguments)), "!" + c.text)
            << c.tool << " " << c.arguments;
}

TEST(LabTools, ReadsTheLimitAfreshAtEachRun)
{
    const TestLab test;
    LabTools tools = quickTools(test);
    const Experiment node = test.baseline("true");
    for (int index = 0; index < 2; ++index)
        test.store->insertRun(UUID::random(), node, "commit", test.runs() / "none");
    const auto run = [&] {
        const std::string id = test.baseline("sleep 60").id.text();
        return call(tools, "run_experiment", JSONValue::object({{"experiment_id", id}}));
    };
    tools.settings = test / "settings.toml"; // not there: the default limit of 2
    EXPECT_THAT(run(), HasSubstr("settings.toml allows 2 at once"));
    Files::writeAtomically(*tools.settings, "[experiments]\nmax_runs = 3\n");
    EXPECT_THAT(run(), HasSubstr("Run 3 started"));
    EXPECT_THAT(run(), HasSubstr("settings.toml allows 3 at once"));
    tools.settings.reset();
    EXPECT_THAT(run(), HasSubstr("Run 4 started"));
}

TEST(LabTools, AWaitListsAllThatALookFoundFinished)
{
    const TestLab test;
    const Experiment node = test.baseline("true", "A");
    std::vector<UUID> ids;
    for (int index = 0; index < 3; ++index) {
        ids.push_back(UUID::random());
        test.store->insertRun(ids.back(), node, "commit", test.runs() / "none");
    }
    const auto texts = test::callTwice(quickTools(test), "wait_for_runs", JSONValue::object({}), [&] {
        test.store->finishRun(ids[2], Run::Status::succeeded, 0, "{}");
        test.store->finishRun(ids[0], Run::Status::failed, std::nullopt, std::nullopt);
    });
    EXPECT_THAT(
        texts, testing::Each("run 1 of A: failed no result\nrun 3 of A: succeeded (exit 0) result {}\n"
                             "1 still in flight."));
}

TEST(LabTools, AWaitThatTimesOutIsNoErrorAndTellsWhatItWaitedFor)
{
    const TestLab test;
    const Experiment node = test.baseline("true", "A");
    for (const std::string inFlight : {"1 run in flight", "2 runs in flight"}) {
        test.store->insertRun(UUID::random(), node, "commit", test.runs() / "none");
        std::vector<std::string> notices;
        const std::string text = call(
            quickTools(test), "wait_for_runs", JSONValue::object({{"timeout_seconds", 0}}),
            [&](const std::string& message) { notices.push_back(message); });
        EXPECT_EQ(text, "No run finished within 1.0 seconds. " + inFlight.substr(0, 1) + " still in flight.");
        EXPECT_THAT(notices, testing::AllOf(SizeIs(testing::Ge(2)), testing::Each(inFlight)));
    }
}

} // namespace
} // namespace veltry
