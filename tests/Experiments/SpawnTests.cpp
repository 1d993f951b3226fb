#include "Experiments/Spawn.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>

namespace veltry {
namespace {

using test::TemporaryFolder;

Spawn::Options shell(const TemporaryFolder& folder, std::string command)
{
    return {
        .executable = "/bin/sh",
        .arguments = {"-c", std::move(command)},
        .environment = {{"ONLY", "this one"}},
        .directory = folder.path(),
        .log = folder / "log",
        .group = false};
}

TEST(SpawnTests, aChildWritesBothStreamsBehindWhatTheLogHolds)
{
    const TemporaryFolder folder;
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(Spawn::wait(Spawn::start(shell(folder, "echo \"$ONLY\"; pwd >&2; cat; echo ${HOME-none}"))), 0);
    const std::string once = "this one\n" + folder.path().string() + "\nnone\n";
    EXPECT_EQ(Files::read(folder / "log"), once + once);
}

TEST(SpawnTests, aChildLeadsAGroupOrASession)
{
    for (const bool group : {true, false}) {
        const TemporaryFolder folder;
        Spawn::Options options = shell(folder, "read -r line < /proc/$$/stat; echo $line");
        options.group = group;
        const pid_t child = Spawn::start(options);
        EXPECT_EQ(Spawn::wait(child), 0);
        const std::string stat = Files::read(folder / "log");
        const pid_t session = group ? ::getsid(0) : child;
        // pid (name) state parent group session
        EXPECT_THAT(stat, testing::HasSubstr(" " + std::to_string(child) + " " + std::to_string(session) + " "));
    }
}

TEST(SpawnTests, waitGivesOneNumberForEachEnd)
{
    const TemporaryFolder folder;
    EXPECT_EQ(Spawn::wait(Spawn::start(shell(folder, "exit 255"))), 255);
    EXPECT_EQ(Spawn::wait(Spawn::start(shell(folder, "kill -KILL $$"))), 128 + SIGKILL);
    EXPECT_EQ(Spawn::wait(::getpid()), -1) << "not a child of ours";
}

TEST(SpawnTests, whatCantStartNamesItsProgram)
{
    const TemporaryFolder folder;

    const struct {
        std::string_view name;
        void (*spoil)(Spawn::Options&);
        Spawn::Failure failure;
    } cases[] = {
        {"no program", [](auto& o) { o.executable = "/no/such"; }, {"/no/such", ENOENT}},
        {"no folder", [](auto& o) { o.directory /= "missing"; }, {"/bin/sh", ENOENT}},
        {"no log", [](auto& o) { o.log = o.directory; }, {"/bin/sh", EISDIR}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Spawn::Options options = shell(folder, "true");
        c.spoil(options);
        try {
            static_cast<void>(Spawn::start(options));
            ADD_FAILURE() << "it started";
        } catch (const Spawn::Failure& failure) {
            EXPECT_EQ(failure, c.failure) << failure.description();
        }
    }
    EXPECT_EQ(Spawn::Failure("/bin/zsh", 2).description(), R"(Failure(executable: "/bin/zsh", code: 2))");
}

} // namespace
} // namespace veltry
