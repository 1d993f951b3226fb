#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "Base/Text.h"
#include "FakeAgent.h"
#include "Support/EventuallyOnExecutor.h"
#include "Support/ProcessResources.h"
#include "Support/RunOnExecutor.h"
#include "Support/Stress.h"

#include <asio/detached.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace veltry {
namespace {

asio::awaitable<void> initialize(std::shared_ptr<ACPClient> client)
{
    co_await client->initialize();
}

/// One failure or another comes of every prompt.
asio::awaitable<void> prompt(std::shared_ptr<ACPClient> client, std::size_t size, int& failures)
{
    try {
        std::string session = "s";
        std::string text(size, 'x');
        co_await client->prompt(std::move(session), std::move(text));
    } catch (const Error&) {
        ++failures;
    }
}

TEST(AgentProcessStress, AgentsThatDieAmidEverythingLeaveNothing)
{
    std::signal(SIGPIPE, SIG_IGN);

    // Answers each line with an update and a question, and dies behind half a line after so many.
    const std::string script = R"(
        left=%LINES%; if [ $left = 4 ]; then sleep 1 & fi; while [ $left -gt 0 ] && read -r line; do
            left=$((left - 1)); echo noise >&2
            case $line in *'"initialize"'*) echo '{"jsonrpc":"2.0","id":0,"result":{"protocolVersion":1}}';; esac
            echo '{"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s","update":{"sessionUpdate":"x"}}}'
            echo '{"jsonrpc":"2.0","id":"p","method":"session/request_permission","params":{"sessionId":"s",'\
                '"toolCall":{"toolCallId":"c"},"options":[]}}'
        done
        printf '{"jsonrpc":'; %END%)";
    constexpr std::array ends{"exit 7", "kill -9 $$", "sleep 300"}; // the last is terminated
    const test::ProcessResources before = test::ProcessResources::now();
    for (int round = 0; round < test::stressed(1000); ++round) {
        SCOPED_TRACE(round);
        const int lines = round % 11;
        std::string life = text::replacingAll(script, "%LINES%", std::to_string(lines));
        life = text::replacingAll(life, "%END%", ends.at(static_cast<std::size_t>(round) % ends.size()));
        test::runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const Harness harness{.name = "A script", .executable = "/bin/sh", .arguments = {"-c", life}};
            const auto agent = AgentProcess::start(executor, harness, {{"PATH", "/usr/bin:/bin"}}, "/");
            const auto delegate = std::make_shared<test::QuickDelegate>(executor);
            const auto client = ACPClient::make(executor, agent, delegate, false);
            int failures = 0;
            asio::co_spawn(executor, initialize(client), asio::detached);
            for (const std::size_t size : {1u, 10u, 100'000u, 10u})
                asio::co_spawn(executor, prompt(client, size, failures), asio::detached);
            if (round % 3 == 2) {
                const std::function<bool()> isAlong = [&] { return delegate->received >= std::min(lines, 5); };
                co_await test::eventuallyOnExecutor(isAlong);
                agent->terminate();
            }
            const std::function<bool()> allFailed = [&] { return failures == 4; };
            const bool all = co_await test::eventuallyOnExecutor(allFailed);
            EXPECT_TRUE(all) << failures;
        });
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_EQ(test::ProcessResources::now(), before);
    std::signal(SIGPIPE, SIG_DFL);
}

} // namespace
} // namespace veltry
