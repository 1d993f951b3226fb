#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "FakeAgent.h"
#include "ScriptedProcesses.h"

#include <asio/detached.hpp>
#include <fmt/format.h>

namespace veltry {
namespace {

using test::eventuallyOnExecutor;
using test::runOnExecutor;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;

/// Agents that are shell scripts.
class AgentProcessTest : public test::ScriptedProcesses {
protected:
    [[nodiscard]] std::shared_ptr<AgentProcess> start(
        const asio::any_io_executor& executor, const std::string& script) const
    {
        const Harness harness{.name = "A script", .executable = "sh", .arguments = {"-c", script}};
        const ChildProcess::Environment environment{{"PATH", "/nowhere::/usr/bin:/bin"}, {"A", "1"}};
        return AgentProcess::start(executor, harness, environment, folder.path());
    }
};

TEST_F(AgentProcessTest, FindsCommandsAndWhatIsMissing)
{
    const std::string first = program("first/tool").parent_path();
    const std::string second = program("second/tool").parent_path();
    program("second/npx");
    const std::string full = program("full/npx").parent_path();
    program("full/claude");
    program("full/opencode");
    std::filesystem::permissions(program("full/codex"), std::filesystem::perms::owner_read);
    Files::createFolders(folder / "full" / "tool");

    const struct {
        std::string name, path;
        std::optional<std::string> found;
    } commands[] = {
        {"tool", first + ":" + second, first + "/tool"},
        {"tool", "::/nowhere:" + second + ":" + first, second + "/tool"},
        {"tool", full, std::nullopt}, // a folder
        {"codex", full, std::nullopt},
        {"tool", "", std::nullopt},
        {first + "/tool", "", first + "/tool"},
        {"first/tool", folder.path(), std::nullopt}, // a path, from the current folder
        {full + "/codex", "", std::nullopt},
    };
    for (const auto& c : commands) {
        SCOPED_TRACE(c.name + " on " + c.path);
        try {
            EXPECT_EQ(AgentProcess::find(c.name, c.path), c.found);
        } catch (const AgentProcess::Failure& failure) {
            EXPECT_EQ(failure.command, c.name);
            EXPECT_EQ(c.found, std::nullopt);
        }
    }

    using Missing = Harness::Missing;
    EXPECT_EQ(Harness::codex().missing(first), Missing::node);
    EXPECT_EQ(Harness::codex().missing(full), Missing::command);
    EXPECT_EQ(Harness::claudeCode().missing(full), std::nullopt);
    EXPECT_EQ((Harness{.name = "Own", .executable = "own"}.missing(full)), Missing::command);
    EXPECT_EQ(Harness::named("Nobody"), Harness::claudeCode());
    for (const Harness& harness : Harness::all())
        EXPECT_EQ(Harness::named(harness.name), harness);
}

TEST_F(AgentProcessTest, GetsTheGivenEnvironmentAndFolderAndLeadsItsGroup)
{
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const auto agent =
            start(executor, "pwd; env | grep -v ^_= | sort; ps -o pgid= $$; echo $$; read x; echo $x; exit 3");
        std::vector<std::string> lines;
        while (lines.size() < 6) {
            const std::optional<std::string> line = co_await agent->transport()->lines().next();
            lines.push_back(std::string(text::trimmed(line.value())));
        }
        EXPECT_THAT(
            lines, ElementsAre(
                       folder.path(), "A=1", "PATH=/nowhere::/usr/bin:/bin", "PWD=" + folder.path().string(), lines[5],
                       lines[5]));
        EXPECT_EQ(agent->exitCode(), std::nullopt);
        co_await agent->transport()->send("hello");
        const std::optional<std::string> line = co_await agent->transport()->lines().next();
        EXPECT_EQ(line, "hello");
        const std::int32_t status = co_await agent->waitForExit();
        EXPECT_EQ(status, 3);
    });
}

TEST_F(AgentProcessTest, AStartThatFailsLeavesNothing)
{
    runLeavingNothing([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const ChildProcess::Environment noPath{{"HOME", "/"}};
        EXPECT_THROW((void)AgentProcess::start(executor, Harness::codex(), noPath, "/"), AgentProcess::Failure);
        const Harness harness{.name = "None", .executable = program("none")};
        EXPECT_THROW((void)AgentProcess::start(executor, harness, {}, folder / "missing"), ChildProcess::StartFailure);
        co_return;
    });
}

TEST_F(AgentProcessTest, KeepsTheTailOfItsErrors)
{
    std::string longLine(65535, 'b'); // all that is kept, with its line feed
    longLine += '\n';
    const std::pair<const char*, std::string> cases[] = {
        {"(head -c 4465 /dev/zero | tr '\\0' a; head -c 65535 /dev/zero | tr '\\0' b; echo) >&2", longLine},
        {"printf 'a\\377b' >&2", "a\uFFFD"
                                 "b"},
    };
    for (const auto& [script, tail] : cases)
        runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const auto agent = start(executor, script);
            const std::function<bool()> complete = [&] { return agent->recentStderr() == tail; };
            const bool came = co_await eventuallyOnExecutor(complete);
            EXPECT_TRUE(came) << script << ": " << agent->recentStderr().size();
        });
}

asio::awaitable<void> tellExit(std::shared_ptr<AgentProcess> agent, std::vector<std::int32_t>& statuses)
{
    const std::int32_t status = co_await agent->waitForExit();
    statuses.push_back(status);
}

