#include "Host/Views/NodeState.h"
#include "Host/Views/TreeJSON.h"
#include "Support/TreeRecords.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using enum Run::Status;

TEST(NodeState, TellsWhatHappensNowBeforeWhatWas)
{
    const struct {
        std::vector<std::pair<veltry::Run::Status, bool>> runs; ///< with a result or without
        std::string_view state;
    } cases[] = {
        {{}, "new"},
        {{{queued, false}}, "queued"},
        {{{succeeded, true}, {running, false}}, "running"},
        {{{failed, true}}, "frozen"},
        {{{succeeded, true}, {cancelled, false}}, "frozen"},
        {{{succeeded, false}, {failed, false}}, "failed"},
        {{{failed, false}, {cancelled, false}}, "cancelled"},
        {{{failed, false}, {succeeded, false}}, "no result"},
    };
    for (const auto& c : cases) {
        const Experiment node = test::node("n");
        std::vector<veltry::Run> runs;
        for (const auto& [status, answered] : c.runs)
            runs.push_back(
                test::runOf(node, std::ssize(runs) + 1, status, answered ? std::optional("1") : std::nullopt));
        const ExperimentTree tree({node}, runs);
        EXPECT_EQ(stateText(nodeState(tree.nodes().front())), c.state);
    }
}

TEST(TreeJSON, TellsDifferencesOfNumbersThatBothSidesHave)
{
    const ResultValues values = {{"loss", 1.0}, {"big", 1e308}, {"name", "a"}, {"mixed", 2.0}, {"own", 3.0}};
    const ResultValues reference = {{"loss", 1.5}, {"big", -1e308}, {"name", "b"}, {"mixed", "c"}, {"other", 4.0}};
    EXPECT_EQ(TreeJSON::differences(values, reference, {}).text(), R"({"baseline":{},"parent":{"loss":-0.5}})");
}

} // namespace
} // namespace veltry
