#include "Support/TemporaryFolder.h"
#include "VeltryTools/LabTexts.h"

#include <gmock/gmock.h>

#include <fstream>
#include <limits>

namespace veltry {
namespace {

Lab someLab()
{
    Project project;
    project.id = UUID::random();
    project.folders = {"/p"};
    return Lab(nullptr, project, "/runs", "/tools");
}

Experiment node(const std::string& slug, const std::optional<UUID>& parent = {}, bool archived = false)
{
    Experiment made;
    made.id = UUID::random();
    made.parentID = parent;
    made.slug = slug;
    made.branch = "veltry/" + slug;
    made.title = slug;
    made.runCommand = "train";
    made.archived = archived;
    return made;
}

Run runOf(const Experiment& experiment, std::int64_t number, Run::Status status)
{
    Run run;
    run.experimentID = experiment.id;
    run.number = number;
    run.status = status;
    return run;
}

TEST(LabTexts, DrawsTheTreeDepthFirstWithRunsAndCitations)
{
    const Experiment root = node("base");
    Experiment child = node("child", root.id);
    child.notes = "\n\nsecond line\nthird";
    const Experiment grandchild = node("grandchild", child.id);
    const Experiment sibling = node("sibling", root.id);
    auto answered = runOf(child, 2, Run::Status::failed);
    answered.exitCode = 1;
    answered.result = "{\n \"loss\": 1\n}";
    const Paper paper{
        .id = "W1",
        .title = "On Loss",
        .authors = {},
        .year = {},
        .venue = {},
        .citations = 0,
        .doi = {},
        .url = "u",
        .pdfURL = {},
        .abstract = {}};
    const LabTexts::Tree tree{
        .experiments = {root, child, sibling, grandchild},
        .runs = {runOf(root, 1, Run::Status::cancelled), answered, runOf(sibling, 3, Run::Status::queued)},
        .citations = {{child.id, paper, "its loss", {}}}};
    EXPECT_EQ(
        LabTexts::tree(someLab(), tree), "- base [provisional] baseline\n"
                                         "  id: " +
                                             root.id.text() +
                                             "\n"
                                             "  branch: veltry/base\n"
                                             "  worktree: /p/.veltry/worktrees/base\n"
                                             "  run command: train\n"
                                             "  run 1 of base: cancelled no result\n"
                                             "  - child [frozen]\n"
                                             "    id: " +
                                             child.id.text() +
                                             "\n"
                                             "    branch: veltry/child\n"
                                             "    worktree: /p/.veltry/worktrees/child\n"
                                             "    notes: second line\n"
                                             "    run 2 of child: failed (exit 1) result {  \"loss\": 1 }\n"
                                             "    cites W1 On Loss: its loss\n"
                                             "    - grandchild [provisional]\n"
                                             "      id: " +
                                             grandchild.id.text() +
                                             "\n"
                                             "      branch: veltry/grandchild\n"
                                             "      worktree: /p/.veltry/worktrees/grandchild\n"
                                             "  - sibling [provisional]\n"
                                             "    id: " +
                                             sibling.id.text() +
                                             "\n"
                                             "    branch: veltry/sibling\n"
                                             "    worktree: /p/.veltry/worktrees/sibling\n"
                                             "    run 3 of sibling: queued");
}

TEST(LabTexts, ChildrenOfAHiddenNodeMoveUpToTheRoot)
{
    const Experiment hidden = node("hidden", {}, true);
    const Experiment child = node("child", hidden.id);
    const Experiment root = node("root");
    const std::string text =
        LabTexts::tree(someLab(), {.experiments = {hidden, child, root}, .runs = {}, .citations = {}});
    EXPECT_THAT(text, testing::StartsWith("- child [provisional]\n  id: "));
    EXPECT_THAT(text, testing::HasSubstr("\n- root [provisional] baseline\n"));
    EXPECT_EQ(
        LabTexts::tree(someLab(), {.experiments = {hidden}, .runs = {}, .citations = {}}),
        "The tree is empty. Create a baseline with create_experiment and a run_command.");
}

TEST(LabTexts, AChainOfManyChildrenIsDrawnWithoutRecursion)
{
    std::vector<Experiment> chain = {node("n")};
    for (int depth = 1; depth < 2'000; ++depth)
        chain.push_back(node("n", chain.back().id));
    const std::string text = LabTexts::tree(someLab(), {.experiments = chain, .runs = {}, .citations = {}});
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
        {"none asked", "a\nb\n", 0, ""},
        {"fewer than none", "a\nb\n", -5, ""},
        {"a final line feed ends an empty piece", "a\nb\n", 1, ""},
        {"two pieces", "a\nb\n", 2, "b"},
        {"no final line feed", "a\nb", 1, "b"},
        {"empty lines inside stay", "a\n\n\nb\n\n", 5, "b"},
        {"all of it", "a\n\nb", 60, "a\n\nb"},
        {"as many as there are", "a\nb\nc", 3, "a\nb\nc"},
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
