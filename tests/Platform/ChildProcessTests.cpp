#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

namespace veltry {
namespace {

using ChildProcess::Command;
using ChildProcess::Group;
using ChildProcess::Output;
using ChildProcess::Stream;

Command shell(std::string script)
{
    Command command;
    command.executable = "/bin/sh";
    command.arguments = {"-c", std::move(script)};
    command.environment = ProcessFacts::environment();
    return command;
}

TEST(ChildProcess, InheritsTheStandardDescriptorsAlone)
{
    FileDescriptor folder = Files::open("/", Files::forReading);
    const FileDescriptor inheritable(::fcntl(folder.get(), F_DUPFD, 57)); // not close-on-exec
    ASSERT_TRUE(inheritable);
    Command list;
    list.executable = "/bin/ls";
    list.arguments = {"/proc/self/fd"};
    EXPECT_EQ(ChildProcess::run(list).output, "0\n1\n2\n3\n"); // 3 is the folder that ls reads
}

/// The set in that line of /proc/self/status, without 32 and 33: the C library starts every child with its own two
/// ignored.
std::uint64_t signals(const std::string& status, std::string_view line)
{
    constexpr std::uint64_t ofTheLibrary = 0x180000000;
    const std::size_t place = status.find(line);
    EXPECT_NE(place, std::string::npos) << status;
    return std::stoull(status.substr(place + line.size(), 16), nullptr, 16) & ~ofTheLibrary;
}

TEST(ChildProcess, HasDefaultSignalsWhateverTheParentIgnores)
{
    struct sigaction ignore{};
    struct sigaction before{};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(::sigaction(SIGPIPE, &ignore, &before), 0);
    sigset_t blocked;
    sigset_t mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &mask), 0);
    const Output status = ChildProcess::run(shell("exec cat /proc/self/status"));
    const Output pipeline = ChildProcess::runPipeline(shell("exec yes"), shell("exec head -n 1"));
    ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    ::sigaction(SIGPIPE, &before, nullptr);

    EXPECT_EQ(signals(status.output, "SigIgn:\t"), 0U);
    EXPECT_EQ(signals(status.output, "SigBlk:\t"), 0U);
    EXPECT_EQ(pipeline.output, "y\n");
    EXPECT_EQ(pipeline.exitNumber, 128 + SIGPIPE);
}

TEST(ChildProcess, DrainsBothPipesAtOnce)
{
    constexpr std::size_t megabyte = 1'000'000;
    const std::string mega = "head -c 1000000 /dev/zero";
    const Output output = ChildProcess::run(shell(mega + " >&2; " + mega + "; " + mega + " >&2"));
    EXPECT_EQ(output.exitNumber, 0);
    EXPECT_EQ(output.output.size(), megabyte);
    EXPECT_EQ(output.error.size(), 2 * megabyte);

    const Output pipeline = ChildProcess::runPipeline(shell(mega + "; " + mega + " >&2"), shell("tee /dev/stderr"));
    EXPECT_EQ(pipeline.output.size(), megabyte);
    EXPECT_EQ(pipeline.error.size(), 2 * megabyte);
}

TEST(ChildProcess, TellsHowItEnded)
{
    EXPECT_EQ(ChildProcess::run(shell("exit 7")).exitNumber, 7);
    EXPECT_EQ(ChildProcess::run(shell("kill -9 $$")).exitNumber, 128 + 9);
    const pid_t child = ChildProcess::start(shell("exit 3"));
    EXPECT_EQ(ChildProcess::wait(child), 3);
    EXPECT_EQ(ChildProcess::wait(child), -1) << "there is no such child any more";
}

TEST(ChildProcess, APipelineFailsWithItsFirstFailure)
{
    const struct {
        const char *first, *second;
        int exitNumber;
    } cases[] = {
        {"echo a", "cat", 0},
        {"echo a; exit 3", "cat; exit 4", 3},
        {"echo a; exit 3", "cat", 3},
        {"echo a", "cat; exit 4", 4},
    };

    for (const auto& c : cases) {
        const Output output = ChildProcess::runPipeline(shell(c.first), shell(c.second));
        EXPECT_EQ(output.exitNumber, c.exitNumber) << c.first << " | " << c.second;
        EXPECT_EQ(output.output, "a\n");
    }
}

