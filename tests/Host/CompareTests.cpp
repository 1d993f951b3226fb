#include "Host/Terminal/SideBySide.h"
#include "Host/Terminal/Wrapping.h"
#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(SideBySide, BreaksTextsBetweenWords)
{
    const struct {
        std::string_view text;
        std::vector<std::string> lines;
    } cases[] = {
        {"", {}},
        {"one two three", {"one two", "three"}},
        {"a\n\nb\033c",
         {"a", "",
          "b\xEF\xBF\xBD"
          "c"}},
        {"abcdefghijkl mn", {"abcdefgh", "ijkl mn"}},
        {"wide 漢字漢字漢字", {"wide", "漢字漢字", "漢字"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(wrapped(c.text, 8), c.lines) << c.text;
    const Terminal plain(-1, false, false, true);
    EXPECT_EQ(sideBySide({"A", "B"}, {"x y", ""}, plain), "A    B\nx y\n");
}

TEST(Compare, ShowsResultsNotesAndFilesBesideEachOther)
{
    test::HostHistory lab;
    lab.lab.setNotes(lab.node.id, "Slower at first.");
    lab.lab.setNotes(lab.leaf.id, "A leaf.");
    const Experiment open = lab.child(lab.baseline, "Open");
    lab.write(open, "new file", "1\n2\n");
    lab.write(open, "README.md", "other\n");
    const std::string words = lab.words({"compare", "#3", "leaf", "open"});
    EXPECT_THAT(
        words, AllOf(
                   HasSubstr("#3 Warm-up"), HasSubstr("\nstate frozen frozen new\n"),
                   HasSubstr("\nrun #3 succeeded #4 succeeded\n"), HasSubstr("\nloss 1.25 1 (-0.25)\n"),
                   HasSubstr("\nSlower at first. A leaf.\n"), HasSubstr("\nnew file added +2 -0\n")));

    const JSONValue document = lab.json({"compare", lab.baseline.id.text(), "leaf"});
    EXPECT_EQ(document.array()->at(1).find("differences")->text(), R"({"loss":-0.5})");
    EXPECT_EQ(document.array()->at(0).find("run")->find("number")->text(), "1");
    EXPECT_THAT(
        lab.words({"compare", "#1", "#3", "leaf", "open", "#4"}),
        AllOf(HasSubstr("\nresult loss name eval.extra\n#1 Baseline 1.5 a\n"), HasSubstr("\n#4 Leaf 1 (-0.5) 2\n")));
    EXPECT_EQ(lab.veltry({"compare", "leaf"}).exitNumber, 2);
    EXPECT_EQ(lab.veltry({"compare", "leaf", "laef"}).exitNumber, 1);
}

} // namespace
} // namespace veltry
