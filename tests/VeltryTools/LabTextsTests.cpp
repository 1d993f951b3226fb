#include "Support/TemporaryFolder.h"
#include "Support/TreeRecords.h"
#include "VeltryTools/LabTexts.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fstream>
#include <limits>

namespace veltry {
namespace {

using test::node;
using test::runOf;

Lab someLab()
{
    Project project;
    project.id = UUID::random();
    project.folders = {"/p"};
    return Lab(nullptr, project, "/runs", "/tools");
}

TEST(LabTexts, DrawsTheTreeDepthFirstWithRunsAndCitations)
{
    const Experiment root = node("base");
    Experiment child = node("child", root.id);
    child.notes = "\n\nsecond line\nthird";
    const Experiment grandchild = node("grandchild", child.id);
    const Experiment sibling = node("sibling", root.id);
    auto answered = runOf(child, 2, Run::Status::failed, "{\n \"loss\": 1\n}");
    answered.exitCode = 1;
    const Paper paper{.id = "W1", .title = "On Loss", .url = "u"};
    const ExperimentTree tree(
        {root, child, sibling, grandchild},
        {runOf(root, 1, Run::Status::cancelled), answered, runOf(sibling, 3, Run::Status::queued)},
        {{child.id, paper, "its loss", {}}});
    const std::string expected = fmt::format(
        R"(- base [provisional] baseline
  id: {}
  branch: veltry/base
  worktree: /p/.veltry/worktrees/base
  run command: train
  run 1 of base: cancelled no result
  - child [frozen]
    id: {}
    branch: veltry/child
    worktree: /p/.veltry/worktrees/child
    notes: second line
    run 2 of child: failed (exit 1) result {{  "loss": 1 }}
    cites W1 On Loss: its loss
    - grandchild [provisional]
      id: {}
      branch: veltry/grandchild
      worktree: /p/.veltry/worktrees/grandchild
  - sibling [provisional]
    id: {}
    branch: veltry/sibling
    worktree: /p/.veltry/worktrees/sibling
    run 3 of sibling: queued)",
        root.id.text(), child.id.text(), grandchild.id.text(), sibling.id.text());
    EXPECT_EQ(LabTexts::tree(someLab(), tree), expected);
}

TEST(LabTexts, ChildrenOfAHiddenNodeMoveUpToTheRoot)
{
    const Experiment hidden = node("hidden", {}, true);
    const Experiment child = node("child", hidden.id);
    const Experiment root = node("root");
    const std::string text = LabTexts::tree(someLab(), ExperimentTree({hidden, child, root}));
    EXPECT_THAT(text, testing::StartsWith("- child [provisional]\n  id: "));
    EXPECT_THAT(text, testing::HasSubstr("\n- root [provisional] baseline\n"));
    EXPECT_EQ(
        LabTexts::tree(someLab(), ExperimentTree({hidden})),
        "The tree is empty. Create a baseline with create_experiment and a run_command.");
}

TEST(LabTexts, AChainOfManyChildrenIsDrawnWithoutRecursion)
{
    std::vector<Experiment> chain = {node("n")};
    for (int depth = 1; depth < 2'000; ++depth)
        chain.push_back(node("n", chain.back().id));
    const std::string text = LabTexts::tree(someLab(), ExperimentTree(chain));
    const std::size_t last = text.rfind('\n') + 1;
    EXPECT_EQ(text.find_first_not_of(' ', last) - last, 4'000u);
    EXPECT_THAT(text, testing::EndsWith("  worktree: /p/.veltry/worktrees/n"));
}

TEST(LabTexts, TakesTheEndOfALog)
{
    const test::TemporaryFolder folder;
    const std::string longLine(5000, 'x');

    const struct {
        std::string name, log;
        std::int64_t lines;
        std::string tail;
    } cases[] = {
        {"fewer than none", "a\nb\n", -5, ""},
        {"a final line feed ends an empty piece", "a\nb\n", 1, ""},
        {"no final line feed", "a\nb", 1, "b"},
        {"empty lines inside stay", "a\n\n\nb\n\n", 5, "b"},
        {"all of it", "a\n\nb", 60, "a\n\nb"},
        {"more than can be counted", "a\nb", std::numeric_limits<std::int64_t>::max(), "a\nb"},
        {"malformed bytes", "caf\xE9\n\xF0\x9F\x98", 9, "caf\xEF\xBF\xBD\n\xEF\xBF\xBD"},
        {"a line beyond the bound is cut in front", longLine + "\n", 2, longLine.substr(0, 400 * 2 + 4096 - 1)},
        {"empty", "", 3, ""},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(folder / "log", std::ios::binary) << c.log;
        EXPECT_EQ(LabTexts::logTail(folder / "log", c.lines), c.tail);
    }
    EXPECT_EQ(LabTexts::logTail(folder / "nothing", 3), "");
}

} // namespace
} // namespace veltry
