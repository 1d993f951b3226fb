#include "Base/Text.h"
#include "Host/Words/DiffText.h"
#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"
#include "Support/Eventually.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

#include <csignal>

namespace veltry {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

const Terminal pipe(-1, false, false, false);

Changes someChanges()
{
    using Kind = Changes::Line::Kind;
    Changes changes{.base = "0123", .against = "main", .frozen = true, .files = {}};
    changes.files = {
        {.path = "new.py",
         .oldPath = "old.py",
         .kind = Changes::Kind::renamed,
         .added = 1,
         .removed = 1,
         .hunks =
             {{.oldStart = 9,
               .newStart = 9,
               .heading = "def train():",
               .lines =
                   {{Kind::context, "\tx = 1", 9, 9},
                    {Kind::removed, "\ty\033[2J", 10, std::nullopt},
                    {Kind::added, "", std::nullopt, 10}}}}},
        {.path = "logo.png",
         .oldPath = {},
         .kind = Changes::Kind::added,
         .added = {},
         .removed = {},
         .shown = Changes::File::Shown::binary,
         .hunks = {}},
        {.path = "data.csv",
         .oldPath = {},
         .kind = Changes::Kind::deleted,
         .added = 0,
         .removed = 3001,
         .shown = Changes::File::Shown::tooLarge,
         .hunks = {}},
        {.path = "run.sh", .oldPath = {}, .added = 0, .removed = 0, .hunks = {}},
        {.path = "b", .oldPath = "a", .kind = Changes::Kind::copied, .added = 0, .removed = 0, .hunks = {}},
    };
    return changes;
}

TEST(DiffText, ShowsLinesAndTellsTheRestInWords)
{
    EXPECT_EQ(DiffText::summary(someChanges(), pipe), "5 files, +1 -3,002, against main, as a run's commit has it\n");
    EXPECT_EQ(text::trimmed(DiffText::lines(someChanges(), pipe)), R"(old.py -> new.py  renamed  +1 -1
@@ def train(): @@
 9  9       x = 1
10     -    y�[2J
   10  +

logo.png  added
A binary file: there are no lines to show.

data.csv  deleted  +0 -3,001
Too much to show: a file of more than 3,000 changed lines, or one past the 20,000 that are shown in all.

run.sh  modified  +0 -0
No line differs: the file is empty, or only its mode changed.

a -> b  copied  +0 -0
Its lines are the same.)");
    EXPECT_EQ(DiffText::stat(someChanges(), pipe), R"(renamed   old.py -> new.py      +1      -1  +-
added     logo.png          binary
deleted   data.csv              +0  -3,001  ---------------
modified  run.sh                +0      -0  
copied    a -> b                +0      -0  
)");
}

TEST(Diff, ShowsANodesWorkOnATerminal)
{
    const test::TestLab lab;
    const Experiment node = lab.baseline("true", "Wide");
    const std::vector<std::string> words = {"diff", "wide", "--db", lab.database().string(), "--project", "P"};
    EXPECT_THAT(test::runProgram(test::hostProgram(), words).error, EndsWith("Wide changes nothing against main.\n"));
    lab.write(node, "a.txt", std::string(1000, 'x') + "\nshort\n");
    test::PseudoTerminal terminal(test::hostProgram(), words);
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(
        terminal.output(), AllOf(
                               HasSubstr("1 file, \033[32m+2\033[0m \033[31m-0\033[0m, against main\r\n"),
                               HasSubstr("\033[2m  1  \033[0m\033[32m+" + std::string(74, 'x') + "\033[0m\r\n"),
                               HasSubstr("(556 columns more)"), HasSubstr("\033[32m+short\033[0m\r\n")));
    EXPECT_EQ(
        *JSONValue::parse(test::runProgram(
                              test::hostProgram(),
                              {"diff", "wide", "--stat", "--json", "--db", lab.database().string(), "--project", "P"})
                              .output)
             .find("files")
             ->array()
             ->at(0)
             .find("added")
             ->integer(),
        2);
}

TEST(Diff, LeavesNoCopyOfTheConfigurationBehindWhereASignalEndsIt)
{
    const test::HostLab lab;
    const Experiment node = lab.baseline("true");
    for (const auto& [key, value] : {std::pair("diff.notes.binary", "true"), {"filter.slow.clean", "sleep 20; cat"}})
        lab.repository.git({"config", key, value});
    lab.write(node, ".gitattributes", "*.slow filter=slow\n");
    lab.write(node, "a.slow", "1\n");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        const test::TemporaryFolder temporary;
        ChildProcess::Environment environment = ProcessFacts::environment();
        environment.merge(lab.environment());
        environment["TMPDIR"] = temporary.path();
        const ProcessID child = ChildProcess::start(
            {.executable = test::hostProgram(),
             .arguments = {"diff", node.slug, "--db", lab.database()},
             .environment = environment,
             .directory = lab.repository.path(),
             .group = ChildProcess::Group::own});
        EXPECT_TRUE(test::eventually([&] { return test::entryCount(temporary.path()) == 2; }));
        for (const auto& entry : std::filesystem::directory_iterator(temporary.path()))
            EXPECT_EQ(entry.status().permissions(), std::filesystem::perms::owner_all) << entry.path();
        ::kill(child, signal);
        EXPECT_EQ(ChildProcess::wait(child), 128 + signal);
        EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
        ChildProcess::killGroup(child);
    }
}

} // namespace
} // namespace veltry
