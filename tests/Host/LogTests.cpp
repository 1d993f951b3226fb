#include "Experiments/RunLog/RunLog.h"
#include "Host/Terminal/Harmless.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/Eventually.h"
#include "Support/PseudoTerminal.h"
#include "Support/TestLab.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace veltry {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(Harmless, LetsColoursPassAndNothingElse)
{
    const struct {
        std::string_view name, line, onATerminal, elsewhere;
    } cases[] = {
        {"plain text", "loss 0.5\tünïcode", "loss 0.5\tünïcode", "loss 0.5\tünïcode"},
        {"colours", "\033[1;31mred\033[m", "\033[1;31mred\033[m\033[0m", "red"},
        {"colours of 24 bits", "\033[38:2::1:2:3mx", "\033[38:2::1:2:3mx\033[0m", "x"},
        {"a private mode with an m", "\033[>4;2mx", "x", "x"},
        {"movements and an erased screen", "a\033[2J\033[1;1H\033[?25lb\033[10Ac", "abc", "abc"},
        {"a title and an address", "\033]0;evil\aa\033]8;;http://x\033\\b", "ab", "ab"},
        {"a string for the device that never ends", "a\033P$q evil", "a", "a"},
        {"character sets, a reset, a lone escape", "\033(0a\033cb\033", "ab", "ab"},
        {"a sequence that breaks off", "\033[12", "", ""},
        {"C1 and other controls",
         "a\302\233"
         "2Jb\007\001",
         "a�2Jb��", "a�2Jb��"},
        {"a bar that returns", "10 %\r50 %\r100 %\r", "100 %", "100 %"},
        {"a bar that steps back", "1/2\b\b\b2/2", "1/22/2", "1/22/2"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(harmless(c.line, true), c.onATerminal);
        EXPECT_EQ(harmless(c.line, false), c.elsewhere);
    }
}

class LogTest : public testing::Test {
protected:
    std::vector<std::string> words(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "log");
        arguments.insert(arguments.end(), {"--db", lab_.database().string(), "--project", "P"});
        return arguments;
    }

    ChildProcess::Output log(std::vector<std::string> arguments) const
    {
        return test::runProgram(test::hostProgram(), words(std::move(arguments)), {{"TZ", "UTC"}});
    }

    /// A run that ended, whose log holds these lines.
    veltry::Run runWith(std::string_view log) const
    {
        const veltry::Run run = lab_.insertFinished(node_, Run::Status::failed, 1);
        Files::createFolders(run.directory);
        Files::writeAtomically(run.log(), log);
        return run;
    }

    test::TestLab lab_;
    Experiment node_ = lab_.baseline("true");
};

TEST_F(LogTest, ShowsTheLastLinesWithNumbersAndTimes)
{
    const veltry::Run run = runWith("one\n\033[31mtwo\033[0m\nthree");
    RunLog::stampWhole(run.log(), *Date::parseISO8601("2026-03-01T23:59:58Z"), 1);
    const std::string two = "     2  2026-03-01 23:59:59  two\n";
    const std::string three = "     3  2026-03-02 00:00:00  three\n";
    EXPECT_EQ(log({"1"}).output, "     1  2026-03-01 23:59:58  one\n" + two + three);
    EXPECT_EQ(log({"#1", "-n", "2"}).output, two + three);
    EXPECT_EQ(log({"1", "-n", "1", "--no-times"}).output, "     3  three\n");
    EXPECT_EQ(
        JSONValue::parse(log({"1", "-n", "1", "--json"}).output),
        JSONValue::parse(R"([{"number":3,"at":"2026-03-02T00:00:00.000Z","text":"three"}])"));
    const ChildProcess::Output followed = log({"1", "-n", "1", "-f"}); // it has ended: nothing to wait for
    EXPECT_EQ(followed.output, three);
    EXPECT_THAT(followed.error, AllOf(HasSubstr("Run #1 failed after"), EndsWith("with exit code 1.\n")));

    Files::remove(run.log());
    EXPECT_EQ(log({"1", "--json"}).output, "[]\n");
    EXPECT_THAT(log({"1"}).error, EndsWith("It has no log.\n"));
    EXPECT_EQ(log({"1", "-n", "x"}).exitNumber, 2);
    EXPECT_EQ(log({"2"}).exitNumber, 1);
}