TEST(ChildProcess, SaysWhyItCouldNotBeStarted)
{
    const test::TemporaryFolder folder;
    Files::writeAtomically(folder / "text", "no program");
    const auto codeOf = [](const Command& command) {
        try {
            static_cast<void>(ChildProcess::wait(ChildProcess::start(command)));
            return 0;
        } catch (const ChildProcess::StartFailure& failure) {
            EXPECT_EQ(failure.executable, command.executable);
            return failure.code;
        }
    };
    Command command = shell("true");
    EXPECT_EQ(codeOf(command), 0);
    command.directory = folder / "missing";
    EXPECT_EQ(codeOf(command), ENOENT);
    command = shell("true");
    command.output = Stream::appendTo(folder / "missing" / "log");
    EXPECT_EQ(codeOf(command), ENOENT);
    command.executable = folder / "text";
    command.output = Stream::null();
    EXPECT_EQ(codeOf(command), EACCES);
    command.executable = folder / "missing";
    EXPECT_EQ(codeOf(command), ENOENT);
    EXPECT_EQ(
        ChildProcess::StartFailure("/bin/nothing", ENOENT).description(),
        "could not start /bin/nothing: No such file or directory");

    // The other half of the pipeline neither waits for ever nor stays behind.
    EXPECT_THROW(static_cast<void>(ChildProcess::runPipeline(command, shell("cat"))), ChildProcess::StartFailure);
    EXPECT_THROW(static_cast<void>(ChildProcess::runPipeline(shell("cat"), command)), ChildProcess::StartFailure);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, AppendsToFiles)
{
    const test::TemporaryFolder folder;
    Command command = shell("echo out; echo error >&2");
    command.output = Stream::appendTo(folder / "log");
    command.error = Stream::sameAsOutput();
    for (int count = 0; count < 2; ++count)
        EXPECT_EQ(ChildProcess::wait(ChildProcess::start(command)), 0);
    EXPECT_EQ(Files::read(folder / "log"), "out\nerror\nout\nerror\n");
}

TEST(ChildProcess, GetsTheGivenEnvironmentFolderAndArguments)
{
    const test::TemporaryFolder folder;
    Command command;
    command.executable = "/usr/bin/env";
    command.environment = {{"A", "1"}, {"B", ""}};
    EXPECT_EQ(ChildProcess::run(command).output, "A=1\nB=\n");
    command = shell("pwd; for each; do echo \"<$each>\"; done; cat");
    command.directory = folder.path();
    command.arguments.insert(command.arguments.end(), {"sh", "", "a b", "$A"});
    EXPECT_EQ(ChildProcess::run(command).output, folder.path().string() + "\n<>\n<a b>\n<$A>\n");
}

TEST(ChildProcess, StandsInTheWantedGroup)
{
    const struct {
        Group group;
        bool leadsGroup, leadsSession;
    } cases[] = {{Group::ours, false, false}, {Group::own, true, false}, {Group::ownSession, true, true}};

    for (const auto& c : cases) {
        Command command;
        command.executable = "/bin/cat";
        command.arguments = {"/proc/self/stat"};
        command.group = c.group;
        const std::string stat = ChildProcess::run(command).output;
        const auto fields = text::split(stat, ' '); // pid, (cat), state, parent, group, session
        EXPECT_EQ(fields.at(4), c.leadsGroup ? std::string(fields.at(0)) : std::to_string(::getpgrp()));
        EXPECT_EQ(fields.at(5), c.leadsSession ? std::string(fields.at(0)) : std::to_string(::getsid(0)));
    }
}

TEST(ChildProcess, EndsWhatOutlastsOnesPatience)
{
    using namespace std::chrono_literals;
    const auto whole = ChildProcess::runWithin(60s, shell("echo out; echo err >&2; exit 3"));
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->output + whole->error, "out\nerr\n");
    EXPECT_EQ(whole->exitNumber, 3);
    for (const char* command :
         {"sleep 1000", "sleep 1000 & wait", "exec >&- 2>&-; sleep 1000", "trap '' TERM; sleep 1000"})
        EXPECT_FALSE(ChildProcess::runWithin(50ms, shell(command))) << command;
}

} // namespace
} // namespace veltry
