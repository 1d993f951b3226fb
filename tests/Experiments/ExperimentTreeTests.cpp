#include "Experiments/ExperimentTree.h"
#include "Experiments/Refusal.h"
#include "Support/TestLab.h"
#include "Support/TreeRecords.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::node;
using test::runOf;
using enum Run::Status;

/// "slug<parent^baseline", each node before its children, set in by its depth.
std::string drawn(const ExperimentTree& tree, ExperimentTree::Archived archived = ExperimentTree::Archived::hidden)
{
    std::string text;
    for (const auto& [node, depth] : tree.depthFirst(archived))
        text += fmt::format(
            "{:{}}{}<{}^{}\n", "", depth, node->record.slug, node->parent ? node->parent->record.slug : "",
            node->baseline ? node->baseline->record.slug : "");
    return text;
}

TEST(ExperimentTree, JoinsNodesWithWhatIsTheirs)
{
    const Experiment base = node("base");
    const Experiment hidden = node("hidden", base.id, true);
    const Experiment leaf = node("leaf", hidden.id);
    const Experiment lost = node("lost", UUID::random());
    const Paper paper{.id = "W1", .title = "", .url = "u"};
    ExperimentTree made(
        {base, hidden, leaf, lost},
        {runOf(leaf, 1, failed, R"({"loss": 3})"), runOf(base, 2, succeeded, R"({"loss": 1.5})"),
         runOf(leaf, 3, cancelled, R"({"loss": 1, "name": "x"})"), runOf(node("elsewhere"), 4, succeeded, "5"),
         runOf(leaf, 5, running)},
        {{leaf.id, paper, "a", {}}, {UUID::random(), paper, "b", {}}});
    const ExperimentTree::Node& found = *made.find(leaf.id);
    const ExperimentTree tree = std::move(made);

    EXPECT_EQ(&found, tree.find(leaf.id)) << "what points into a tree may be kept while it moves";
    EXPECT_EQ(drawn(tree), "base<^\nleaf<hidden^base\nlost<^\n");
    EXPECT_EQ(drawn(tree, ExperimentTree::Archived::shown), "base<^\n hidden<base^base\n  leaf<hidden^base\nlost<^\n");
    ASSERT_EQ(found.runs.size(), 3u);
    EXPECT_EQ(found.answer->number, 3) << "the last result, however its run ended";
    EXPECT_EQ(found.citations.size(), 1u);
    EXPECT_FALSE(tree.find(hidden.id)->isFrozen());
    EXPECT_EQ(found.references().parent, ResultValues());
    EXPECT_EQ(difference(found.values().front(), found.references().baseline), -0.5);
    EXPECT_EQ(difference(found.values().back(), found.references().baseline), std::nullopt);
    EXPECT_EQ(tree.find(UUID::random()), nullptr);
}

TEST(ExperimentTree, CutsARingAtItsOldestNode)
{
    Experiment tail = node("tail");
    Experiment one = node("one");
    Experiment two = node("two");
    Experiment three = node("three");
    Experiment own = node("own");
    tail.parentID = three.id;
    one.parentID = two.id;
    two.parentID = three.id;
    three.parentID = one.id;
    own.parentID = own.id;
    EXPECT_EQ(
        drawn(ExperimentTree({tail, one, two, three, own})),
        "one<^\n three<one^one\n  tail<three^one\n  two<three^one\nown<^\n");
}

TEST(ExperimentTree, ALookAroundANodeReadsTheRunsThatItIsMeasuredBy)
{
    const test::TestLab lab;
    const Experiment base = lab.baseline("true");
    const Experiment middle = lab.child(base, "Middle");
    const Experiment parent = lab.child(middle, "Parent");
    const Experiment leaf = lab.child(parent, "Leaf");
    for (const Experiment& each : {leaf, base, parent, middle})
        lab.insertFinished(each, succeeded, 0, "1");
    const auto lost = lab.store->insertRun(UUID::random(), leaf, "c", lab.runs() / "x");
    lab.backdate(lost.id, 20);

    const ExperimentTree tree = lab.lab.treeAround({leaf.id});
    EXPECT_EQ(drawn(tree), drawn(lab.lab.tree()));
    EXPECT_EQ(tree.runs().size(), 4u);
    EXPECT_TRUE(tree.find(base.id)->isFrozen());
    EXPECT_FALSE(tree.find(middle.id)->runsAreKnown);
    EXPECT_EQ(tree.findRun(lost.id)->status, failed) << "its supervisor is gone";
    EXPECT_THAT(
        test::refusal([&] { return lab.lab.treeAround({UUID::random()}); }),
        testing::StartsWith("experiment_not_found"));
}

} // namespace
} // namespace veltry
