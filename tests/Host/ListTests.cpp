#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(List, WritesAllColumnsAsCommaSeparatedValues)
{
    const test::HostHistory lab;
    const std::string csv = lab.veltry({"list", "--csv"}).output;
    EXPECT_THAT(
        csv, StartsWith("run,node,title,status,exit,began,ended,seconds,commit,loss,loss:parent,loss:baseline,name,"
                        "eval.extra,eval.extra:parent,eval.extra:baseline\n1,baseline,Baseline,succeeded,0,"));
    EXPECT_EQ(
        lab.veltry({"list", "--csv", "--columns", "run,node,loss,loss:parent", "--columns", "loss:baseline,name"})
            .output,
        "run,node,loss,loss:parent,loss:baseline,name\n"
        "1,baseline,1.5,,,a\n"
        "2,warm-up-2j,,,,\n"
        "3,warm-up-2j,1.25,-0.25,-0.25,\"b, \"\"c\"\"\"\n"
        "4,leaf,1,-0.25,-0.5,\n");
}

TEST(List, ChoosesAndOrdersRuns)
{
    const test::HostHistory lab;
    lab.answered(lab.leaf, R"({"status": "odd", "loss": "diverged"})");
    const struct {
        std::vector<std::string> arguments;
        std::string runs;
    } cases[] = {
        {{}, "1 2 3 4 5 "},
        {{"--sort", "loss", "--reverse"}, "5 1 3 4 2 "},
        {{"--reverse"}, "5 4 3 2 1 "},
        {{"--where", "loss<=1.5", "--where", "run != 3"}, "1 4 "},
        {{"--where", "run < 5", "-n", "2", "--sort", "loss"}, "4 3 "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        std::vector<std::string> arguments{"list", "--csv", "--columns", "run"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        std::string runs = lab.veltry(arguments).output;
        std::ranges::replace(runs, '\n', ' ');
        EXPECT_EQ(runs, "run " + c.runs);
    }
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } refusals[] = {
        {{"--sort", "los"}, "veltry: There is no column los. Did you mean loss"},
        {{"--where", "loss is 3"}, "veltry: \"loss is 3\" is no condition."},
        {{"--csv", "--json"}, "veltry: --csv and --json"},
    };
    for (const auto& c : refusals) {
        std::vector<std::string> arguments{"list"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ChildProcess::Output output = lab.veltry(arguments);
        EXPECT_EQ(output.exitNumber, 2);
        EXPECT_THAT(output.error, StartsWith(c.error));
    }
}

TEST(List, IsMadeForEyesAndForPrograms)
{
    test::HostHistory lab;
    EXPECT_THAT(
        lab.words({"list", "--columns", "run,status,seconds,loss,loss:parent,name"}),
        StartsWith("run status seconds loss loss:parent name\n 1 succeeded 0.0 s 1.5 a\n 2 failed (exit 3) 0.0 s\n"));
    const JSONValue document = lab.json({"list", "--where", "run = 4"});
    EXPECT_EQ(
        document.array()->at(0).find("differences")->text(), R"({"baseline":{"loss":-0.5},"parent":{"loss":-0.25}})");
    EXPECT_EQ(*document.array()->at(0).find("node")->string(), "leaf");

    EXPECT_THAT(
        lab.veltry({"list", "--where", "run > 2"}).error,
        HasSubstr("4 columns hidden: the same in all of these runs (status succeeded, loss:parent -0.25), empty "
                  "(eval.extra:p"));

    lab.answered(lab.leaf, R"({"loss": 1, "a_long_name_of_a_column": "x", "another_long_name": 3})");
    test::PseudoTerminal terminal(test::hostProgram(), {"list"}, lab.environment(), lab.repository.path());
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(terminal.output(), HasSubstr("The terminal is too narrow for "));
    EXPECT_THAT(terminal.output(), HasSubstr(". Choose with --columns"));

    lab.answered(lab.leaf, R"({"name": "\u001b[2J"})");
    test::PseudoTerminal csv(test::hostProgram(), {"list", "--csv"}, lab.environment(), lab.repository.path());
    EXPECT_EQ(csv.wait(), 0);
    EXPECT_THAT(csv.output(), testing::Not(HasSubstr("\033[2J")));
}

} // namespace
} // namespace veltry
