#include "Host/Terminal/TreeDrawing.h"
#include "Platform/Files.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;

std::string drawing(const TreeDrawing::Forest& forest, TreeDrawing::Manner manner, bool isUTF8)
{
    std::string text;
    for (const TreeDrawing::Line& line : TreeDrawing::lines(forest, manner, isUTF8))
        text += (line.startsTree ? "> " : "  ") + line.lead + std::to_string(line.number) + "\n";
    return text;
}

TEST(TreeDrawing, ShowsWhereBranchesBegin)
{
    using enum TreeDrawing::Manner;
    const TreeDrawing::Forest forest{
        .roots = {0, 6},
        .children = {{1, 4}, {2}, {3, 5}, {}, {}, {}, {7}, {}},
    };
    EXPECT_EQ(drawing(forest, graph, true), "> 0\n  ├─1\n  │ └─2\n  │   ├─3\n  │   └─5\n  └─4\n> 6\n  └─7\n");
    EXPECT_EQ(drawing(forest, graph, false), "> 0\n  |-1\n  | `-2\n  |   |-3\n  |   `-5\n  `-4\n> 6\n  `-7\n");
    EXPECT_EQ(drawing(forest, indented, true), "> 0\n    1\n      2\n        3\n        5\n    4\n> 6\n    7\n");
    EXPECT_EQ(drawing({}, graph, true), "");
}

TEST(TreeDrawing, KeepsDeepTreesNarrow)
{
    TreeDrawing::Forest forest{.roots = {0}, .children = {}};
    forest.children.resize(6001);
    for (std::size_t level = 0; level < 3000; ++level) // each with a brother, so that each branches
        forest.children[2 * level] = {2 * level + 1, 2 * level + 2};
    for (const auto manner : {TreeDrawing::Manner::graph, TreeDrawing::Manner::indented}) {
        const std::vector<TreeDrawing::Line> lines = TreeDrawing::lines(forest, manner, false);
        ASSERT_EQ(lines.size(), 6001u);
        for (const TreeDrawing::Line& line : lines)
            ASSERT_LE(line.lead.size(), 44u);
    }
}

TEST(Tree, ShowsStatesTheSharedNumberAndTheBest)
{
    test::HostHistory lab;
    static_cast<void>(lab.child(lab.baseline, "Fresh"));
    const Experiment other = lab.TestLab::baseline("true", "Second");
    EXPECT_EQ(
        lab.words({"tree", "--best", "min"}), "node state loss runs papers\n"
                                              "● Baseline frozen 1.5 1\n"
                                              "├─● Warm-up \xEF\xBF\xBD[2J frozen 1.25 2\n"
                                              "│ └─● Leaf frozen 1 ★ 1\n"
                                              "└─○ Fresh new\n"
                                              "\n"
                                              "○ Second new\n");
    EXPECT_THAT(lab.words({"tree", "--metric", "eval.extra", "--best", "max"}), HasSubstr("Leaf frozen 2 ★ 1\n"));
    for (const char* form : {"--all", "--json"}) {
        const ChildProcess::Output slip = lab.veltry({"tree", "--metric", "los", form});
        EXPECT_EQ(slip.exitNumber, 2);
        EXPECT_THAT(slip.error, HasSubstr("No result has a number los. Did you mean loss?"));
    }
    EXPECT_EQ(lab.veltry({"tree"}).error, "");
    const Experiment apart = lab.child(lab.baseline, "Apart");
    lab.answered(apart, R"({"accuracy": 1})");
    EXPECT_THAT(lab.words({"tree"}), HasSubstr("node state loss runs papers\n"));
    EXPECT_THAT(lab.veltry({"tree"}).error, HasSubstr("1 node has a result without a number loss"));
    lab.lab.setArchived(apart.id, true);

    // Archived ones are hidden, and the numbers that are shared are those of what is shown.
    lab.lab.setArchived(lab.node.id, true);
    lab.lab.setArchived(other.id, true);
    EXPECT_EQ(
        lab.words({"tree"}), "node state loss runs papers\n"
                             "● Baseline frozen 1.5 1\n└─○ Fresh new\n\n● Leaf frozen 1 1\n");
    EXPECT_THAT(lab.words({"tree", "--all"}), HasSubstr("frozen, archived"));

    Files::createFolders(lab / "data/Harrowick Veltry");
    Files::writeAtomically(lab / "data/Harrowick Veltry/settings.toml", "[experiments]\ntree = \"indented\"\n");
    EXPECT_THAT(lab.veltry({"tree", "--all"}).output, HasSubstr("\n  Warm-up"));

    const JSONValue document = lab.json({"tree", "--best", "min"});
    EXPECT_EQ(*document.find("metric")->string(), "loss");
    const JSONValue& leaf = document.find("nodes")->array()->back();
    EXPECT_EQ(*leaf.find("slug")->string(), "leaf");
    EXPECT_EQ(leaf.find("value")->text() + leaf.find("best")->text(), "1true");
    EXPECT_EQ(leaf.find("runs")->text(), R"([{"number":4,"status":"succeeded"}])");
    EXPECT_EQ(*leaf.find("parentID")->string(), lab.node.id.text());
}

TEST(Tree, IsDrawnAgainWhenSomethingChangesAndLeavesTheTerminalAsItWas)
{
    test::HostHistory lab;
    const Experiment lost = lab.child(lab.baseline, "Lost");
    const auto run = lab.store->insertRun(UUID::random(), lost, "c", lab.runs() / "x");
    test::PseudoTerminal terminal(test::hostProgram(), {"tree", "--watch"}, lab.environment(), lab.repository.path());
    ASSERT_TRUE(terminal.shows("\033[?1049h"));
    ASSERT_TRUE(terminal.shows("queued"));
    static_cast<void>(lab.child(lab.baseline, "Made meanwhile"));
    ASSERT_TRUE(terminal.shows("Made meanwhile"));
    lab.backdate(run.id, 20); // its supervisor has never lived
    ASSERT_TRUE(terminal.shows("failed"));
    terminal.type("\003");
    EXPECT_EQ(terminal.wait(), 130);
    EXPECT_THAT(terminal.output(), testing::EndsWith("\033[?25h\033[?1049l"));
}

TEST(Tree, SaysWhatToDoInAnEmptyProject)
{
    const test::HostLab lab;
    EXPECT_THAT(lab.veltry({"tree"}).error, HasSubstr("There is no node yet. Make a baseline: veltry create"));
    EXPECT_EQ(lab.veltry({"tree", "--best", "most"}).exitNumber, 2);
}

} // namespace
} // namespace veltry
