#include "Platform/Files.h"
#include "ServerLab.h"
#include "Support/Eventually.h"
#include "Support/Stress.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <numeric>

namespace veltry {
namespace {

using test::ServerLab;
using test::stressed;
using testing::HasSubstr;
using testing::StartsWith;

TEST(ServerStress, FourServersOnOneStoreNumberTheirRunsWithoutAGap)
{
    const int each = std::max(stressed(10), 3);
    const ServerLab test;
    const Experiment root = test.baseline("printf '{\"run\": %d}' $HARROWICK_RUN > $HARROWICK_RESULT_PATH");
    std::vector<test::McpProcess> servers;
    for (const char* runs : {"Runs 1", "Runs 2", "Runs 3", "Runs 4"})
        servers.push_back(test.serve({"--runs", test / runs}));
    std::vector<Experiment> nodes;
    for (int i = 0; i < 4 * each; ++i) {
        nodes.push_back(test.child(root, fmt::format("Child {}", i)));
        test.write(nodes.back(), "change", std::to_string(i));
    }

    for (std::size_t i = 0; i < nodes.size(); ++i)
        servers[i % 4].sendCall("run_experiment", test::naming(nodes[i]));
    std::vector<std::int64_t> numbers;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::string text = test::toolText(servers[i % 4].receive().value());
        const auto run = test.finished(test::startedRun(text));
        EXPECT_EQ(run.status, Run::Status::succeeded);
        EXPECT_EQ(run.result, fmt::format("{{\"run\": {}}}", run.number));
        EXPECT_THAT(text, StartsWith(fmt::format("Run {} started", run.number)));
        numbers.push_back(run.number);
    }
    std::vector<std::int64_t> expected(nodes.size());
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_THAT(numbers, testing::UnorderedElementsAreArray(expected));
}

TEST(ServerStress, OfTwoServersAtTheSameMomentOneComesSecond)
{
    const ServerLab test;
    Files::writeAtomically(test / "one.toml", "[experiments]\nmax_runs = 1\n");

    const struct {
        std::string name;
        std::vector<std::string> options;
        bool sameNode;
        std::string refusal;
    } cases[] = {
        {"one node", {}, true, "already_running: Run {} of "},
        {"one place", {"--settings", test / "one.toml"}, false, "too_many_runs: 1 run is going,"},
        {"one node and one place", {"--settings", test / "one.toml"}, true, "too_many_runs: 1 run is going,"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto first = test.serve(c.options);
        std::vector<std::string> elsewhere = c.options;
        elsewhere.insert(elsewhere.end(), {"--runs", test / "Runs 2"});
        auto second = test.serve(elsewhere);
        for (int round = 0; round < stressed(100); ++round) {
            test.hold();
            // Both find something to commit.
            const Experiment left = test.baseline(test.holding(), fmt::format("{} {} left", c.name, round));
            const Experiment right =
                c.sameNode ? left : test.baseline(test.holding(), fmt::format("{} {} right", c.name, round));
            test.write(left, "change", "l");
            test.write(right, "change", "r");
            const std::int64_t calls[] = {
                first.sendCall("run_experiment", test::naming(left)),
                second.sendCall("run_experiment", test::naming(right))};
            const std::string texts[] = {
                test::toolText(first.answer(calls[0])), test::toolText(second.answer(calls[1]))};
            const bool firstWon = texts[0].starts_with("Run ");
            const auto run = test.store->run(test::startedRun(texts[firstWon ? 0 : 1])).value();
            EXPECT_THAT(texts[firstWon ? 1 : 0], StartsWith(fmt::format(fmt::runtime(c.refusal), run.number)));
            test.letGo();
            ASSERT_TRUE(test.allEnded());
        }
    }
}

TEST(ServerStress, ManyRunsLeaveNoZombieAndNoDescriptor)
{
    const ServerLab test;
    const Experiment node = test.baseline("true");
    auto server = test.serve();
    const auto runOnce = [&] {
        const auto run = test.finished(test::startedRun(server.call("run_experiment", test::naming(node))));
        EXPECT_EQ(run.status, Run::Status::succeeded);
        static_cast<void>(server.call("experiment_tree"));
    };
    const auto alone = [&] { return test::processes::childrenOf(server.pid()).empty(); };
    runOnce();
    ASSERT_TRUE(test::eventually(alone));
    const std::string descriptors = fmt::format("/proc/{}/fd", server.pid());
    const std::ptrdiff_t before = test::entryCount(descriptors);
    for (int run = 0; run < std::max(stressed(200), 5); ++run)
        runOnce();
    EXPECT_TRUE(test::eventually(alone)) << "a supervisor that has ended is reaped";
    EXPECT_EQ(test::entryCount(descriptors), before);
}

TEST(ServerStress, FiveHundredCallsInFlightAreEachAnsweredOnOneLine)
{
    const ServerLab test;
    const Experiment node = test.baseline(test.holding());
    test.lab.setNotes(node.id, std::string(100'000, 'n')); // in every tree, so that answers pile up
    const Experiment marked = test.baseline("true", "Marked");
    const auto run = test.lab.launch(node.id, 0);
    auto server = test.serve();
    std::set<std::int64_t> open; // nobody reads yet
    for (int round = 0; round < 100; ++round) {
        open.insert(server.send("ping"));
        for (const char* tool : {"wait_for_runs", "experiment_tree", "get_run", "no such tool"})
            open.insert(server.sendCall(tool));
    }
    JSONValue notes = JSONValue::object({{"experiment_id", marked.id.text()}, {"notes", "seen"}});
    open.insert(server.sendCall("set_experiment_notes", std::move(notes)));
    ASSERT_TRUE(test::eventually([&] { return test.store->experiment(marked.id)->notes == "seen"; }))
        << "a client that doesn't read holds up no call";
    test.letGo();
    ASSERT_EQ(test.finished(run.id).status, Run::Status::succeeded);
    while (!open.empty()) {
        const std::optional<JSONValue> answer = server.receive(); // throws for a line that isn't whole
        ASSERT_TRUE(answer) << open.size() << " calls have no answer";
        const std::int64_t id = answer->find("id")->integer().value();
        EXPECT_EQ(open.erase(id), 1U) << id << " was never asked, or has two answers";
        EXPECT_TRUE(answer->find("result")) << answer->text();
    }
    EXPECT_EQ(server.request("ping"), JSONValue::object({})) << "and nothing behind the last answer";
}

} // namespace
} // namespace veltry
