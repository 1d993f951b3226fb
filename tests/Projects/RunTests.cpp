#include "StoreSupport.h"

#include <functional>
#include <numeric>

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::int64_t> numbers(const std::vector<Run>& runs)
{
    std::vector<std::int64_t> result;
    for (const Run& run : runs)
        result.push_back(run.number);
    return result;
}

class RunTest : public StoreTest {
protected:
    using Run = veltry::Run; // the test's own run() is named like it

    Run insert(const Experiment& of) { return store.insertRun(UUID::random(), of, "abc", "/runs/one"); }

    Run finished(const Experiment& of)
    {
        const Run made = insert(of);
        store.finishRun(made.id, Run::Status::succeeded, 0, "{}");
        return made;
    }

    UUID project = store.createProject("p", {"/p"}).id;
    UUID elsewhere = store.createProject("q", {"/q"}).id;
    Experiment node = insertExperiment(project, "node");
    Experiment otherNode = insertExperiment(project, "other");
    Experiment farNode = insertExperiment(elsewhere, "far");
};

TEST_F(RunTest, CountsWithinItsProject)
{
    insert(farNode);
    insert(farNode);
    EXPECT_THROW(insert(makeExperiment(project, "unknown")), DatabaseError); // takes no number
    const Run first = insert(node);
    const Run second = insert(otherNode);
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.command, node.runCommand);
    EXPECT_THAT(store.runs(project), ElementsAre(first, second));
    EXPECT_EQ(store.run(first.id), first);
    EXPECT_EQ(store.run(2, project), second);
    EXPECT_EQ(store.run(3, project), std::nullopt);
    EXPECT_THAT(store.runsOfExperiment(otherNode.id), ElementsAre(second));
    EXPECT_EQ(first.telemetryFile(), "/runs/one/telemetry.jsonl");
    EXPECT_EQ(runFromJSON(toJSON(first)), first);
}

TEST_F(RunTest, StatusGuards)
{
    const auto markRunning = [&](const UUID& id) { store.markRunning(id, 77); };
    const auto succeed = [&](const UUID& id) { store.finishRun(id, Run::Status::succeeded, 0, "{}"); };
    const auto fail = [&](const UUID& id) { store.finishRun(id, Run::Status::failed, {}, {}); };
    const auto cancel = [&](const UUID& id) { store.requestCancel(id); };

    const struct {
        std::string_view name;
        std::vector<std::function<void(const UUID&)>> steps;
        std::string row;
    } cases[] = {
        {"runs", {markRunning}, "running|77|-|-|0"},
        {"ends", {markRunning, succeed}, "succeeded|77|0|{}|0"},
        {"ends before it ran", {fail}, "failed|-|-|-|0"},
        {"runs after its end", {fail, markRunning}, "failed|-|-|-|0"},
        {"ends twice", {succeed, fail}, "succeeded|-|0|{}|0"},
        {"is cancelled after its end", {succeed, cancel}, "succeeded|-|0|{}|1"},
        {"runs twice", {markRunning, cancel, markRunning}, "running|77|-|-|1"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const UUID id = insert(node).id;
        std::optional<Date> ended;
        for (const auto& step : c.steps) {
            step(id);
            ended = ended ? ended : store.run(id)->endedAt; // the first end counts
        }
        EXPECT_EQ(
            rows(
                "SELECT status, ifnull(pid, '-'), ifnull(exit_code, '-'), ifnull(result, '-'), cancel_requested "
                "FROM run WHERE id = '" +
                    id.text() + "'",
                5),
            std::vector{c.row});
        EXPECT_EQ(store.run(id)->endedAt, ended);
        EXPECT_EQ(ended.has_value(), store.run(id)->isFinished());
    }
    const UUID unknown = UUID::random();
    for (const auto& update : std::vector<std::function<void(const UUID&)>>{markRunning, succeed, cancel})
        EXPECT_NO_THROW(update(unknown));
}

TEST_F(RunTest, LooksAtRunsInFlight)
{
    EXPECT_EQ(store.runsInFlight(project).lastRowID, 0);
    finished(node);
    const Run queued = insert(node);
    const Run running = insert(otherNode);
    store.markRunning(running.id, 5);
    const Run far = insert(farNode);
    const ProjectStore::RunLook first = store.runsInFlight(project);
    EXPECT_THAT(numbers(first.runs), ElementsAre(2, 3));
    EXPECT_THAT(numbers(store.unfinishedRuns()), ElementsAre(2, 3, far.number)); // the oldest first

    store.finishRun(queued.id, Run::Status::failed, 1, {});
    const Run fresh = insert(node);
    const Run briefly = finished(node);
    insert(farNode);
    const UUID waiting[] = {running.id, queued.id, fresh.id, running.id, UUID::random()};
    const ProjectStore::RunLook second = store.lookAgain(project, waiting, first.lastRowID);
    EXPECT_THAT(second.runs, ElementsAre(*store.run(queued.id), *store.run(running.id), fresh, *store.run(briefly.id)));
    EXPECT_EQ(second.lastRowID, first.lastRowID + 3);
    EXPECT_THAT(store.lookAgain(project, {}, second.lastRowID).runs, IsEmpty());
}

TEST_F(RunTest, DamagedRowsAreLeftOut)
{
    const Run good = insert(node);
    const Run later = insert(node);
    const Run huge = insert(node);
    const Run odd = insert(node);
    execute("UPDATE run SET status = 'paused' WHERE id = ?", later.id);
    execute("UPDATE run SET pid = 5000000000, created_at = 1 WHERE id = ?", huge.id);
    execute("PRAGMA foreign_keys = OFF; UPDATE run SET experiment_id = 'x' WHERE id = ?", odd.id);
    Run read = huge;
    read.createdAt = {1};
    EXPECT_THAT(store.runs(project), ElementsAre(good, read));
    EXPECT_EQ(store.run(later.id), std::nullopt);
    EXPECT_THAT(numbers(store.lookAgain(project, {}, 0).runs), ElementsAre(1, 3));
    EXPECT_EQ(insert(node).number, 5); // their numbers are taken all the same
}

TEST_F(RunTest, FourProcessesShareTheNumbers)
{
    EXPECT_THAT(inProcesses(4, store.path(), {"runs", node.id.text(), "10"}), IsEmpty());
    std::vector<std::int64_t> expected(40);
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_EQ(numbers(store.runs(project)), expected);
}

} // namespace
} // namespace veltry::test
