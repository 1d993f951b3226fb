#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Show, ShowsANodeBesideItsParentAndItsBaseline)
{
    const test::HostHistory lab;
    lab.lab.setNotes(lab.node.id, "First line.\n\nThe \033[31mred\033[0m line.");
    Paper paper;
    paper.id = "W1";
    paper.title = "On warm-ups";
    paper.year = 2019;
    paper.url = "https://example.org";
    lab.store->cite(paper, lab.node.id, "The idea");
    const std::string leaf = lab.words({"show", "leaf"});
    EXPECT_THAT(leaf, AllOf(HasSubstr("Leaf frozen\n"), HasSubstr("\n loss 1 -0.25 -0.5\n")));
    const std::string node = lab.words({"show", lab.node.branch});
    EXPECT_THAT(
        node, AllOf(
                  HasSubstr(" First line.\n \n The \xEF\xBF\xBD[31mred"), HasSubstr("#2 failed (exit 3)"),
                  HasSubstr("Children\n Leaf\n"), HasSubstr("W1 2019 On warm-ups The idea"),
                  HasSubstr(lab.lab.worktree(lab.node).string()), Not(HasSubstr("\033"))));

    const JSONValue document = lab.json({"show", lab.leaf.id.text().substr(0, 8)});
    EXPECT_EQ(*document.find("title")->string(), "Leaf");
    EXPECT_EQ(*document.find("state")->string(), "frozen");
    EXPECT_EQ(document.find("differences")->text(), R"({"baseline":{"loss":-0.5},"parent":{"loss":-0.25}})");
    EXPECT_EQ(document.find("runs")->array()->at(0).find("result")->find("eval")->text(), R"({"extra":2})");
    EXPECT_THAT(*document.find("createdAt")->string(), testing::EndsWith("Z"));
}

TEST(Show, ShowsARunByItsNumberAndItsId)
{
    const test::HostHistory lab;
    for (const std::string& name : {std::string("3"), std::string("#3"), lab.third.id.text()})
        EXPECT_THAT(
            lab.words({"show", name}), AllOf(HasSubstr("Run #3 of Warm-up "), HasSubstr("\n loss 1.25 -0.25 -0.25\n")))
            << name;
    EXPECT_THAT(lab.veltry({"show", "2"}).output, HasSubstr("It left no result."));
    EXPECT_EQ(lab.json({"show", "1"}).find("differences")->text(), R"({"baseline":{},"parent":{}})");
}

TEST(Show, ClosesARunWhoseSupervisorIsGone)
{
    const test::HostHistory lab;
    const Experiment lost = lab.child(lab.baseline, "Lost");
    const auto run = lab.store->insertRun(UUID::random(), lost, "c", lab.runs() / "x");
    EXPECT_THAT(lab.veltry({"show", "lost"}).output, HasSubstr("Lost  queued"));
    lab.backdate(run.id, 20);
    EXPECT_THAT(lab.veltry({"show", "lost"}).output, HasSubstr("Lost  failed"));
}

TEST(Show, NamesWhatIsNear)
{
    const test::HostHistory lab;
    const struct {
        std::string name, error;
    } cases[] = {
        {"leef", "veltry: There is no node \"leef\". Did you mean leaf? veltry tree lists them.\n"},
        {"99", "veltry: There is no run \"99\". veltry list shows the runs with their numbers.\n"},
    };
    for (const auto& c : cases) {
        const ChildProcess::Output output = lab.veltry({"show", c.name});
        EXPECT_EQ(output.exitNumber, 1);
        EXPECT_EQ(output.error, c.error);
    }
}

} // namespace
} // namespace veltry
