#include "Host/Terminal/Sparkline.h"
#include "Support/Eventually.h"
#include "Support/PseudoTerminal.h"
#include "Support/TestLab.h"

#include <gmock/gmock.h>

#include <vector>

namespace veltry {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;

TEST(Sparkline, ShowsTheLastValuesAtTheRight)
{
    const Terminal utf8(-1, false, false, true);
    const Terminal ascii(-1, false, false, false);
    const std::vector<double> values = {0, 1, 2, 4};
    EXPECT_EQ(sparkline(values, 6, 4, utf8), "   ▂▄█");
    EXPECT_EQ(sparkline(values, 2, 8, utf8), "▂▄");
    EXPECT_EQ(sparkline(values, 4, 0, ascii), " :=#"); // the largest is a full bar
    EXPECT_EQ(sparkline({}, 2, 0, ascii), "  ");
}

TEST(Top, ShowsWhatRunsUseUntilTheyEnd)
{
    const test::TestLab lab;
    const std::vector<std::string> words = {"top", "--db", lab.database().string(), "--project", "P"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), words.begin(), words.end());
        return more;
    };
    EXPECT_EQ(test::runProgram(test::hostProgram(), words).error, "No run is in flight.\n");
    EXPECT_EQ(test::runProgram(test::hostProgram(), with({"--json"})).output, "[]\n");

    const veltry::Run run = lab.lab.launch(lab.baseline("while :; do :; done & sleep 60", "Busy").id, 0);
    ASSERT_TRUE(test::eventually([&] { return lab.store->run(run.id)->pid.has_value(); }));
    const auto reading = [&] {
        return JSONValue::parse(test::runProgram(test::hostProgram(), with({"#1", "--json"})).output);
    };
    ASSERT_TRUE(test::eventually([&] { // until the shell has started both
        const JSONValue all = reading();
        const JSONValue* cores = all.array()->at(0).find("cores");
        return cores && *cores->number() > 0.01 && *all.array()->at(0).find("processes")->number() >= 2;
    }));
    EXPECT_THAT(
        test::runProgram(test::hostProgram(), words).output,
        AllOf(
            HasSubstr("run  node  "), HasSubstr("  memory at most\n"),
            ContainsRegex("#1   Busy +[0-9.]+ s +[2-9] +[0-9.]+ +[0-9.]+ [kM]B\n")));
    EXPECT_THAT(test::runProgram(test::hostProgram(), with({"--exact"})).output, HasSubstr("  memory\n"));

    test::PseudoTerminal terminal(test::hostProgram(), with({"1"}));
    EXPECT_TRUE(terminal.shows("Busy"));
    EXPECT_TRUE(terminal.shows("█")) << terminal.output();
    lab.store->requestCancel(run.id);
    ::kill(-*lab.store->run(run.id)->pid, SIGKILL);
    EXPECT_TRUE(terminal.shows("\033[?1049l")) << terminal.output();
    EXPECT_TRUE(terminal.shows("Run #1 ")) << terminal.output();
    EXPECT_EQ(terminal.wait(), 0);
}

} // namespace
} // namespace veltry