TEST_F(AgentProcessTest, TellsEverybodyHowItEnded)
{
    const struct {
        const char* script;
        bool terminates;
        std::int32_t status;
    } cases[] = {
        {"exit 3", false, 3},
        {"kill -9 $$", false, 128 + SIGKILL},
        // The leader waits for its child, as npx does, and both get the signal.
        {"sh -c 'echo $$ >> children; exec sleep 300' & echo $$ >> children; wait", true, 128 + SIGTERM},
        {"trap 'exit 9' TERM; sh -c 'echo $$ >> children; exec sleep 300' & echo $$ >> children; wait", true, 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Files::remove(folder / "children");
        runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const auto agent = start(executor, c.script);
            std::vector<std::int32_t> statuses;
            asio::co_spawn(executor, tellExit(agent, statuses), asio::detached);
            asio::co_spawn(executor, tellExit(agent, statuses), asio::detached);
            if (c.terminates) {
                const std::function<bool()> isUp = [&] { return children().size() == 2; };
                co_await eventuallyOnExecutor(isUp);
                agent->terminate();
            }
            const std::function<bool()> allTold = [&] { return statuses.size() == 2; };
            co_await eventuallyOnExecutor(allTold);
            EXPECT_THAT(statuses, ElementsAre(c.status, c.status));
            EXPECT_EQ(agent->exitCode(), c.status);
            agent->terminate();
            const std::int32_t again = co_await agent->waitForExit();
            EXPECT_EQ(again, c.status);
        });
        expectChildrenToEnd();
    }
}

/// Adds what a prompt failed with.
asio::awaitable<void> promptOf(std::shared_ptr<ACPClient> client, std::size_t size, std::vector<std::string>& failures)
{
    try {
        std::string session = "s";
        std::string text(size, 'x');
        co_await client->prompt(std::move(session), std::move(text));
    } catch (const Error& error) {
        failures.push_back(error.description());
    }
}

asio::awaitable<void> initializeOf(std::shared_ptr<ACPClient> client, std::string& failure)
{
    try {
        co_await client->initialize();
    } catch (const Error& error) {
        failure = error.description();
    }
}

TEST_F(AgentProcessTest, HoweverAnAgentEndsEverybodyHearsOfItAndNothingStays)
{
    const struct {
        const char *name, *script;
        int status; ///< after SIGTERM: once it has written its id
    } cases[] = {
        {"dies in the middle of a line", "read x; printf '{\"jsonrpc\":'; exit 3", 3},
        {"answers with noise", "read x; echo; echo '[]'; echo '{}'; echo '{\"jsonrpc\":\"2.0\",\"id\":77}'; exit 4", 4},
        {"floods standard error", "read x; head -c 5000000 /dev/zero >&2; exit 5", 5},
        {"floods standard error without end", "echo $$ >> children; exec yes >&2", 128 + SIGTERM},
        {"leaves a child that holds everything open", "read x; sleep 300 <&0 & echo $! >> children; exit 6", 6},
        {"never reads its input", "echo $$ >> children; exec sleep 300", 128 + SIGTERM},
        {"closes its output and goes on", "echo $$ >> children; exec >&- 2>&-; sleep 300", 128 + SIGTERM},
        {"closes its input and goes on", "read x; exec <&-; echo $$ >> children; sleep 300", 128 + SIGTERM},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Files::remove(folder / "children");
        std::weak_ptr<ACPClient> watched;
        runLeavingNothing([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const auto agent = start(executor, c.script);
            const auto client = ACPClient::make(executor, agent, {}, false);
            watched = client;
            std::string initializing;
            std::vector<std::string> failures;
            asio::co_spawn(executor, initializeOf(client, initializing), asio::detached);
            for (const std::size_t size : {1u, 10u, 300'000u, 10u})
                asio::co_spawn(executor, promptOf(client, size, failures), asio::detached);
            if (c.status == 128 + SIGTERM) {
                const std::function<bool()> isUp = [&] { return children().size() == 1; };
                co_await eventuallyOnExecutor(isUp);
                agent->terminate();
            }
            const std::function<bool()> allFailed = [&] { return failures.size() == 4 && !initializing.empty(); };
            co_await eventuallyOnExecutor(allFailed);
            const std::string exited = fmt::format("the agent exited with status {}", c.status);
            EXPECT_EQ(initializing, exited);
            EXPECT_EQ(failures.size(), 4U);
            EXPECT_THAT(
                failures, Each(AnyOf(exited, "could not write to the peer: Broken pipe"))); // whichever is first
        });
        EXPECT_TRUE(watched.expired());
    }
}

TEST_F(AgentProcessTest, AnAgentThatNobodyHoldsIsEnded)
{
    const std::pair<const char*, const char*> cases[] = {
        {"ends with its input", "trap '' TERM; while read x; do :; done"},
        {"ends by the signal", "sleep 300 & echo $! >> children; wait"},
        {"is stuck in its output", "yes"},
    };
    for (const auto& [name, script] : cases) {
        SCOPED_TRACE(name);
        Files::remove(folder / "children");
        runLeavingNothing([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const std::string up =
                R"(echo $$ >> children; read x; echo '{"jsonrpc":"2.0","id":0,"result":{"protocolVersion":1}}'; )";
            const auto client = ACPClient::make(executor, start(executor, up + script), {}, false);
            co_await client->initialize(); // from now on the client watches for the exit
        });
        EXPECT_FALSE(children().empty());
        expectChildrenToEnd();
    }
}

TEST_F(AgentProcessTest, AnAgentGoesWithItsExecutorEvenIfItResists)
{
    expectToEndWithTheExecutor(1, [&](const asio::any_io_executor& executor) {
        return start(executor, "trap '' TERM; echo $$ >> children; while :; do sleep 1; done");
    });
}

} // namespace
} // namespace veltry