TEST_F(LogTest, ShowsLinesThatAreTooManyOrTooLongForOneRead)
{
    const std::string longLine(1'000'000, 'x');
    std::string text = longLine + "\n" + longLine + "\n";
    runWith(text);
    EXPECT_EQ(log({"1", "-n", "1", "--no-times"}).output, "        " + longLine + "\n");
    text.clear();
    for (int line = 1; line <= 30'000; ++line)
        text += fmt::format("line {}\n", line);
    RunLog::stampWhole(runWith(text).log(), Date::now(), 0);
    const std::string output = log({"2", "-n", "20000", "--no-times"}).output;
    EXPECT_THAT(output, testing::StartsWith(" 10001  line 10001\n"));
    EXPECT_EQ(std::ranges::count(output, '\n'), 20'000);
}

TEST_F(LogTest, FollowsARunOnATerminalUntilItEnds)
{
    const Experiment node = lab_.baseline(
        "printf '\\033[32mbegun\\033[0m\\n'; until [ -e go ]; do sleep 0.05; done; seq 2000; printf 'no end'; exit 3",
        "Slow");
    const veltry::Run run = lab_.lab.launch(node.id, 0);
    test::PseudoTerminal terminal(test::hostProgram(), words({"1", "-f", "--no-times"}));
    ASSERT_TRUE(terminal.shows("\033[32mbegun\033[0m")) << terminal.output();
    Files::writeAtomically(run.source() / "go", "");
    EXPECT_TRUE(terminal.shows("2001  \033[0m2000\r\n")) << terminal.output();
    EXPECT_TRUE(terminal.shows("no end\r\n"));
    EXPECT_TRUE(terminal.shows("Run #1 failed after"));
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(terminal.output(), EndsWith("with exit code 3.\r\n"));
    EXPECT_EQ(std::ranges::count(terminal.output(), '\n'), 2003);

    static_cast<void>(lab_.lab.launch(lab_.baseline("echo begun; sleep 60", "Long").id, 0));
    test::PseudoTerminal waiting(test::hostProgram(), words({"2", "-f"}));
    ASSERT_TRUE(waiting.shows("begun")) << waiting.output(); // or Ctrl-C would come before anybody could hear it
    waiting.type("\003");
    EXPECT_EQ(waiting.wait(), 130);
}

TEST_F(LogTest, FollowingEndsBesideAProcessThatWritesFasterThanItIsRead)
{
    const UUID id = UUID::random();
    lab_.store->insertRun(id, node_, "commit", lab_.runs() / id.text());
    lab_.store->markRunning(id, 1'000'000'000); // no process has it
    const veltry::Run run = lab_.store->run(id).value();
    Files::createFolders(run.directory);
    const ProcessID follower = ChildProcess::start(
        {.executable = test::hostProgram(),
         .arguments = words({std::to_string(run.number), "-f"}),
         .environment = ProcessFacts::environment(),
         .group = ChildProcess::Group::own});

    const FileDescriptor log = Files::open(run.log(), Files::forAppending);
    // It makes a line with a number and a time of each byte, and so is the slower one.
    const std::string lines(65'536, '\n');
    bool isOver = false;
    for (int step = 0; step < 500 && !isOver; ++step) { // ten seconds
        Files::writeAll(log, lines, "the log");
        isOver = ChildProcess::reapIfEnded(follower);
        if (step == 10)
            lab_.store->finishRun(id, veltry::Run::Status::succeeded, 0, {});
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(isOver);
    if (!isOver)
        ChildProcess::endGroup(follower, std::chrono::milliseconds(0));
}

} // namespace
} // namespace veltry
