#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "ScriptedProcesses.h"
#include "Support/Stress.h"

#include <asio/detached.hpp>
#include <asio/post.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry {
namespace {

using testing::AnyOf;
using testing::Each;

using AgentProcessStress = test::ScriptedProcesses;

/// Counts updates and allows everything, after a few turns of the executor.
class QuickDelegate final : public ACPClientDelegate {
public:
    explicit QuickDelegate(const asio::any_io_executor& executor) : executor_(executor) {}

    [[nodiscard]] asio::awaitable<void> receive(SessionNotification /*notification*/) override
    {
        ++received;
        co_await asio::post(executor_, asio::use_awaitable);
    }

    [[nodiscard]] asio::awaitable<PermissionOutcome> decidePermission(RequestPermissionParams /*request*/) override
    {
        for (int turns = 0; turns < 3; ++turns)
            co_await asio::post(executor_, asio::use_awaitable);
        co_return PermissionOutcome::selected("yes");
    }

    int received = 0;

private:
    asio::any_io_executor executor_;
};

asio::awaitable<void> initialize(std::shared_ptr<ACPClient> client)
{
    co_await client->initialize();
}

asio::awaitable<void> cancel(std::shared_ptr<ACPClient> client)
{
    std::string session = "s";
    co_await client->cancel(std::move(session));
}

/// Prompts until it fails, and adds what it failed with.
asio::awaitable<void> converse(std::shared_ptr<ACPClient> client, std::size_t size, std::vector<std::string>& failures)
{
    try {
        for (;;) {
            std::string session = "s";
            std::string text(size, 'x');
            co_await client->prompt(std::move(session), std::move(text));
        }
    } catch (const Error& error) {
        failures.push_back(error.description());
    }
}

TEST_F(AgentProcessStress, AgentsThatDieAmidEverythingLeaveNothing)
{
    // Answers each line with an update and questions, answers some prompts, and dies behind half a line after so many.
    const std::string script = R"(
        left=%LINES%; if [ $left = 4 ]; then sleep 1 & fi; while [ $left -gt 0 ] && read -r line; do
            left=$((left - 1)); echo noise >&2
            case $line in *'"initialize"'*) echo '{"jsonrpc":"2.0","id":0,"result":{"protocolVersion":1}}';; esac
            echo '{"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s","update":{"sessionUpdate":"x"}}}'
            echo '{"jsonrpc":"2.0","id":"p","method":"session/request_permission","params":{"sessionId":"s",'\
                '"toolCall":{"toolCallId":"c"},"options":[]}}'
            echo '{"jsonrpc":"2.0","id":"r","method":"fs/read_text_file","params":{"sessionId":"s","path":"/x"}}'
            echo '{"jsonrpc":"2.0","id":'$((left % 5))',"result":{"stopReason":"end_turn"}}'
        done
        printf '{"jsonrpc":'; %END%)";
    constexpr std::array<std::pair<const char*, int>, 3> ends{
        {{"exit 7", 7}, {"kill -9 $$", 128 + SIGKILL}, {"sleep 300", 128 + SIGTERM}}};
    for (int round = 0; round < test::stressed(1000); ++round) {
        SCOPED_TRACE(round);
        const int lines = round % 11;
        const auto [end, status] = ends.at(static_cast<std::size_t>(round) % ends.size());
        const std::string exited = fmt::format("the agent exited with status {}", status);
        std::string life = text::replacingAll(script, "%LINES%", std::to_string(lines));
        life = text::replacingAll(life, "%END%", end);
        std::weak_ptr<ACPClient> watched;
        runLeavingNothing([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const Harness harness{.name = "A script", .executable = "/bin/sh", .arguments = {"-c", life}};
            const auto agent = AgentProcess::start(executor, harness, {{"PATH", "/usr/bin:/bin"}}, "/");
            const auto delegate = std::make_shared<QuickDelegate>(executor);
            const auto client = ACPClient::make(executor, agent, delegate, false);
            watched = client;
            std::vector<std::string> failures;
            asio::co_spawn(executor, initialize(client), asio::detached);
            for (const std::size_t size : {1u, 10u, 100'000u, 10u})
                asio::co_spawn(executor, converse(client, size, failures), asio::detached);
            asio::co_spawn(executor, cancel(client), asio::detached);
            if (status == 128 + SIGTERM) {
                const std::function<bool()> isAlong = [&] { return delegate->received >= std::min(lines, 5); };
                co_await test::eventuallyOnExecutor(isAlong);
                agent->terminate();
            }
            const std::function<bool()> allFailed = [&] { return failures.size() == 4; };
            const bool all = co_await test::eventuallyOnExecutor(allFailed);
            EXPECT_TRUE(all);
            EXPECT_THAT(failures, Each(AnyOf(exited, "could not write to the peer: Broken pipe")));
        });
        ASSERT_FALSE(HasFailure());
        EXPECT_TRUE(watched.expired());
    }
}

} // namespace
} // namespace veltry
